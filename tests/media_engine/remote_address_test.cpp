// Whose packets are taken, and when the far end's address is learned.
#include "engine_fixture.h"

namespace media_engine_test {
namespace {

class RemoteAddressing : public EngineTest {
 protected:
  void SetUp() override {
    server_ = Open(Config());
    session_ = NewSession(*server_);
    a_ = NewCallLeg(*session_);
    b_ = NewCallLeg(*session_);
    ASSERT_TRUE(a_.endpoint->Join(Direction::kDuplex, *b_.endpoint, kLimit).ok);
  }
  void SendFrom(const FarEnd& from, uint16_t number, uint8_t payload_type = 0) const {
    from.SendRtp({payload_type, number, 160u * number, 5, false, PayloadOf(number)}, a_.local.rtp_port);
  }
  bool ArrivesAtB(uint16_t number) const {
    const auto came = b_.far_end->ReceiveRtp();
    return came && came->payload == PayloadOf(number);
  }
  void WaitForStrangers(uint64_t count) const {
    EXPECT_TRUE(Eventually([&] { return a_.Statistics().strangers == count; })) << a_.Statistics().strangers;
  }
  /// As an application does that asks with every description.
  void DescribeTheSameAgain() {
    Detect();
    ASSERT_TRUE(a_.endpoint->DescribeRemote(a_.far_end->Description(Pcmu()), kLimit).ok);
    ASSERT_TRUE(a_.endpoint->DescribeLocal(LocalFor(Pcmu()), a_.local, kLimit).ok);
  }
  void Detect() const { ASSERT_TRUE(a_.endpoint->DetectRemoteAddress(kLimit).ok); }

