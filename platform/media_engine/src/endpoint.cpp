#include <utility>

#include "media_engine/engine.h"
#include "pass_through.h"
#include "requests.h"
#include "server_context.h"
#include "srtp_keys.h"

namespace media_engine {

Endpoint::Endpoint(std::shared_ptr<ServerContext> server, std::shared_ptr<EndpointRoute> route)
    : server_(std::move(server)), route_(std::move(route)) {}

Endpoint::~Endpoint() {
  Release();
}

bool Endpoint::closed() const {
  return route_->closed();
}

Outcome Endpoint::DescribeLocal(const LocalSettings& settings, LocalDescription& description, milliseconds limit) {
  std::unique_ptr<PortPair> offered;
  if (settings.renew_ports || !route_->has_ports()) {
    // Bound here: looking for ports takes system calls that the packets need not wait for.
    std::string reason;
    offered = server_->ports().Acquire(reason);
    if (!offered) return Outcome::Refused(reason);
  }
  LocalDescription local;
  Outcome outcome = AskEndpoint(route_, limit, local,
                                [settings, offered = std::move(offered)](Worker& worker, Participant& participant,
                                                                         LocalDescription& result) mutable {
                                  Outcome described = worker.DescribeLocal(participant, settings, offered);
                                  offered.reset();
                                  if (!described) return described;
                                  result.address = participant.ports()->address().Host();
                                  result.public_address = participant.server().public_address();
                                  result.rtp_port = participant.ports()->rtp_port();
                                  result.rtcp_port = participant.ports()->rtcp_port();
                                  if (LeavesKeyToUs(settings.crypto)) result.made_key = participant.LocalKey();
                                  return described;
                                });
  if (outcome) description = std::move(local);
  return outcome;
}

Outcome Endpoint::DescribeRemote(const RemoteDescription& description, milliseconds limit) {
  int none = 0;
  return AskEndpoint(route_, limit, none, [description](Worker& worker, Participant& participant, int&) {
    if (description.pass_through_peer) return DescribePassThrough(worker, participant, description);
    return participant.DescribeRemote(description, worker.now());
  });
}

Outcome Endpoint::DetectRemoteAddress(milliseconds limit) {
  int none = 0;
  return AskEndpoint(route_, limit, none, [](Worker& worker, Participant& participant, int&) {
    participant.AllowLearning(worker.now());
    return Outcome::Done();
  });
}

Outcome Endpoint::Join(Direction direction, Endpoint& other, milliseconds limit) {
  for (const auto& route : {route_, other.route_}) {
    if (route->closed()) return Outcome::Refused(route->name() + " is closed");
  }
  const auto reply = std::make_shared<Reply<int>>();
  std::unique_ptr<Task> task = std::make_unique<JoinTask>(route_, other.route_, direction, Responder<int>(reply));
  if (!route_->Ask(task)) task.reset();
  return reply->Wait(limit);
}

Outcome Endpoint::Unjoin(Endpoint& other, milliseconds limit) {
  int none = 0;
  return AskEndpoint(route_, limit, none, [peer = other.route_](Worker& worker, Participant& participant, int&) {
    if (!participant.IsJoinedWith(*peer)) {
      return Outcome::Refused(participant.route()->name() + " and " + peer->name() + " are not joined");
    }
    participant.Separate(worker.now());
    return Outcome::Done();
  });
}

Outcome Endpoint::ReadStatistics(EndpointStatistics& statistics, milliseconds limit) {
  return AskEndpoint(route_, limit, statistics, [](Worker&, Participant& participant, EndpointStatistics& result) {
    result = participant.Statistics();
    return Outcome::Done();
  });
}

Outcome Endpoint::Close(milliseconds limit) {
  // Its sockets are closed here: that takes system calls that the packets need not wait for.
  std::unique_ptr<Participant> ended;
  Outcome outcome = AskEndpoint(route_, limit, ended,
                                [](Worker& worker, Participant& participant, std::unique_ptr<Participant>& result) {
                                  result = worker.Detach(*participant.route());
                                  return Outcome::Done();
                                });
  ended.reset();
  if (!outcome && route_->closed()) return Outcome::Done();
  // A worker that did not answer in time must not skip this as abandoned.
  if (!outcome) Release();
  return outcome;
}

void Endpoint::Release() {
  if (route_->closed()) return;
  std::unique_ptr<Task> task = MakeEndpointTask(route_, [](Worker& worker, Participant* participant) {
    if (participant != nullptr) worker.Close(*participant->route());
  });
  route_->Ask(task);
}

}  // namespace media_engine
