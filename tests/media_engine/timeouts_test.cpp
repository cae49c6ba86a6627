// Silences, with a clock of the test's own.
#include "engine_fixture.h"
#include "rtcp_bytes.h"
#include "silence_watch.h"

namespace media_engine_test {
namespace {

using Events = std::vector<std::string>;

class RtpTimeouts : public EngineTest {
 protected:
  void SetUp() override {
    server_ = Open(Config());
    session_ = NewSession(*server_);
    a_ = WatchedLeg(5, 30);
    b_ = WatchedLeg(0, 0);
  }
  Leg WatchedLeg(int inactive, int pending) {
    Leg leg = NewLeg(*session_);
    LocalSettings settings = LocalFor(Pcmu());
    settings.inactive_timeout = seconds{inactive};
    settings.pending_timeout = seconds{pending};
    if (!leg.endpoint->DescribeLocal(settings, leg.local, kLimit)) throw std::runtime_error("no description");
    if (!leg.endpoint->DescribeRemote(leg.far_end->Description(Pcmu()), kLimit)) throw std::runtime_error("none");
    return leg;
  }
  void Media(const Leg& leg) {
    const uint64_t before = leg.Statistics().rtp_packets_received;
    leg.SendRun(++number_, 1);
    ASSERT_TRUE(Eventually([&] { return leg.Statistics().rtp_packets_received == before + 1; }));
  }
  /// Time passes, and the worker has looked at its timers with the new time.
  void Pass(milliseconds time) {
    clock_->Advance(time);
    // One request may still be served in a turn that began before; the second one's turn began after.
    for (int i = 0; i < 2; ++i) a_.Statistics();
    a_.Statistics();
  }
  void JoinThem(Direction direction) { ASSERT_TRUE(a_.endpoint->Join(direction, *b_.endpoint, kLimit).ok); }
  Events NoFurther(std::size_t count) { return a_.events->Wait(count + 1, milliseconds{0}); }

