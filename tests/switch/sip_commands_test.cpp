#include <cstdlib>
#include <future>

#include <switch.h>

#include "console/builtin_commands.h"
#include "core/session.h"
#include "sip_applications_fixture.h"

namespace kvx_switch {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

class SipCommands : public SipApplications {
 protected:
  void SetUp() override {
    SipApplications::SetUp();
    RegisterBuiltinCommands();
  }

  static std::string Run(const std::string& command, const std::string& arguments) {
    switch_stream_handle_t stream;
    SWITCH_STANDARD_STREAM(stream);
    EXPECT_EQ(switch_api_execute(command.c_str(), arguments.c_str(), nullptr, &stream), SWITCH_STATUS_SUCCESS);
    const std::string text = static_cast<const char*>(stream.data);
    std::free(stream.data);
    return text;
  }

  /// The command blocks until somebody answers.
  static std::future<std::string> Originate(const std::string& arguments) {
    return std::async(std::launch::async, [arguments] { return Run("originate", arguments); });
  }
};

constexpr char kOkUuid[] = "\\+OK [0-9a-f-]{36}\n";

TEST_F(SipCommands, OriginatedLegIsParkedWhenItIsAnswered) {
  Start(Action("park"));
  std::future<std::string> answer = Originate("{note=x}" + Bob() + " &park() XML default 'Anna B' 4711 20");
  const SipMessage invite = Answers(bob_, SipPeer::Sdp("8"));
  EXPECT_THAT(invite.Header("From"), StartsWith("\"Anna B\" <sip:4711@"));
  EXPECT_THAT(invite.body, HasSubstr("RTP/AVP 0 8 18 96 101\r\n")) << "everything that is registered";
  const std::string text = answer.get();
  ASSERT_THAT(text, MatchesRegex(kOkUuid));
  EXPECT_TRUE(StateBecomes("CS_PARK"));
  EXPECT_EQ(text, "+OK " + LegUuid(SWITCH_CALL_DIRECTION_OUTBOUND) + "\n");
  EXPECT_EQ(VariableOfLeg(SWITCH_CALL_DIRECTION_OUTBOUND, "note"), "x");
  bob_.SendByeAsCalled(invite);
  EXPECT_TRUE(bob_.AwaitResponse("BYE"));
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("B destroy"), 1u);
}

TEST_F(SipCommands, OriginatedLegIsOfferedNoAnnexBWhereTheProfileHasNone) {
  Profile("<param name=\"g729-annexb\" value=\"false\"/>");
  Start(Action("park"));
  std::future<std::string> answer = Originate(Bob() + " &park()");
  EXPECT_THAT(Refuses(bob_, 486).body, HasSubstr("a=fmtp:18 annexb=no\r\n"));
  EXPECT_EQ(answer.get(), "-ERR USER_BUSY\n");
}

TEST_F(SipCommands, OriginatedLegRunsTheDialplan) {
  Start(Action("park"));
  std::future<std::string> answer = Originate(Bob() + " 3000");
  const SipMessage bobs = Answers(bob_);
  EXPECT_THAT(answer.get(), MatchesRegex(kOkUuid));
  const SipMessage carols = Answers(carol_);
  EXPECT_THAT(carols.body, HasSubstr("RTP/AVP 0\r\n")) << "what bob answered";
  EXPECT_THAT(carols.Header("From"), StartsWith("<sip:2000@")) << "nobody gave a number: bob's";
  ASSERT_TRUE(media_->WaitFor("B bridge", 1));
  bob_.SendByeAsCalled(bobs);
  EXPECT_TRUE(bob_.AwaitResponse("BYE"));
  Confirm(carol_, "BYE");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(media_->Count("B unbridge"), 1u);
  EXPECT_EQ(media_->Count("B destroy"), 2u);
}

TEST_F(SipCommands, OriginateBridgesTwoPhones) {
  Start(Action("park"));
  std::future<std::string> answer = Originate(Bob() + " &bridge(" + Carol() + ")");
  Answers(bob_);
  EXPECT_THAT(answer.get(), MatchesRegex(kOkUuid));
  Answers(carol_);
  ASSERT_TRUE(media_->WaitFor("B bridge", 1));
  EXPECT_EQ(ListSessions().size(), 2u);
}

TEST_F(SipCommands, OriginateNamesTheCauseWhenNobodyAnswers) {
  Start(Action("park"));
  std::future<std::string> answer = Originate(Bob() + "|" + Carol() + " &park()");
  Refuses(bob_, 404);
  Refuses(carol_, 486);
  EXPECT_EQ(answer.get(), "-ERR USER_BUSY\n");
  EXPECT_TRUE(NoLegsLeft());
}

