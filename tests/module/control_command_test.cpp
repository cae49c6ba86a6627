#include "module/commands_fixture.h"

#include <chrono>

namespace module_test {

namespace {

using test_support::debug_line;
using test_support::notice_line;
using testing::ElementsAre;
using testing::IsEmpty;

}  // namespace

class ControlCommand : public CommandFrame {
 protected:
  /// A call whose media server is known to be at that address.
  static boost::uuids::uuid AddCallOn(const char* ip, const std::vector<const Leg*>& legs) {
    const boost::uuids::uuid msuuid = AddCall(legs);
    mod_globals->GetMSTable()->SetMediaSessionIPAddress(msuuid, ip);
    return msuuid;
  }
  static bool InService(const char* ip) {
    kelvaro::jsr309::JSR309Stats stats;
    EXPECT_TRUE(mod_globals->GetMSCtrlFtry()->GetStats(stats));
    return stats.GetMediaSessionStatsPerMediaServer().GetOneStatsByIP(ip)->IsInService();
  }
  static size_t Sessions() { return mod_globals->GetMSTable()->CountMediaSessionAllFSUuid(); }
};

TEST_F(ControlCommand, WithoutTwoWordsShowsItsSyntax) {
  for (const char* words : {static_cast<const char*>(nullptr), "", "  ", "service", "service  "}) {
    EXPECT_EQ(Control(words), kControlHelp);
    EXPECT_EQ(ControlXml(words), kControlXmlHelp);
  }
}

TEST_F(ControlCommand, UnknownApplicationIsNamedAheadOfTheSyntax) {
  EXPECT_EQ(Control("Server up"), std::string("application \"Server\" not supported!") + kControlHelp);
  EXPECT_EQ(ControlXml("server\tup x"), std::string("application \"server\tup\" not supported!") + kControlXmlHelp);
  EXPECT_EQ(Control("%s%n up"), std::string("application \"%s%n\" not supported!") + kControlHelp);
}

TEST_F(ControlCommand, MalformedRequestsShowTheSyntaxAlone) {
  Leg leg;
  AddCallOn("127.0.1.1", {&leg});
  for (const char* words : {"service sideways all", "session kill all", "service up ip", "service up mac",
                            "service up some 127.0.1.1", "session term ip", "session up"}) {
    EXPECT_EQ(Control(words), kControlHelp) << words;
  }
  EXPECT_TRUE(InService("127.0.1.1"));
  EXPECT_FALSE(leg.HungUp());
}

TEST_F(ControlCommand, WordsThatDoNotFitAreMalformed) {
  const std::string long_word(100000, 'x');
  EXPECT_EQ(Control(("service up ip " + long_word).c_str()), kControlHelp);
  EXPECT_EQ(Control(("service up " + long_word + " 127.0.1.1").c_str()), kControlHelp);
  EXPECT_EQ(Control(("service " + long_word).c_str()), kControlHelp);
  EXPECT_EQ(Control(("service up ip " + std::string(50, '1')).c_str()), kControlHelp);
  EXPECT_EQ(Control(("service up ip " + std::string(49, '1')).c_str()), std::string(kReportError) + kControlHelp);
  EXPECT_EQ(Control("service up ip \xFF\xC3\x84"), std::string(kReportError) + kControlHelp);
}

TEST_F(ControlCommand, TabsDoNotSeparateAndRunsOfBlanksDo) {
  EXPECT_EQ(Control("service\tdown all"), std::string("application \"service\tdown\" not supported!") + kControlHelp);
  EXPECT_EQ(Control("service down\tall"), kControlHelp);
  EXPECT_EQ(Control("service down all\t"), kControlHelp);
  EXPECT_EQ(Control("   service   DOWN   IP   127.0.1.2  "), "Media Server 127.0.1.2 is put out of service!");
}

TEST_F(ControlCommand, FiveHundredWordsAreTaken) {
  std::string words = "service down all";
  for (int i = 0; i < 600; ++i) words += " x";
  EXPECT_EQ(Control(words.c_str()),
            "Media Server 127.0.1.1 is put out of service!Media Server 127.0.1.2 is put out of service!");
}

TEST_F(ControlCommand, ServiceOfOneServerByAddress) {
  EXPECT_EQ(Control("service down ip 127.0.1.2"), "Media Server 127.0.1.2 is put out of service!");
  EXPECT_TRUE(InService("127.0.1.1"));
  EXPECT_FALSE(InService("127.0.1.2"));
  EXPECT_EQ(ControlXml("SERVICE Up IP 127.0.1.2"), "Media Server 127.0.1.2 is put into service!");
  EXPECT_TRUE(InService("127.0.1.2"));
}

TEST_F(ControlCommand, ServiceOfOneServerByMacNamesItsFirstAddress) {
  EXPECT_EQ(Control("service down mac 02-00-00-00-00-02"), "Media Server 127.0.1.2 is put out of service!");
  EXPECT_FALSE(InService("127.0.1.2"));
  EXPECT_EQ(Control("service up mac 02:00:00:00:00:02"), "Media Server 127.0.1.2 is put into service!");
  EXPECT_TRUE(InService("127.0.1.2"));
}

TEST_F(ControlCommand, ServiceOfAllWithAndWithoutTheWord) {
  EXPECT_EQ(Control("service down"),
            "Media Server 127.0.1.1 is put out of service!Media Server 127.0.1.2 is put out of service!");
  EXPECT_EQ(media_server_is_available(), SWITCH_FALSE);
  EXPECT_EQ(Control("service up ALL"),
            "Media Server 127.0.1.1 is put into service!Media Server 127.0.1.2 is put into service!");
  EXPECT_EQ(media_server_is_available(), SWITCH_TRUE);
}

TEST_F(ControlCommand, ServiceDownKeepsTheCallsAndSendsNewOnesElsewhere) {
  Leg leg;
  AddCall({&leg});  // on the first server, the emptier one in order
  EXPECT_EQ(Control("service down ip 127.0.1.1"), "Media Server 127.0.1.1 is put out of service!");
  EXPECT_FALSE(leg.HungUp());
  AddCall({});
  AddCall({});
  const auto created = servers_.Calls(test_support::ScriptedOperation::kCreateSession);
  ASSERT_EQ(created.size(), 3u);
  EXPECT_EQ(created[0].server, 0u);
  EXPECT_EQ(created[1].server, 1u);
  EXPECT_EQ(created[2].server, 1u);
}

TEST_F(ControlCommand, UnknownServerIsAReportError) {
  EXPECT_EQ(Control("service up ip 10.99.99.99"), std::string(kReportError) + kControlHelp);
  EXPECT_EQ(Control("session term mac 02:00:00:00:00:99"), std::string(kReportError) + kControlHelp);
}

TEST_F(ControlCommand, WithoutAFilterPathServersCannotBeTold) {
  STATSFILTER = nullptr;
  EXPECT_EQ(Control("service up all"), kControlHelp);
  EXPECT_EQ(Control("session term ip 127.0.1.1"), kControlHelp);
  EXPECT_EQ(Control("session term all"), "");
}

TEST_F(ControlCommand, SessionTermWithoutCallsIsSilentAndEmptiesBothTables) {
  const boost::uuids::uuid some = mod_globals->DrawUuid();
  mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid("stray leg", some);
  EXPECT_EQ(Control("session term"), "");
  EXPECT_FALSE(mod_globals->GetFSUuidTable()->IsFSUuidAlreadyThere("stray leg"));
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(ControlCommand, SessionTermAllHangsUpEveryLegAndCountsMediaSessions) {
  Leg a, b, c, stranger;
  AddCall({&a, &b});
  AddCall({&c});
  EXPECT_EQ(Control("session term all"), "Hung up all 2 calls!");
  for (const Leg* leg : {&a, &b, &c}) {
    EXPECT_TRUE(leg->HungUp());
    EXPECT_EQ(leg->Cause(), SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER);
  }
  EXPECT_FALSE(stranger.HungUp());
  EXPECT_EQ(Sessions(), 0u);
  for (const Leg* leg : {&a, &b, &c}) {
    EXPECT_FALSE(mod_globals->GetFSUuidTable()->IsFSUuidAlreadyThere(leg->Uuid()));
  }
}

TEST_F(ControlCommand, SessionTermOfOneServerHangsUpItsCallsAndLeavesTheTables) {
  Leg here, there;
  AddCallOn("127.0.1.1", {&here});
  AddCallOn("127.0.1.2", {&there});
  EXPECT_EQ(Control("session term ip 127.0.1.1"), "Hung up 1 calls related to IP address 127.0.1.1!");
  EXPECT_TRUE(here.HungUp());
  EXPECT_FALSE(there.HungUp());
  EXPECT_EQ(Sessions(), 2u);
  EXPECT_EQ(Control("session term mac 02-00-00-00-00-02"), "Hung up 1 calls related to IP address 127.0.1.2!");
  EXPECT_TRUE(there.HungUp());
}

TEST_F(ControlCommand, SessionTermOfAServerWithoutCallsIsSilent) {
  Leg leg;
  AddCallOn("127.0.1.1", {&leg});
  EXPECT_EQ(Control("session term ip 127.0.1.2"), "");
  EXPECT_FALSE(leg.HungUp());
}

TEST_F(ControlCommand, HangUpLogsItsBeginningAndEnd) {
  Leg leg, gone;
  std::vector<boost::uuids::uuid> sessions = {AddCall({&leg, &gone}), AddCall({})};
  gone.End();
  log_.Clear();
  HangupAllMSCalls(sessions);
  EXPECT_TRUE(leg.HungUp());
  EXPECT_THAT(log_.LinesOf({"control_command.cpp"}),
              ElementsAre(notice_line("Hanging up all calls\n"),
                          debug_line("********* Begin of switch_channel_hangup() *********\n"),
                          debug_line("********** End of switch_channel_hangup() **********\n")));
  leg.End();  // waits for ever when a read lock was kept
}

// The pause is of microseconds: milliseconds in its place would keep two hundred legs for ten seconds.
TEST_F(ControlCommand, HangUpPausesFiftyMicrosecondsAfterEachLeg) {
  constexpr int kLegs = 200;
  std::vector<std::unique_ptr<Leg>> legs;
  std::vector<const Leg*> pointers;
  for (int i = 0; i < kLegs; ++i) {
    legs.push_back(std::make_unique<Leg>());
    pointers.push_back(legs.back().get());
  }
  std::vector<boost::uuids::uuid> sessions = {AddCall(pointers)};
  const auto begun = std::chrono::steady_clock::now();
  HangupAllMSCalls(sessions);
  const auto taken = std::chrono::steady_clock::now() - begun;
  EXPECT_GE(taken, kLegs * std::chrono::microseconds(50));
  EXPECT_LT(taken, std::chrono::seconds(8));
  for (const auto& leg : legs) EXPECT_TRUE(leg->HungUp());
}

TEST_F(ControlCommand, HangUpOfNothingStopsAfterItsFirstLine) {
  std::vector<boost::uuids::uuid> none;
  HangupAllMSCalls(none);
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(notice_line("Hanging up all calls\n")));
}

}  // namespace module_test
