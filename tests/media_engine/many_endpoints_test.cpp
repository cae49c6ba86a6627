// One worker thread with as many endpoints as a busy server has on each of its own.
#include <sys/resource.h>

#include <algorithm>
#include <set>

#include "engine_fixture.h"

namespace media_engine_test {
namespace {

/// Descriptors that are left when everything else has its own, as far as the system allows.
std::size_t DescriptorsToHave() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  getrlimit(RLIMIT_NOFILE, &limit);
  return static_cast<std::size_t>(limit.rlim_cur) - OpenDescriptors() - 100;
}

class ManyEndpoints : public EngineTest {
 protected:
  static constexpr char kAddress[] = "127.0.6.1";  // with all ports to itself
  static constexpr std::size_t kAtOnce = 50;       // packets that surely fit into a far end's socket

  void SetUp() override {
    ServerConfig config = Config();
    config.addresses = {kAddress};
    config.rtp_port_min = 10000;
    config.rtp_port_max = 20000;
    config.threads = 1;
    server_ = Open(config);
    session_ = NewSession(*server_);
  }
  /// Its far end is one that all legs of its side share.
  Leg LegOf(const std::shared_ptr<FarEnd>& far_end) {
    Leg leg;
    Outcome outcome;
    leg.endpoint = session_->CreateEndpoint(nullptr, kLimit, outcome);
    leg.far_end = far_end;
    if (outcome) outcome = leg.endpoint->DescribeLocal(LocalFor(Pcmu()), leg.local, kLimit);
    if (outcome) outcome = leg.endpoint->DescribeRemote(far_end->Description(Pcmu()), kLimit);
    if (!outcome) throw std::runtime_error(outcome.reason);
    return leg;
  }
  /// Each of those sends a packet that no other sends, and all of them come out at the other far end.
  static void Carry(const std::vector<Leg>& from, std::size_t first, const FarEnd& to, uint16_t number) {
    const std::size_t end = std::min(first + kAtOnce, from.size());
    const auto payload = [number](std::size_t leg) {
      return Bytes{static_cast<uint8_t>(number), static_cast<uint8_t>(leg >> 8), static_cast<uint8_t>(leg)};
    };
    std::set<Bytes> expected;
    for (std::size_t i = first; i < end; ++i) {
      from[i].Send({0, number, 160u * number, 1, false, payload(i)});
      expected.insert(payload(i));
    }
    while (!expected.empty()) {
      const auto came = to.ReceiveRtp();
      ASSERT_TRUE(came) << expected.size() << " did not come in round " << number;
      ASSERT_EQ(expected.erase(came->payload), 1u);
    }
  }

  std::unique_ptr<Server> server_;
  std::shared_ptr<Session> session_;
};

TEST_F(ManyEndpoints, TwoThousandOnOneWorkerAllCarryTheirOwn) {
  constexpr std::size_t pairs = 1000;
  ASSERT_GE(DescriptorsToHave(), 4 * pairs) << "too few file descriptors are allowed: two for each endpoint";
  const auto a_end = std::make_shared<FarEnd>(kAddress), b_end = std::make_shared<FarEnd>(kAddress);
  std::vector<Leg> a, b;
  for (std::size_t i = 0; i < pairs; ++i) {
    a.push_back(LegOf(a_end));
    b.push_back(LegOf(b_end));
    ASSERT_TRUE(a.back().endpoint->Join(Direction::kDuplex, *b.back().endpoint, kLimit).ok);
  }
  EXPECT_EQ(server_->Usage().endpoints, 2 * pairs);
  EXPECT_EQ(server_->Usage().port_pairs, 2 * pairs);
  for (uint16_t number = 1; number <= 3; ++number) {
    for (std::size_t first = 0; first < pairs; first += kAtOnce) {
      Carry(a, first, *b_end, number);
      Carry(b, first, *a_end, number);
    }
    clock_->Advance(seconds{3});  // all of them have reports to send
  }
  for (const std::size_t i : {std::size_t{0}, pairs / 2, pairs - 1}) {
    EXPECT_EQ(a[i].Statistics().rtp_packets_sent, 3u);
    EXPECT_EQ(b[i].Statistics().rtp_packets_received, 3u);
    EXPECT_GE(b[i].Statistics().rtcp_packets_sent, 1u);
  }
  server_->Shutdown();
  EXPECT_EQ(server_->Usage().port_pairs, 0u);
  EXPECT_TRUE(a.front().endpoint->closed() && b.back().endpoint->closed());
}

}  // namespace
}  // namespace media_engine_test
