// The second socket of an endpoint, which makes its packets cheaper and may change nothing else.
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "worker_fixture.h"

namespace media_engine_test {
namespace {

using media_engine::UdpSocket;

class ExpressPorts : public testing::TestWithParam<const char*> {
 protected:
  std::unique_ptr<PortPair> Acquire() {
    std::string reason;
    std::unique_ptr<PortPair> pair = pool_->Acquire(reason);
    EXPECT_TRUE(pair) << reason;
    return pair;
  }
  static std::optional<Bytes> TakeFrom(const UdpSocket& socket) {
    Bytes data(2048);
    const ssize_t length = recv(socket.fd(), data.data(), data.size(), MSG_DONTWAIT);
    if (length < 0) return std::nullopt;
    data.resize(static_cast<std::size_t>(length));
    return data;
  }

  const std::string host_ = GetParam();
  std::pair<uint16_t, uint16_t> range_ = FreePortRange(4);
  std::shared_ptr<PortPool> pool_ =
      std::make_shared<PortPool>(*SocketAddress::Parse(host_, 0), range_.first, range_.second);
  FarEnd peer_{host_}, stranger_{host_};
};

TEST_P(ExpressPorts, ThePeersPacketsComeToTheExpressSocketAndAllOthersToTheUsualOne) {
  const auto pair = Acquire();
  ASSERT_TRUE(pair->OpenExpress(peer_.address()));
  EXPECT_TRUE(pair->HasExpressTo(peer_.address()));
  EXPECT_FALSE(pair->HasExpressTo(stranger_.address()));
  for (uint8_t number = 1; number <= 10; ++number) {
    peer_.Send({number}, pair->rtp_port());
    stranger_.Send({number, number}, pair->rtp_port());
    EXPECT_EQ(TakeFrom(pair->express()), (Bytes{number}));
    EXPECT_EQ(TakeFrom(pair->rtp()), (Bytes{number, number}));
  }
  EXPECT_FALSE(TakeFrom(pair->express()));
  EXPECT_FALSE(TakeFrom(pair->rtp()));
}

TEST_P(ExpressPorts, WithoutTheExpressSocketThePeersPacketsComeToTheUsualOneAgain) {
  const auto pair = Acquire();
  ASSERT_TRUE(pair->OpenExpress(peer_.address()));
  pair->CloseExpress();
  EXPECT_FALSE(pair->HasExpressTo(peer_.address()));
  peer_.Send({1}, pair->rtp_port());
  EXPECT_EQ(TakeFrom(pair->rtp()), Bytes{1});
  ASSERT_TRUE(pair->OpenExpress(stranger_.address()));
  stranger_.Send({2}, pair->rtp_port());
  EXPECT_EQ(TakeFrom(pair->express()), Bytes{2});
}

TEST_P(ExpressPorts, NobodyElseGetsOntoThePort) {
  const auto pair = Acquire();
  ASSERT_TRUE(pair->OpenExpress(peer_.address()));
  for (const int option : {SO_REUSEPORT, SO_REUSEADDR}) {
    const int other = socket(pair->address().family(), SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ASSERT_EQ(setsockopt(other, SOL_SOCKET, option, &on, sizeof on), 0);
    EXPECT_NE(bind(other, pair->address().native(), pair->address().length()), 0);
    EXPECT_EQ(errno, EADDRINUSE);
    close(other);
  }
}

TEST_P(ExpressPorts, ThePortIsFreeOnceThePairIsGone) {
  auto pair = Acquire();
  ASSERT_TRUE(pair->OpenExpress(peer_.address()));
  const SocketAddress address = pair->address();
  pair.reset();
  UdpSocket again;
  EXPECT_EQ(again.Bind(address), 0);
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, ExpressPorts, testing::Values("127.0.0.1", "::1"),
                         [](const auto& info) { return std::string(info.index == 0 ? "IPv4" : "IPv6"); });

/// Leaves the process few files to open while it lives, but some, which the sanitizers need to look at memory. That
/// these are few out of all, many others are open.
class FewFiles {
 public:
  explicit FewFiles(rlim_t left = 10) {
    for (int& file : others_) file = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    getrlimit(RLIMIT_NOFILE, &before_);
    rlimit few = before_;
    few.rlim_cur = static_cast<rlim_t>(others_.back()) + 1 + left;
    setrlimit(RLIMIT_NOFILE, &few);
  }
  ~FewFiles() {
    setrlimit(RLIMIT_NOFILE, &before_);
    for (const int file : others_) close(file);
  }
  FewFiles(const FewFiles&) = delete;
  FewFiles& operator=(const FewFiles&) = delete;

 private:
  std::array<int, 300> others_{};
  rlimit before_{};
};

class ExpressLegs : public WorkerTurns {
 protected:
  ExpressLegs() {
    JoinThem(a_, b_);
    GoExpress(a_);
  }

  std::string reason_;

  /// The far end sends for a while.
  void GoExpress(TurnedLeg& leg) {
    for (int attempt = 0; attempt < 10 && !Express(leg); ++attempt) SendFor(leg, leg.far_end);
    EXPECT_TRUE(Express(leg));
  }
  /// More than half a second's packets, and until the leg has been looked at again.
  void SendFor(const TurnedLeg& leg, const FarEnd& far_end) {
    for (int i = 0; i < 30; ++i) {
      SendFrom(far_end, leg);
      Turn();
    }
    for (int i = 0; i < 80; ++i) {
      clock_->Advance(milliseconds{100});
      Turn();
    }
  }
  void SendFrom(const FarEnd& far_end, const TurnedLeg& leg) {
    ++number_;
    far_end.SendRtp({0, number_, 160u * number_, 1, false, PayloadOf(number_)}, leg.port);
  }
  /// The number of the packet that came; 0: none.
  static uint16_t ComesTo(const FarEnd& far_end) {
    const auto came = far_end.ReceiveRtp(milliseconds{0});
    return came ? came->sequence_number : uint16_t{0};
  }
  static void Drain(const FarEnd& far_end) {
    while (far_end.Receive(milliseconds{0})) continue;
  }
  /// Whether what that far end sends to a is heard at b.
  bool IsHeard(const FarEnd& far_end) {
    Drain(b_.far_end);
    SendFrom(far_end, a_);
    Turn();
    return b_.far_end.Receive(milliseconds{0}).has_value();
  }
  /// Whether what b's far end says comes to that one.
  bool Hears(const FarEnd& far_end) {
    Drain(far_end);
    SendFrom(b_.far_end, b_);
    Turn();
    return far_end.Receive(milliseconds{0}).has_value();
  }
  static bool Express(const TurnedLeg& leg) { return leg.participant->ports()->express().is_open(); }

  TurnedLeg a_ = NewLeg(), b_ = NewLeg();
  FarEnd elsewhere_;
  uint16_t number_ = 0;
};

TEST_F(ExpressLegs, AFarEndThatSendsSteadilyGetsAnExpressSocketAndOneThatDoesNotGetsNone) {
  EXPECT_TRUE(Express(a_));
  EXPECT_FALSE(Express(b_));
  EXPECT_TRUE(IsHeard(a_.far_end));
  EXPECT_TRUE(Hears(a_.far_end));
  EXPECT_EQ(a_.participant->Statistics().send_errors + a_.participant->Statistics().receive_errors, 0u);
}

TEST_F(ExpressLegs, StrangersAreCountedAndNotAnswered) {
  UdpSocket stranger;
  ASSERT_EQ(stranger.Bind(*SocketAddress::Parse("127.0.0.1", 0)), 0);
  const SocketAddress to = a_.participant->ports()->address();
  ASSERT_EQ(connect(stranger.fd(), to.native(), to.length()), 0);
  for (int i = 0; i < 10; ++i) {
    const Bytes packet = Serialise({0, 1, 1, 1, false, PayloadOf(1)});
    // A port that nobody listens at is answered for by the system; the next send would fail then.
    ASSERT_EQ(send(stranger.fd(), packet.data(), packet.size(), 0), static_cast<ssize_t>(packet.size()));
    Turn();
  }
  EXPECT_EQ(a_.participant->Statistics().strangers, 10u);
  char octet = 0;
  EXPECT_LT(recv(stranger.fd(), &octet, 1, MSG_DONTWAIT), 0);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_TRUE(IsHeard(a_.far_end));
}

TEST_F(ExpressLegs, ANewDescriptionCountsAtOnceAndTheExpressSocketFollows) {
  ASSERT_TRUE(a_.participant->DescribeRemote(elsewhere_.Description(Pcmu()), worker_.now()).ok);
  EXPECT_TRUE(IsHeard(elsewhere_));
  EXPECT_TRUE(Hears(elsewhere_));
  EXPECT_FALSE(IsHeard(a_.far_end));
  EXPECT_EQ(a_.participant->Statistics().strangers, 1u);
  clock_->Advance(milliseconds{100});
  Turn();
  EXPECT_FALSE(Express(a_));
  SendFor(a_, elsewhere_);
  EXPECT_TRUE(a_.participant->ports()->HasExpressTo(elsewhere_.address()));
  EXPECT_TRUE(IsHeard(elsewhere_));
  EXPECT_TRUE(Hears(elsewhere_));
  EXPECT_FALSE(IsHeard(a_.far_end));
}

TEST_F(ExpressLegs, AnAddressThatIsLearnedCountsAtOnceToo) {
  a_.participant->AllowLearning(worker_.now());
  EXPECT_TRUE(IsHeard(elsewhere_));
  EXPECT_TRUE(Hears(elsewhere_));
  EXPECT_FALSE(Hears(a_.far_end));
  EXPECT_FALSE(IsHeard(a_.far_end));
  SendFor(a_, elsewhere_);  // the one closes, the other opens
  SendFor(a_, elsewhere_);
  EXPECT_TRUE(a_.participant->ports()->HasExpressTo(elsewhere_.address()));
}

TEST_F(ExpressLegs, AHeldFarEndIsSentNothingAndHeardAgainAfterwards) {
  RemoteDescription hold = a_.far_end.Description(Pcmu());
  hold.rtp_port = 0;
  ASSERT_TRUE(a_.participant->DescribeRemote(hold, worker_.now()).ok);
  EXPECT_FALSE(Hears(a_.far_end));
  ASSERT_TRUE(a_.participant->DescribeRemote(a_.far_end.Description(Pcmu()), worker_.now()).ok);
  EXPECT_TRUE(Hears(a_.far_end));
  EXPECT_TRUE(IsHeard(a_.far_end));
}

TEST_F(ExpressLegs, AFarEndThatIsGoneForAWhileCostsNoPacketAfterwardsAndNoError) {
  const SocketAddress there = a_.far_end.address();
  { const FarEnd gone = std::move(a_.far_end); }
  for (int i = 0; i < 10; ++i) {
    SendFrom(b_.far_end, b_);
    Turn();
  }
  UdpSocket back;
  ASSERT_EQ(back.Bind(there), 0);
  for (int i = 0; i < 3; ++i) {
    SendFrom(b_.far_end, b_);
    Turn();
    Bytes data(2048);
    EXPECT_GT(recv(back.fd(), data.data(), data.size(), MSG_DONTWAIT), 0) << i;
  }
  const EndpointStatistics statistics = a_.participant->Statistics();
  EXPECT_EQ(statistics.rtp_packets_sent, 13u);
  EXPECT_EQ(statistics.send_errors, 0u);
  EXPECT_EQ(statistics.receive_errors, 0u);
}

TEST_F(ExpressLegs, WhatPilesUpWhileTheFarEndIsGoneIsSentOnWithoutAnErrorToo) {
  { const FarEnd gone = std::move(a_.far_end); }
  SendRun(b_, 1000, 20);
  for (int turn = 0; turn < 4; ++turn) Turn();
  EXPECT_EQ(a_.participant->Statistics().rtp_packets_sent, 20u);
  EXPECT_EQ(a_.participant->Statistics().send_errors, 0u);
}

TEST_F(ExpressLegs, TheHeaderFieldsHoldForTheExpressSocket) {
  LocalSettings settings = LocalFor(Pcmu());
  settings.ip_header.ipv4_tos = uint8_t{0xb8};
  settings.ip_header.ipv4_time_to_live = uint8_t{33};
  std::unique_ptr<PortPair> none;
  a_.far_end.AskForHeader();
  ASSERT_TRUE(worker_.DescribeLocal(*a_.participant, settings, none).ok);
  for (int round = 0; round < 2; ++round) {  // the one that was open, and one that is opened after
    ASSERT_TRUE(Express(a_));
    Drain(a_.far_end);
    SendFrom(b_.far_end, b_);
    Turn();
    const ReceivedHeader header = a_.far_end.ReceiveHeader();
    EXPECT_EQ(header.traffic_class, 0xb8);
    EXPECT_EQ(header.hops, 33);
    a_.participant->CloseExpress();
    GoExpress(a_);
  }
}

TEST_F(ExpressLegs, AnEndpointThatMovesToAnotherWorkerGoesOn) {
  const auto mailbox = std::make_shared<Mailbox>();
  const auto session = std::make_shared<SessionRoute>(context_, mailbox, "other session");
  Worker other(context_, mailbox);
  other.OpenSession(session);
  const auto route = a_.participant->route();
  ASSERT_TRUE(route->SetHome(session, MakeTask([route](Worker& worker) { worker.BringHome(*route); })));
  Turn();
  other.RunOnce(milliseconds{0});
  ASSERT_EQ(other.Find(*route), a_.participant);
  EXPECT_FALSE(Express(a_));
  const uint64_t before = a_.participant->Statistics().rtp_packets_received;
  for (int i = 0; i < 30; ++i) {
    SendFrom(a_.far_end, a_);
    other.RunOnce(milliseconds{0});
  }
  for (int i = 0; i < 80; ++i) {
    clock_->Advance(milliseconds{100});
    other.RunOnce(milliseconds{0});
  }
  EXPECT_TRUE(Express(a_));
  SendFrom(a_.far_end, a_);
  Turn();  // watched by its own worker only
  other.RunOnce(milliseconds{0});
  EXPECT_EQ(a_.participant->Statistics().rtp_packets_received, before + 31);
}

TEST_F(ExpressLegs, WhereThereIsNoRoomForMoreThatIsFoundOutOnceAndAgainWhenSocketsWereClosed) {
  const std::unique_ptr<PortPair> more = pool_->Acquire(reason_);
  ASSERT_TRUE(more) << reason_;
  {
    // Less than a sixteenth and a half of all, but more than a sixteenth.
    const FewFiles few(40);
    EXPECT_TRUE(pool_->RoomForExpress());
    EXPECT_FALSE(more->OpenExpress(b_.far_end.address()));
    EXPECT_FALSE(pool_->RoomForExpress());
    EXPECT_FALSE(pool_->FewDescriptorsLeft());
    SendFor(b_, b_.far_end);
    EXPECT_FALSE(Express(b_));
    EXPECT_TRUE(Express(a_)) << "what there is stays";
  }
  EXPECT_FALSE(more->OpenExpress(b_.far_end.address())) << "nothing has been closed since";
  EXPECT_TRUE(pool_->Acquire(reason_)) << reason_;
  EXPECT_TRUE(pool_->RoomForExpress());
  GoExpress(b_);
}

TEST_F(ExpressLegs, WhenFewFilesAreLeftTheExpressSocketsGoAndTheCallsGoOn) {
  ASSERT_TRUE(Express(a_));
  {
    const FewFiles few;
    const std::unique_ptr<PortPair> more = pool_->Acquire(reason_);
    EXPECT_TRUE(pool_->FewDescriptorsLeft());
    for (int i = 0; i < 80; ++i) {
      clock_->Advance(milliseconds{100});
      Turn();
    }
    EXPECT_FALSE(Express(a_));
    EXPECT_TRUE(IsHeard(a_.far_end));
    EXPECT_TRUE(Hears(a_.far_end));
    SendFor(a_, a_.far_end);
    EXPECT_FALSE(Express(a_));
  }
  ASSERT_TRUE(pool_->Acquire(reason_)) << reason_;
  EXPECT_FALSE(pool_->FewDescriptorsLeft());
  GoExpress(a_);
}

}  // namespace
}  // namespace media_engine_test
