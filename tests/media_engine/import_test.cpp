// Endpoints on the move between sessions, workers and servers.
#include "engine_fixture.h"

#include <future>

namespace media_engine_test {
namespace {

class Import : public EngineTest {
 protected:
  void SetUp() override { server_ = Open(Config()); }
  /// Sessions go to the worker with the fewest, so two in a row are on different ones.
  std::shared_ptr<Session> Make() { return NewSession(*server_); }
  static void ExpectFlow(const Leg& from, const Leg& to, uint16_t number) {
    const Rtp sent{0, number, 160u * number, 0x99, false, PayloadOf(number)};
    from.Send(sent);
    ExpectCarried(to.far_end->ReceiveRtp(), sent, 0);
  }
  static bool JoinThem(const Leg& a, const Leg& b) {
    return a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok;
  }

  std::unique_ptr<Server> server_;
};

TEST_F(Import, RequestsThatFollowSeeItDoneWhicheverEndpointIsAsked) {
  for (int round = 0; round < 200; ++round) {
    const auto here = Make(), there = Make();
    const Leg a = NewCallLeg(*here), b = NewCallLeg(*there);
    ASSERT_FALSE(JoinThem(a, b));
    ASSERT_TRUE(here->Import(*b.endpoint).ok);
    const bool joined = round % 2 == 0 ? JoinThem(a, b) : JoinThem(b, a);
    ASSERT_TRUE(joined) << round;
    ExpectFlow(a, b, 1);
    ExpectFlow(b, a, 2);
    ASSERT_TRUE(b.endpoint->Close(kLimit).ok);
    ASSERT_TRUE(a.endpoint->Close(kLimit).ok);
  }
  EXPECT_EQ(server_->Usage().port_pairs, 0u);
  EXPECT_TRUE(Eventually([&] { return server_->Usage().sessions == 0; }));
}

TEST_F(Import, KeepsPortsNumbersStatisticsAndRemoteAddress) {
  const auto here = Make(), there = Make();
  const Leg a = NewCallLeg(*here);
  Leg b = NewCallLeg(*there);
  const Leg former = NewCallLeg(*there);
  ASSERT_TRUE(JoinThem(former, b));
  ExpectFlow(former, b, 1);
  former.SendRun(2, 1);
  const auto last = b.far_end->ReceiveRtp();
  ExpectFlow(b, former, 3);
  const LocalDescription before = b.local;
  ASSERT_TRUE(here->Import(*b.endpoint).ok);
  ASSERT_TRUE(JoinThem(a, b));
  a.SendRun(500, 1);
  const auto came = b.far_end->ReceiveRtp();
  ASSERT_TRUE(came && last);
  EXPECT_EQ(came->ssrc, last->ssrc);
  EXPECT_EQ(came->sequence_number, static_cast<uint16_t>(last->sequence_number + 1));
  EXPECT_TRUE(came->marker);
  ASSERT_TRUE(b.endpoint->DescribeLocal(LocalFor(Pcmu()), b.local, kLimit).ok);
  EXPECT_EQ(b.local.rtp_port, before.rtp_port);
  EXPECT_EQ(b.Statistics().rtp_packets_sent, 3u);
  EXPECT_EQ(b.Statistics().rtp_packets_received, 1u);
}

TEST_F(Import, DissolvesJoinsWithEndpointsLeftBehind) {
  const auto here = Make(), there = Make();
  const Leg a = NewCallLeg(*there), b = NewCallLeg(*there);
  ASSERT_TRUE(JoinThem(a, b));
  ASSERT_TRUE(here->Import(*b.endpoint).ok);
  EXPECT_FALSE(a.endpoint->Unjoin(*b.endpoint, kLimit).ok);
  EXPECT_FALSE(JoinThem(a, b));
  a.SendRun(1, 1);
  EXPECT_TRUE(Eventually([&] { return a.Statistics().not_joined == 1; }));
}

TEST_F(Import, WithinOneWorkerAndIntoTheSameSessionWorkToo) {
  ServerConfig config = Config();
  config.threads = 1;
  const auto server = Open(config);
  const auto here = NewSession(*server), there = NewSession(*server);
  const Leg a = NewCallLeg(*here), b = NewCallLeg(*there);
  ASSERT_FALSE(JoinThem(a, b));
  ASSERT_TRUE(here->Import(*b.endpoint).ok);
  ASSERT_TRUE(JoinThem(a, b));
  ASSERT_TRUE(here->Import(*b.endpoint).ok);
  ExpectFlow(a, b, 1);  // the join stands
  there->Release();
  ExpectFlow(b, a, 2);
}

TEST_F(Import, GoesAcrossServersAndKeepsItsAddress) {
  ServerConfig config = Config();
  config.addresses = {"127.0.0.2"};
  config.public_address = "203.0.113.7";
  const auto other = Open(config);
  const auto here = Make(), there = NewSession(*other);
  const Leg a = NewCallLeg(*here);
  Leg b = NewLeg(*there, "127.0.0.2");
  ASSERT_TRUE(b.endpoint->DescribeLocal(LocalFor(Pcmu()), b.local, kLimit).ok);
  ASSERT_TRUE(b.endpoint->DescribeRemote(b.far_end->Description(Pcmu()), kLimit).ok);
  ASSERT_TRUE(here->Import(*b.endpoint).ok);
  ASSERT_TRUE(JoinThem(a, b));
  ExpectFlow(a, b, 1);
  ExpectFlow(b, a, 2);
  ASSERT_TRUE(b.endpoint->DescribeLocal(LocalFor(Pcmu()), b.local, kLimit).ok);
  EXPECT_EQ(b.local.address, "127.0.0.2");
  EXPECT_EQ(b.local.public_address, "203.0.113.7");
  EXPECT_EQ(other->Usage().port_pairs, 1u);
  EXPECT_EQ(other->Usage().endpoints, 0u);
  EXPECT_EQ(server_->Usage().endpoints, 2u);
  ASSERT_TRUE(b.endpoint->Close(kLimit).ok);
  EXPECT_EQ(other->Usage().port_pairs, 0u);
}

TEST_F(Import, AnEndpointEndsWithTheServerWhosePortsItHas) {
  ServerConfig config = Config();
  config.addresses = {"127.0.0.2"};
  auto other = Open(config);
  const auto here = Make(), there = NewSession(*other);
  Leg b = NewLeg(*there, "127.0.0.2");
  ASSERT_TRUE(b.endpoint->DescribeLocal(LocalFor(Pcmu()), b.local, kLimit).ok);
  ASSERT_TRUE(here->Import(*b.endpoint).ok);
  EXPECT_TRUE(Eventually([&] { return server_->Usage().endpoints == 1; }));
  other->Shutdown();
  EXPECT_TRUE(b.endpoint->closed());
  EXPECT_EQ(other->Usage().port_pairs, 0u);
  EXPECT_EQ(server_->Usage().endpoints, 0u);
}

TEST_F(Import, AnEndpointEndsWithTheServerItMovedTo) {
  ServerConfig config = Config();
  config.addresses = {"127.0.0.2"};
  const auto other = Open(config);
  const auto there = NewSession(*other), here = Make();
  const Leg b = NewCallLeg(*here);
  ASSERT_TRUE(there->Import(*b.endpoint).ok);
  EXPECT_TRUE(Eventually([&] { return other->Usage().endpoints == 1; }));
  other->Shutdown();
  EXPECT_TRUE(b.endpoint->closed());
  EXPECT_EQ(server_->Usage().port_pairs, 0u);
  // An import into a server that is gone ends the endpoint at the latest when it gets there.
  const Leg c = NewCallLeg(*here);
  const Outcome outcome = there->Import(*c.endpoint);
  EXPECT_TRUE(!outcome.ok || Eventually([&] { return c.endpoint->closed(); }));
}

TEST_F(Import, OfAnotherEngineIsRefused) {
  Engine another(clock_);
  Outcome outcome;
  const auto server = another.OpenServer(Config(), nullptr, outcome);
  ASSERT_TRUE(server) << outcome.reason;
  const auto session = NewSession(*server), here = Make();
  const Leg b = NewCallLeg(*session);
  EXPECT_EQ(here->Import(*b.endpoint).reason, "the endpoint is of another engine");
}

TEST_F(Import, DoesNotWaitForAWorkerThatIsStuck) {
  const auto here = Make(), there = Make();
  const Leg b = NewCallLeg(*there);
  server_->StallWorker(0, true);
  server_->StallWorker(1, true);
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_TRUE(here->Import(*b.endpoint).ok);
  EXPECT_TRUE(there->Import(*b.endpoint).ok);
  EXPECT_TRUE(here->Import(*b.endpoint).ok);
  EXPECT_LT(std::chrono::steady_clock::now() - begun, seconds{5});
  const Leg unanswered{b.endpoint, b.far_end, b.events, b.local};
  EXPECT_EQ(unanswered.endpoint->DetectRemoteAddress(milliseconds{20}).reason,
            "the media server did not answer within 20 ms");
  server_->StallWorker(0, false);
  server_->StallWorker(1, false);
  const Leg a = NewCallLeg(*here);
  EXPECT_TRUE(JoinThem(a, b));
  ExpectFlow(a, b, 1);
}

TEST_F(Import, UnderTrafficLosesNothingAndLeavesNothingBehind) {
  const auto first = Make(), second = Make();
  const Leg a = NewCallLeg(*first), b = NewCallLeg(*first);
  uint16_t number = 0;
  uint64_t arrived = 0;
  for (int round = 0; round < 100; ++round) {
    const auto& to = round % 2 == 0 ? second : first;
    // Packets are under way while both move; between the moves the pair is not joined, so those go nowhere.
    a.SendRun(static_cast<uint16_t>(number + 1), 3);
    number = static_cast<uint16_t>(number + 3);
    ASSERT_TRUE(to->Import(*a.endpoint).ok);
    a.SendRun(static_cast<uint16_t>(number + 1), 3);
    number = static_cast<uint16_t>(number + 3);
    ASSERT_TRUE(to->Import(*b.endpoint).ok);
    ASSERT_TRUE(JoinThem(a, b)) << round;
    // What still lay in the socket goes through the join now.
    ASSERT_TRUE(Eventually([&] { return a.Statistics().rtp_packets_received == number; }));
    while (b.far_end->Receive(milliseconds{0})) ++arrived;
    ExpectFlow(a, b, ++number);
    ++arrived;
  }
  // Every packet was received, none twice, and each is accounted for.
  const EndpointStatistics in = a.Statistics(), out = b.Statistics();
  EXPECT_EQ(in.rtp_packets_received, in.not_joined + in.late + out.rtp_packets_sent);
  EXPECT_EQ(out.rtp_packets_sent, arrived);
  EXPECT_EQ(out.send_errors, 0u);
}

TEST_F(Import, ManyThreadsAtOnceLeaveNothingBehind) {
  std::vector<std::shared_ptr<Session>> sessions;
  for (int i = 0; i < 4; ++i) sessions.push_back(Make());
  std::vector<Leg> legs;
  for (int i = 0; i < 6; ++i) legs.push_back(NewCallLeg(*sessions[static_cast<std::size_t>(i) % 4]));
  std::atomic<uint64_t> sent_by_first{0};
  std::vector<std::future<void>> threads;
  for (unsigned t = 0; t < 4; ++t) {
    threads.push_back(std::async(std::launch::async, [&, t] {
      for (unsigned i = 0; i < 300; ++i) {
        const Leg& a = legs[(i + t) % 6];
        const Leg& b = legs[(i * 5 + t + 1) % 6];
        (void)sessions[(i + t) % 4]->Import(*a.endpoint);
        (void)sessions[(i + t) % 4]->Import(*b.endpoint);
        if (a.endpoint != b.endpoint) (void)a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit);
        EndpointStatistics statistics;
        EXPECT_TRUE(a.endpoint->ReadStatistics(statistics, kLimit).ok);
        if (i % 3 == 0) (void)b.endpoint->Unjoin(*a.endpoint, kLimit);
        a.SendRun(static_cast<uint16_t>(i), 1);
        if (a.endpoint == legs[0].endpoint) ++sent_by_first;
      }
    }));
  }
  for (auto& thread : threads) thread.get();
  // Afterwards everything can still be brought together, and carries.
  for (const Leg& leg : legs) ASSERT_TRUE(sessions[0]->Import(*leg.endpoint).ok);
  ASSERT_TRUE(JoinThem(legs[0], legs[1]));
  ASSERT_TRUE(legs[0].endpoint->Unjoin(*legs[1].endpoint, kLimit).ok);
  EXPECT_TRUE(Eventually([&] { return legs[0].Statistics().rtp_packets_received == sent_by_first; }));
  while (legs[1].far_end->Receive(milliseconds{0})) continue;
  ASSERT_TRUE(JoinThem(legs[0], legs[1]));
  ExpectFlow(legs[0], legs[1], 7777);
  for (const auto& session : sessions) session->Release();
  EXPECT_TRUE(Eventually([&] { return server_->Usage().endpoints == 0 && server_->Usage().port_pairs == 0; }));
}

}  // namespace
}  // namespace media_engine_test
