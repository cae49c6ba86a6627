#include "engine_fixture.h"

#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <tuple>

namespace media_engine_test {

namespace {

std::size_t EntriesOf(const char* directory) {
  const std::filesystem::directory_iterator entries(directory);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace

std::size_t OpenDescriptors() {
  return EntriesOf("/proc/self/fd");
}
std::size_t RunningThreads() {
  return EntriesOf("/proc/self/task");
}

EndpointStatistics Leg::Statistics() const {
  EndpointStatistics statistics;
  const Outcome outcome = endpoint->ReadStatistics(statistics, kLimit);
  if (!outcome) throw std::runtime_error(outcome.reason);
  return statistics;
}

void Leg::SendRun(uint16_t first, unsigned count, uint8_t payload_type, uint32_t ssrc) const {
  for (unsigned i = 0; i < count; ++i) {
    const auto number = static_cast<uint16_t>(first + i);
    Send({payload_type, number, 160u * number, ssrc, false, PayloadOf(number)});
  }
}

ServerConfig EngineTest::Config(unsigned pairs) const {
  ServerConfig config;
  config.addresses = {"127.0.0.1"};
  std::tie(config.rtp_port_min, config.rtp_port_max) = FreePortRange(pairs);
  config.threads = 2;
  config.log = const_cast<RecordedLog&>(log_).Sink();
  return config;
}

std::unique_ptr<Server> EngineTest::Open(const ServerConfig& config, ServerEvents* events) {
  Outcome outcome;
  auto server = engine_.OpenServer(config, events, outcome);
  if (!server) throw std::runtime_error(outcome.reason);
  return server;
}

std::shared_ptr<Session> EngineTest::NewSession(Server& server) {
  Outcome outcome;
  auto session = server.CreateSession(outcome);
  if (!session) throw std::runtime_error(outcome.reason);
  return session;
}

Leg EngineTest::NewLeg(Session& session, const std::string& address) {
  Leg leg;
  leg.events = std::make_shared<RecordedEvents>();
  Outcome outcome;
  leg.endpoint = session.CreateEndpoint(leg.events, kLimit, outcome);
  if (!leg.endpoint) throw std::runtime_error(outcome.reason);
  leg.far_end = std::make_shared<FarEnd>(address);
  return leg;
}

Leg EngineTest::NewCallLeg(Session& session, const Codec& codec, uint8_t events) {
  return NewCallLeg(session, codec, codec, events, events);
}

Leg EngineTest::NewCallLeg(Session& session, const Codec& ours, const Codec& theirs, uint8_t our_events,
                           uint8_t their_events) {
  Leg leg = NewLeg(session);
  Outcome outcome = leg.endpoint->DescribeLocal(LocalFor(ours, our_events), leg.local, kLimit);
  if (outcome) outcome = leg.endpoint->DescribeRemote(leg.far_end->Description(theirs, their_events), kLimit);
  if (!outcome) throw std::runtime_error(outcome.reason);
  return leg;
}

void ExpectCarried(const std::optional<Rtp>& came, const Rtp& sent, uint8_t payload_type) {
  ASSERT_TRUE(came.has_value()) << "nothing came for number " << sent.sequence_number;
  EXPECT_EQ(came->payload, sent.payload) << "number " << sent.sequence_number;
  EXPECT_EQ(came->payload_type, payload_type);
  EXPECT_NE(came->ssrc, sent.ssrc);
}

}  // namespace media_engine_test
