/// A worker turned by hand: no threads, time as the test says.
#pragma once

#include "engine_fixture.h"
#include "server_context.h"
#include "worker.h"

namespace media_engine_test {

using media_engine::EndpointRoute;
using media_engine::Mailbox;
using media_engine::MakeTask;
using media_engine::PacketMover;
using media_engine::Participant;
using media_engine::PortPair;
using media_engine::PortPool;
using media_engine::ServerContext;
using media_engine::SessionRoute;
using media_engine::Worker;

class WorkerTurns : public testing::Test {
 protected:
  struct TurnedLeg {
    Participant* participant;
    FarEnd far_end;
    uint16_t port;
  };

  explicit WorkerTurns(uint16_t port_pairs = 8) : range_(FreePortRange(port_pairs)) { worker_.OpenSession(session_); }

  TurnedLeg NewLeg(const std::shared_ptr<EndpointEvents>& events = nullptr, seconds inactive = seconds{0},
                   const std::optional<JitterBufferSettings>& jitter_buffer = std::nullopt) {
    LocalSettings settings = LocalFor(Pcmu());
    settings.inactive_timeout = inactive;
    settings.jitter_buffer = jitter_buffer;
    return NewLegOn(worker_, session_, context_, settings, events);
  }
  TurnedLeg NewLegOn(Worker& worker, const std::shared_ptr<SessionRoute>& session,
                     const std::shared_ptr<ServerContext>& context, const LocalSettings& settings,
                     const std::shared_ptr<EndpointEvents>& events = nullptr) {
    const auto route = std::make_shared<EndpointRoute>(session, "leg");
    EXPECT_TRUE(worker.Admit(std::make_unique<Participant>(route, context, events, session.get())));
    TurnedLeg leg{worker.Find(*route), FarEnd(), 0};
    std::string reason;
    std::unique_ptr<PortPair> ports = pool_->Acquire(reason);
    EXPECT_TRUE(worker.DescribeLocal(*leg.participant, settings, ports).ok) << reason;
    EXPECT_TRUE(leg.participant->DescribeRemote(leg.far_end.Description(Pcmu()), worker.now()).ok);
    leg.port = leg.participant->ports()->rtp_port();
    return leg;
  }
  void JoinThem(const TurnedLeg& a, const TurnedLeg& b) {
    EXPECT_TRUE(a.participant->Join(Direction::kDuplex, *b.participant, worker_.now()).ok);
  }
  static void SendRun(const TurnedLeg& leg, uint16_t first, unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
      const auto number = static_cast<uint16_t>(first + i);
      leg.far_end.SendRtp({0, number, 160u * number, 1, false, PayloadOf(number)}, leg.port);
    }
  }
  void Turn() { worker_.RunOnce(milliseconds{0}); }
  /// Turns until that many valid packets of the leg have been taken, or that many turns are over.
  void TurnUntilTaken(const TurnedLeg& leg, uint64_t packets, int most_turns) {
    for (; most_turns > 0 && leg.participant->Statistics().rtp_packets_received < packets; --most_turns) Turn();
    EXPECT_EQ(leg.participant->Statistics().rtp_packets_received, packets);
  }

  const std::pair<uint16_t, uint16_t> range_;
  std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
  std::shared_ptr<PortPool> pool_ =
      std::make_shared<PortPool>(*SocketAddress::Parse("127.0.0.1", 0), range_.first, range_.second);
  std::shared_ptr<ServerContext> context_ = std::make_shared<ServerContext>(
      clock_, nullptr, *SocketAddress::Parse("127.0.0.1", 0), std::string(), pool_, LogSink());
  std::shared_ptr<Mailbox> mailbox_ = std::make_shared<Mailbox>();
  std::shared_ptr<SessionRoute> session_ = std::make_shared<SessionRoute>(context_, mailbox_, "session");
  Worker worker_{context_, mailbox_};
};

}  // namespace media_engine_test
