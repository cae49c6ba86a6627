#include <atomic>
#include <utility>

#include "media_engine/engine.h"
#include "requests.h"
#include "server_context.h"

namespace media_engine {
namespace {

/// Names are for logs; they count up over all servers of the process.
std::string NextEndpointName() {
  static std::atomic<uint64_t> last{0};
  return "endpoint " + std::to_string(++last);
}

}  // namespace

Session::Session(std::shared_ptr<ServerContext> server, std::shared_ptr<SessionRoute> route)
    : server_(std::move(server)), route_(std::move(route)) {}

Session::~Session() {
  Release();
}

std::shared_ptr<Endpoint> Session::CreateEndpoint(std::shared_ptr<EndpointEvents> events, milliseconds limit,
                                                  Outcome& outcome) {
  const auto endpoint_route = std::make_shared<EndpointRoute>(route_, NextEndpointName());
  const auto reply = std::make_shared<Reply<int>>();
  std::unique_ptr<Task> task = MakeTask([session = route_, server = server_, endpoint_route, events = std::move(events),
                                         responder = Responder<int>(reply)](Worker& worker) mutable {
    if (responder.abandoned()) return responder.Answer(Outcome::Refused("abandoned"));
    auto participant = std::make_unique<Participant>(endpoint_route, server, std::move(events), session.get());
    const bool admitted = worker.Admit(std::move(participant));
    responder.Answer(admitted ? Outcome::Done() : Outcome::Refused(session->name() + " has ended"));
  });
  if (route_->mailbox()->Put(task)) {
    route_->mailbox()->Serve();
  } else {
    task.reset();
  }
  outcome = reply->Wait(limit);
  // One that comes into being after all is released behind its making.
  auto endpoint = std::make_shared<Endpoint>(server_, endpoint_route);
  return outcome ? endpoint : nullptr;
}

Outcome Session::Import(Endpoint& endpoint) {
  if (!server_->SameEngine(*endpoint.server_)) return Outcome::Refused("the endpoint is of another engine");
  if (route_->closed()) return Outcome::Refused(route_->name() + " has ended");
  const std::shared_ptr<EndpointRoute>& route = endpoint.route_;
  if (route->closed()) return Outcome::Refused(route->name() + " is closed");
  std::unique_ptr<Task> move = MakeEndpointTask(route, [](Worker& worker, Participant* participant) {
    if (participant != nullptr) worker.BringHome(*participant->route());
  });
  if (route->SetHome(route_, std::move(move))) return Outcome::Done();
  return Outcome::Refused(route->name() + " is closed");
}

void Session::Release() {
  if (route_->closed()) return;
  std::unique_ptr<Task> task = MakeTask([route = route_](Worker& worker) { worker.CloseSession(*route); });
  if (route_->mailbox()->Put(task)) route_->mailbox()->Serve();
}

}  // namespace media_engine