  std::unique_ptr<Server> server_;
  std::shared_ptr<Session> session_;
  Leg a_, b_;
  uint16_t number_ = 0;
};

TEST_F(RtpTimeouts, InactiveIsTheTimeSinceTheLastPacketOnceMediaHasCome) {
  Media(a_);
  Pass(milliseconds{4900});
  EXPECT_EQ(NoFurther(0), Events{});
  Media(a_);
  Pass(milliseconds{4900});
  EXPECT_EQ(NoFurther(0), Events{});
  Pass(milliseconds{200});
  EXPECT_EQ(a_.events->Wait(1), Events{"inactive"});
}

TEST_F(RtpTimeouts, OneEventPerSilence) {
  Media(a_);
  Pass(seconds{6});
  EXPECT_EQ(a_.events->Wait(1).size(), 1u);
  for (int i = 0; i < 10; ++i) Pass(seconds{60});
  EXPECT_EQ(NoFurther(1).size(), 1u);
  Media(a_);
  Pass(seconds{6});
  EXPECT_EQ(a_.events->Wait(2), (Events{"inactive", "inactive"}));
}

TEST_F(RtpTimeouts, PendingIsTheTimeSinceTheLocalDescriptionWithoutAnyMedia) {
  Pass(milliseconds{29900});
  EXPECT_EQ(NoFurther(0), Events{});
  Pass(milliseconds{200});
  EXPECT_EQ(a_.events->Wait(1), Events{"pending"});
  Pass(seconds{60});
  EXPECT_EQ(NoFurther(1).size(), 1u);
}

TEST_F(RtpTimeouts, StrangersAndRubbishDoNotBreakASilence) {
  Media(a_);
  Pass(seconds{4});
  const FarEnd stranger;
  stranger.SendRtp({0, 1, 1, 1, false, PayloadOf(1)}, a_.local.rtp_port);
  a_.far_end->Send({1, 2, 3}, a_.local.rtp_port);
  ASSERT_TRUE(Eventually([&] { return a_.Statistics().strangers == 1 && a_.Statistics().malformed == 1; }));
  Pass(seconds{1});
  EXPECT_EQ(a_.events->Wait(1), Events{"inactive"});
}

TEST_F(RtpTimeouts, ZeroIsOff) {
  Pass(seconds{3600});
  Media(b_);
  Pass(seconds{3600});
  EXPECT_EQ(b_.events->Wait(1, milliseconds{0}), Events{});
}

TEST_F(RtpTimeouts, TheClockStartsAnewAtJoinChangeOfDirectionAndUnjoin) {
  Media(a_);
  Pass(seconds{4});
  JoinThem(Direction::kDuplex);
  Pass(seconds{4});
  JoinThem(Direction::kReceive);
  Pass(seconds{4});
  ASSERT_TRUE(a_.endpoint->Unjoin(*b_.endpoint, kLimit).ok);
  Pass(seconds{4});
  EXPECT_EQ(NoFurther(0), Events{});
  Pass(seconds{1});
  EXPECT_EQ(a_.events->Wait(1), Events{"inactive"});
}

TEST_F(RtpTimeouts, NothingIsExpectedFromAFarEndWhoseMediaGoesNowhere) {
  Media(a_);
  // As the caller of the join.
  for (const Direction direction : {Direction::kSend, Direction::kNone}) {
    JoinThem(direction);
    Pass(seconds{3600});
    EXPECT_EQ(NoFurther(0), Events{}) << static_cast<int>(direction);
  }
  // As the other one.
  ASSERT_TRUE(b_.endpoint->Join(Direction::kReceive, *a_.endpoint, kLimit).ok);
  Pass(seconds{3600});
  EXPECT_EQ(NoFurther(0), Events{});
  // And where it does go somewhere it is expected.
  ASSERT_TRUE(b_.endpoint->Join(Direction::kSend, *a_.endpoint, kLimit).ok);
  Pass(seconds{5});
  EXPECT_EQ(a_.events->Wait(1), Events{"inactive"});
  JoinThem(Direction::kReceive);
  Pass(seconds{5});
  EXPECT_EQ(a_.events->Wait(2).size(), 2u);
}

TEST_F(RtpTimeouts, NothingIsExpectedFromEitherWhenNoAudioFlows) {
  b_ = WatchedLeg(5, 30);
  JoinThem(Direction::kDuplex);
  Media(a_);
  Media(b_);
  JoinThem(Direction::kNone);
  Pass(seconds{3600});
  EXPECT_EQ(NoFurther(0), Events{});
  EXPECT_EQ(b_.events->Wait(1, milliseconds{0}), Events{});
}

TEST_F(RtpTimeouts, AClockThatStartsAnewMayReportTheSameSilenceAgain) {
  Pass(seconds{30});
  EXPECT_EQ(a_.events->Wait(1), Events{"pending"});
  JoinThem(Direction::kDuplex);
  Pass(milliseconds{29900});
  EXPECT_EQ(NoFurther(1).size(), 1u);
  Pass(milliseconds{200});
  EXPECT_EQ(a_.events->Wait(2), (Events{"pending", "pending"}));
}

TEST_F(RtpTimeouts, MediaAfterAPendingSilenceMakesTheNextOneInactive) {
  Pass(seconds{30});
  EXPECT_EQ(a_.events->Wait(1), Events{"pending"});
  Media(a_);
  Pass(milliseconds{4900});
  EXPECT_EQ(NoFurther(1).size(), 1u);
  Pass(milliseconds{200});
  EXPECT_EQ(a_.events->Wait(2), (Events{"pending", "inactive"}));
}

TEST_F(RtpTimeouts, PendingCountsFromTheLatestLocalDescription) {
  Leg fresh = NewLeg(*session_);
  Pass(seconds{3600});  // nobody has been told where to send to
  LocalSettings settings = LocalFor(Pcmu());
  settings.pending_timeout = seconds{30};
  ASSERT_TRUE(fresh.endpoint->DescribeLocal(settings, fresh.local, kLimit).ok);
  Pass(seconds{20});
  ASSERT_TRUE(fresh.endpoint->DescribeLocal(LocalFor(Pcmu()), fresh.local, kLimit).ok);
  Pass(milliseconds{29900});
  EXPECT_EQ(fresh.events->Wait(1, milliseconds{0}), Events{});
  Pass(milliseconds{200});
  EXPECT_EQ(fresh.events->Wait(1), Events{"pending"});
}

TEST_F(RtpTimeouts, AThirdJoinStartsTheClockOfTheOneLeftBehindAnew) {
  JoinThem(Direction::kDuplex);
  Media(a_);
  Pass(seconds{4});
  const Leg third = WatchedLeg(0, 0);
  ASSERT_TRUE(b_.endpoint->Join(Direction::kDuplex, *third.endpoint, kLimit).ok);
  Pass(seconds{4});
  EXPECT_EQ(NoFurther(0), Events{});
  Pass(seconds{1});
  EXPECT_EQ(a_.events->Wait(1), Events{"inactive"});
}

TEST_F(RtpTimeouts, RtcpIsNoMedia) {
  Media(a_);
  Pass(seconds{4});
  a_.far_end->SendRtcp(ReceiverReportBytes(1) + CnameBytes(1, "far end"), a_.local.rtcp_port);
  ASSERT_TRUE(Eventually([&] { return a_.Statistics().rtcp_packets_received == 1; }));
  Pass(seconds{1});
  EXPECT_EQ(a_.events->Wait(1), Events{"inactive"});
}

class RtpTimeoutsOfFax : public RtpTimeouts {
 protected:
  void DescribeImage(Leg& leg) {
    LocalSettings settings;
    settings.udp_pass_through = true;
    ASSERT_TRUE(leg.endpoint->DescribeLocal(settings, leg.local, kLimit).ok);
    RemoteDescription remote = leg.far_end->Description(Pcmu());
    remote.udp_pass_through = true;
    ASSERT_TRUE(leg.endpoint->DescribeRemote(remote, kLimit).ok);
  }
  void DescribeAudio(Leg& leg) {
    ASSERT_TRUE(leg.endpoint->DescribeLocal(LocalFor(Pcmu()), leg.local, kLimit).ok);
    ASSERT_TRUE(leg.endpoint->DescribeRemote(leg.far_end->Description(Pcmu()), kLimit).ok);
  }
  void Image(const Leg& leg) {
    const uint64_t before = leg.Statistics().not_joined;
    leg.far_end->Send({1, 2, 3}, leg.local.rtp_port);
    ASSERT_TRUE(Eventually([&] { return leg.Statistics().not_joined == before + 1; }));
  }
};

TEST_F(RtpTimeoutsOfFax, NothingIsExpectedUnderPassThrough) {
  Media(a_);
  Pass(seconds{4});
  DescribeImage(a_);
  Pass(seconds{3600});
  EXPECT_EQ(NoFurther(0), Events{});
}

TEST_F(RtpTimeoutsOfFax, TheClockStartsAnewWhenTheAudioIsBack) {
  Media(a_);
  Pass(seconds{4});
  DescribeImage(a_);
  Pass(seconds{3600});
  DescribeAudio(a_);
  Pass(milliseconds{4900});
  EXPECT_EQ(NoFurther(0), Events{});
  Pass(milliseconds{200});
  EXPECT_EQ(a_.events->Wait(1), Events{"inactive"});
}

TEST_F(RtpTimeoutsOfFax, DatagramsOfAnImageAreNoMedia) {
  DescribeImage(a_);
  Image(a_);
  DescribeAudio(a_);
  Pass(seconds{30});
  EXPECT_EQ(a_.events->Wait(1), Events{"pending"});
}

TEST_F(RtpTimeoutsOfFax, AnImageThatIsOnlyOfferedDoesNotStopTheClock) {
  Media(a_);
  RemoteDescription remote = a_.far_end->Description(Pcmu());
  remote.udp_pass_through = remote.answer_follows = true;
  ASSERT_TRUE(a_.endpoint->DescribeRemote(remote, kLimit).ok);
  Pass(seconds{5});
  EXPECT_EQ(a_.events->Wait(1), Events{"inactive"});
}

TEST_F(RtpTimeouts, NoEventComesAfterClose) {
  Media(a_);
  ASSERT_TRUE(a_.endpoint->Close(kLimit).ok);
  EXPECT_EQ(a_.events.use_count(), 1);  // let go of
}

TEST_F(RtpTimeouts, AnImportedEndpointKeepsItsWatch) {
  Media(a_);
  const auto other = NewSession(*server_);
  ASSERT_TRUE(other->Import(*a_.endpoint).ok);
  a_.Statistics();  // it has arrived
  Pass(seconds{5});
  EXPECT_EQ(a_.events->Wait(1), Events{"inactive"});
}

}  // namespace
}  // namespace media_engine_test