  std::unique_ptr<Server> server_;
  std::shared_ptr<Session> session_;
  Leg a_, b_;
  FarEnd elsewhere_, stranger_;
};

TEST_F(RemoteAddressing, StrangersAreCountedAndGetNowhere) {
  SendFrom(*a_.far_end, 1);
  EXPECT_TRUE(ArrivesAtB(1));
  for (uint16_t i = 1; i <= 1000; ++i) {
    SendFrom(elsewhere_, i);
    if (i % 100 == 0) WaitForStrangers(i);  // no more at once than fits into the socket
  }
  EXPECT_FALSE(b_.far_end->Receive(milliseconds{0}));
  SendFrom(*a_.far_end, 2);
  EXPECT_TRUE(ArrivesAtB(2));
  // What is sent still goes to the far end only, and nothing to the stranger.
  b_.Send({0, 1, 160, 6, false, PayloadOf(3)});
  EXPECT_TRUE(a_.far_end->ReceiveRtp());
  EXPECT_FALSE(elsewhere_.Receive(milliseconds{0}));
  EXPECT_EQ(a_.Statistics().rtp_packets_received, 2u);
}

TEST_F(RemoteAddressing, LearnsOnceWhenAskedForAndThenIsFixed) {
  Detect();
  SendFrom(elsewhere_, 1);
  EXPECT_TRUE(ArrivesAtB(1));
  b_.Send({0, 1, 160, 6, false, PayloadOf(2)});
  EXPECT_TRUE(elsewhere_.ReceiveRtp());
  EXPECT_FALSE(a_.far_end->Receive(milliseconds{0}));
  // Neither a third address nor the one that was described is taken now.
  const FarEnd third;
  SendFrom(third, 3);
  SendFrom(*a_.far_end, 4);
  WaitForStrangers(2);
  SendFrom(elsewhere_, 5);
  EXPECT_TRUE(ArrivesAtB(5));
}

TEST_F(RemoteAddressing, TheDescribedAddressIsGoodWhileLearning) {
  Detect();
  SendFrom(*a_.far_end, 1);
  EXPECT_TRUE(ArrivesAtB(1));
  SendFrom(elsewhere_, 2);
  EXPECT_TRUE(ArrivesAtB(2));
}

TEST_F(RemoteAddressing, LearnsNothingAfterTenSeconds) {
  Detect();
  clock_->Advance(seconds{10} + milliseconds{1});
  SendFrom(elsewhere_, 1);
  WaitForStrangers(1);
  SendFrom(*a_.far_end, 2);
  EXPECT_TRUE(ArrivesAtB(2));
}

TEST_F(RemoteAddressing, ALongRingingDoesNotUseUpTheTimeForLearning) {
  Detect();
  clock_->Advance(seconds{60});
  ASSERT_TRUE(a_.endpoint->DescribeLocal(LocalFor(Pcmu()), a_.local, kLimit).ok);  // the answer goes out
  clock_->Advance(seconds{9});
  SendFrom(elsewhere_, 1);
  EXPECT_TRUE(ArrivesAtB(1));
}

TEST_F(RemoteAddressing, OnceMediaHasComeTheTimeIsNotExtended) {
  Detect();
  SendFrom(*a_.far_end, 1);
  EXPECT_TRUE(ArrivesAtB(1));
  clock_->Advance(seconds{60});
  ASSERT_TRUE(a_.endpoint->Join(Direction::kReceive, *b_.endpoint, kLimit).ok);
  SendFrom(elsewhere_, 2);
  WaitForStrangers(1);
}

TEST_F(RemoteAddressing, OnlyValidRtpOfAKnownPayloadTypeIsLearnedFrom) {
  Detect();
  elsewhere_.Send({0x80, 0, 1}, a_.local.rtp_port);
  EXPECT_TRUE(Eventually([&] { return a_.Statistics().malformed == 1; }));
  SendFrom(elsewhere_, 1, 55);
  WaitForStrangers(1);
  SendFrom(*a_.far_end, 2);
  EXPECT_TRUE(ArrivesAtB(2));
  EXPECT_EQ(a_.Statistics().rtp_packets_received, 1u);
}

TEST_F(RemoteAddressing, ARepeatedDescriptionKeepsWhatWasLearnedAndAnotherOneReplacesIt) {
  Detect();
  SendFrom(elsewhere_, 1);
  EXPECT_TRUE(ArrivesAtB(1));
  ASSERT_TRUE(a_.endpoint->DescribeRemote(a_.far_end->Description(Pcmu()), kLimit).ok);
  SendFrom(elsewhere_, 2);
  EXPECT_TRUE(ArrivesAtB(2));
  const FarEnd moved;
  ASSERT_TRUE(a_.endpoint->DescribeRemote(moved.Description(Pcmu()), kLimit).ok);
  clock_->Advance(seconds{10} + milliseconds{1});
  SendFrom(elsewhere_, 3);
  WaitForStrangers(1);
  SendFrom(moved, 4);
  EXPECT_TRUE(ArrivesAtB(4));
}

TEST_F(RemoteAddressing, AskingAgainWithEachDescriptionOfTheSameAddressOpensNothingAnewOnceOneWasLearned) {
  Detect();
  SendFrom(elsewhere_, 1);
  EXPECT_TRUE(ArrivesAtB(1));
  DescribeTheSameAgain();
  SendFrom(stranger_, 2);
  WaitForStrangers(1);
  SendFrom(elsewhere_, 3);
  EXPECT_TRUE(ArrivesAtB(3));
}

TEST_F(RemoteAddressing, AskingAgainWithEachDescriptionOfTheSameAddressOpensNothingAnewOnceMediaHasCome) {
  Detect();
  for (uint16_t number = 1; number <= 60; ++number) {
    SendFrom(*a_.far_end, number);
    EXPECT_TRUE(ArrivesAtB(number));
    clock_->Advance(seconds{1});
  }
  DescribeTheSameAgain();
  SendFrom(stranger_, 61);
  WaitForStrangers(1);
  SendFrom(*a_.far_end, 62);
  EXPECT_TRUE(ArrivesAtB(62));
}

TEST_F(RemoteAddressing, AskingAgainBeforeAnyMediaStartsTheTimeAnew) {
  Detect();
  clock_->Advance(seconds{60});
  Detect();
  clock_->Advance(seconds{9});
  SendFrom(elsewhere_, 1);
  EXPECT_TRUE(ArrivesAtB(1));
}

TEST_F(RemoteAddressing, AHoldAndItsEndLetTheAddressBeLearnedAnew) {
  Detect();
  SendFrom(elsewhere_, 1);
  EXPECT_TRUE(ArrivesAtB(1));
  RemoteDescription hold = a_.far_end->Description(Pcmu());
  hold.address = "0.0.0.0";
  ASSERT_TRUE(a_.endpoint->DescribeRemote(hold, kLimit).ok);
  clock_->Advance(seconds{60});
  ASSERT_TRUE(a_.endpoint->DescribeRemote(a_.far_end->Description(Pcmu()), kLimit).ok);
  SendFrom(elsewhere_, 2);
  EXPECT_TRUE(ArrivesAtB(2));
  SendFrom(stranger_, 3);
  WaitForStrangers(1);
}

TEST_F(RemoteAddressing, NothingIsTakenBeforeTheFarEndIsDescribed) {
  Leg fresh = NewLeg(*session_);
  ASSERT_TRUE(fresh.endpoint->DescribeLocal(LocalFor(Pcmu()), fresh.local, kLimit).ok);
  ASSERT_TRUE(fresh.endpoint->DetectRemoteAddress(kLimit).ok);
  fresh.Send({0, 1, 160, 5, false, PayloadOf(1)});
  fresh.far_end->SendRtcp({0x80}, fresh.local.rtcp_port);
  EXPECT_TRUE(Eventually([&] { return fresh.Statistics().too_early == 2; }));
  EXPECT_EQ(fresh.Statistics().strangers, 0u);
  EXPECT_EQ(fresh.Statistics().rtcp_strangers, 0u);
  EXPECT_EQ(fresh.Statistics().rtp_packets_received, 0u);
}

TEST_F(RemoteAddressing, ATextThatIsNoAddressIsRefusedAndChangesNothing) {
  RemoteDescription wrong = a_.far_end->Description(Pcmu());
  wrong.address = "phone.example";
  const Outcome outcome = a_.endpoint->DescribeRemote(wrong, kLimit);
  EXPECT_EQ(outcome.reason, "remote address 'phone.example' is not a numeric IPv4 or IPv6 address");
  SendFrom(*a_.far_end, 1);
  EXPECT_TRUE(ArrivesAtB(1));
}

}  // namespace
}  // namespace media_engine_test