TEST_F(SipCommands, OriginatedLegWithEarlyMediaEndsAtOnceWhenItIsRefused) {
  Start(Action("park"));
  std::future<std::string> answer = Originate(Bob() + " &park()");
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  bob_.Reply(*invite, 183, "", SipPeer::Sdp("0"));
  ASSERT_TRUE(media_->WaitFor("B set_media", 1));
  bob_.Reply(*invite, 486);
  EXPECT_EQ(answer.get(), "-ERR USER_BUSY\n");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_FALSE(Logged(SWITCH_LOG_WARNING, "did not undo the bridge in time"));
}

TEST_F(SipCommands, OriginateWaitsNoLongerThanItIsTold) {
  Start(Action("park"));
  std::future<std::string> answer = Originate(Bob() + "|" + Carol() + " &park() XML default x 1 1");
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  ASSERT_TRUE(invite);
  bob_.Reply(*invite, 180);
  Confirm(bob_, "CANCEL");
  bob_.Reply(*invite, 487);
  EXPECT_EQ(answer.get(), "-ERR NO_ANSWER\n");
  EXPECT_TRUE(carol_.StaysSilent("INVITE", std::chrono::milliseconds(100))) << "the time is for all of them";
}

TEST_F(SipCommands, OriginateAsksWhetherThereIsRoom) {
  Start(Action("park"));
  media_->SetAvailable(false);
  EXPECT_EQ(Run("originate", Bob() + " &park()"), "-ERR NORMAL_TEMPORARY_FAILURE\n");
  EXPECT_TRUE(NoLegsLeft());
  EXPECT_EQ(Run("originate", Bob() + " 1 XML nowhere"), "-ERR there is no context \"nowhere\"\n");
  EXPECT_EQ(Run("originate", Bob() + " 1 XML default x 1 soon"),
            "-ERR timeout is \"soon\", not a number from 1 to 3600\n");
}

TEST_F(SipCommands, TransferSendsALegOn) {
  Start(Action("bridge", Bob()));
  TalkToBob();
  const std::string alice = LegUuid(SWITCH_CALL_DIRECTION_INBOUND);
  EXPECT_EQ(Run("uuid_transfer", alice + " 3000 XML nowhere"), "-ERR there is no context \"nowhere\"\n");
  EXPECT_EQ(Run("uuid_transfer", alice + " 3000"), "+OK\n");
  Confirm(bob_, "BYE");
  Answers(carol_);
  ASSERT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(Run("uuid_transfer", alice + " -bleg 2000 XML default"), "+OK\n");
  Confirm(alice_, "BYE");
  Answers(bob_);
  ASSERT_TRUE(media_->WaitFor("B bridge", 1));
  EXPECT_EQ(media_->Count("A unbridge"), 2u);
}

TEST_F(SipCommands, TransferOfAnUnbridgedLegsPartnerIsRefused) {
  Start(Action("answer") + Action("park"));
  Dial();
  ASSERT_EQ(AliceHears(), 200);
  EXPECT_EQ(Run("uuid_transfer", LegUuid(SWITCH_CALL_DIRECTION_INBOUND) + " -both 3000"),
            "-ERR the leg is not bridged\n");
}

TEST_F(SipCommands, HoldAndResume) {
  Start(Action("bridge", Bob()));
  TalkToBob();
  const std::string alice = LegUuid(SWITCH_CALL_DIRECTION_INBOUND);
  EXPECT_EQ(Run("uuid_hold", alice), "+OK Success\n");
  std::optional<SipMessage> hold = alice_.AwaitRequest("INVITE");
  ASSERT_TRUE(hold);
  EXPECT_EQ(Run("uuid_hold", "off " + alice), "-ERR the call's media is being changed, or is a fax\n");
  EXPECT_EQ(Run("uuid_transfer", alice + " 3000"), "-ERR the call's media is being changed, or is a fax\n");
  alice_.Reply(*hold, 200, "", SipPeer::Sdp("0", "a=recvonly\n"));
  ASSERT_TRUE(media_->WaitFor("A bridge", 2));
  EXPECT_EQ(Run("uuid_hold", "off " + alice), "+OK Success\n");
  hold = alice_.AwaitRequest("INVITE");
  ASSERT_TRUE(hold);
  EXPECT_THAT(hold->body, HasSubstr("a=sendrecv\r\n"));
}

TEST_F(SipCommands, ReloadxmlNamesTheDialplansMistakeAndKeepsTheOldOne) {
  Start(Action("hangup", "USER_BUSY"));
  const std::string path =
      directory_.Write("dialplan/default.xml", "<context name=\"default\">\n<extension name=\"e\"/></context>");
  EXPECT_EQ(Run("reloadxml", ""),
            "-ERR [" + path + ":2: extension \"e\" has no condition; the dialplan stays as it was]\n");
  Dial();
  EXPECT_EQ(AliceHears(), 486);
}

}  // namespace
}  // namespace kvx_switch
