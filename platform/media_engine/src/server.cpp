#include <algorithm>
#include <utility>

#include "heartbeat.h"
#include "media_engine/engine.h"
#include "requests.h"
#include "server_context.h"
#include "srtp_cipher.h"
#include "worker_thread.h"

namespace media_engine {
namespace {

// An endpoint that has gone to another server's worker is fetched back within that time.
constexpr milliseconds kEmigrantLimit{200};

std::string NextSessionName() {
  static std::atomic<uint64_t> last{0};
  return "session " + std::to_string(++last);
}

}  // namespace

Server::Server(std::shared_ptr<ServerContext> context, ServerEvents* events)
    : context_(std::move(context)), events_(events) {}

Server::~Server() {
  Shutdown(kShutdownLimit);
}

Outcome Server::Start(const ServerConfig& config) {
  // OpenSSL reads its configuration with the first cipher: not while packets wait.
  if (std::string reason; !SrtpCipher::Make(reason)) {
    context_->Log(LogLevel::kWarning, "media server " + context_->address().Host() + " refuses SRTP: " + reason);
  }
  const milliseconds longest_wait = HeartbeatMonitor::IntervalFor(config.heartbeat);
  for (unsigned i = 0; i < config.threads; ++i) {
    workers_.push_back(std::make_unique<WorkerThread>(context_, longest_wait, Coalescing(config.coalescing)));
    if (Outcome outcome = workers_.back()->Start(); !outcome) return outcome;
  }
  const auto read_beats = [this] {
    std::vector<uint64_t> beats;
    for (const auto& worker : workers_) beats.push_back(worker->gauges().beats.load(std::memory_order_relaxed));
    return beats;
  };
  const auto report = [this, limit = config.heartbeat](HeartbeatWatch::Change change) {
    const bool lost = change == HeartbeatWatch::Change::kLost;
    context_->lost.store(lost);
    if (lost) {
      context_->Log(LogLevel::kError, "media server " + context_->address().Host() +
                                          " is lost: a worker has not served for " + std::to_string(limit.count()) +
                                          " ms");
    } else {
      context_->Log(LogLevel::kNotice, "media server " + context_->address().Host() + " serves again");
    }
    if (events_ == nullptr) return;
    lost ? events_->OnServerLost() : events_->OnServerBack();
  };
  heartbeat_ = std::make_unique<HeartbeatMonitor>(config.heartbeat, workers_.size(), read_beats, report);
  return heartbeat_->Start();
}

bool Server::IsAlive() const {
  return !context_->lost.load() && !context_->shut_down.load();
}

unsigned Server::threads() const {
  return static_cast<unsigned>(workers_.size());
}

std::shared_ptr<Session> Server::CreateSession(Outcome& outcome) {
  if (!IsAlive()) {
    outcome = Outcome::Refused("media server " + context_->address().Host() +
                               (context_->lost.load() ? " is lost" : " has been shut down"));
    return nullptr;
  }
  const auto least = std::min_element(workers_.begin(), workers_.end(), [](const auto& a, const auto& b) {
    return a->gauges().sessions.load() < b->gauges().sessions.load();
  });
  WorkerThread& worker = **least;
  const auto route = std::make_shared<SessionRoute>(context_, worker.mailbox(), NextSessionName());
  ++worker.gauges().sessions;
  std::unique_ptr<Task> opening = MakeTask([route](Worker& at) { at.OpenSession(route); });
  if (!worker.mailbox()->Put(opening)) {
    --worker.gauges().sessions;
    outcome = Outcome::Refused("media server " + context_->address().Host() + " has been shut down");
    return nullptr;
  }
  worker.mailbox()->Serve();
  outcome = Outcome::Done();
  return std::make_shared<Session>(context_, route);
}

ServerUsage Server::Usage() const {
  ServerUsage usage;
  for (const auto& worker : workers_) {
    usage.sessions += worker->gauges().sessions.load();
    usage.endpoints += worker->gauges().endpoints.load();
  }
  usage.port_pairs = context_->ports().in_use();
  return usage;
}

void Server::StallWorker(unsigned index, bool stalled) {
  workers_.at(index)->Stall(stalled);
}

void Server::Shutdown(milliseconds limit) {
  if (context_->shut_down.exchange(true)) return;
  const TimePoint deadline = std::chrono::steady_clock::now() + limit;
  heartbeat_.reset();
  for (const auto& worker : workers_) worker->AskToStop();
  std::size_t left_behind = 0;
  for (const auto& worker : workers_) left_behind += worker->Join(deadline) ? 0 : 1;
  if (left_behind != 0) {
    context_->Log(LogLevel::kError, "media server " + context_->address().Host() + ": " + std::to_string(left_behind) +
                                        " of its workers did not end within " + std::to_string(limit.count()) +
                                        " ms and are left to themselves; their ports stay taken until they end");
  }
  CloseEmigrants(deadline);
  context_->CloseLog(deadline);
}

void Server::CloseEmigrants(TimePoint deadline) {
  for (const auto& route : context_->TakeEmigrants()) {
    const TimePoint now = std::chrono::steady_clock::now();
    Endpoint emigrant(context_, route);  // which ends it in any case
    if (now >= deadline) continue;
    const auto rest = std::chrono::duration_cast<milliseconds>(deadline - now);
    if (emigrant.Close(std::min(rest, kEmigrantLimit))) continue;
    context_->Log(LogLevel::kWarning, route->name() + " could not be closed in time: its worker does not answer");
  }
}

}  // namespace media_engine
