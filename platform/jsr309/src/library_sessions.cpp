// Placement of sessions on servers, and their way into and out of the books.
#include "library.h"
#include "session.h"

#include <utility>

namespace kelvaro::jsr309 {

std::vector<bool> Library::AliveServers() const {
  std::vector<bool> alive;
  for (const auto& server : servers_) alive.push_back(server->media_server->IsAlive());
  return alive;
}

Server* Library::PlaceSession(const std::vector<bool>& usable) {
  if (state_ != State::kRunning) return nullptr;
  Server* best = nullptr;
  uint64_t best_load = 0;
  for (size_t i = 0; i < servers_.size(); ++i) {
    Server& server = *servers_[i];
    const uint64_t load = server.stats.GetCurrentMediaSessionCount() + server.reserved;
    const uint64_t capacity = server.stats.GetMediaSessionCapacity();
    if (!usable[i] || server.lost || !server.stats.IsInService() || load >= capacity) continue;
    // load / capacity of the two, compared without dividing
    if (best == nullptr || load * best->stats.GetMediaSessionCapacity() < best_load * capacity) {
      best = &server;
      best_load = load;
    }
  }
  return best;
}

bool Library::IsServerAvailable() {
  const std::vector<bool> alive = AliveServers();
  const std::lock_guard<BriefMutex> lock(mutex_);
  return PlaceSession(alive) != nullptr;
}

std::shared_ptr<Session> Library::CreateSession() {
  std::vector<bool> usable = AliveServers();
  const Clock::TimePoint begun = clock_->Now();
  while (true) {
    Server* server = nullptr;
    uint64_t epoch = 0;
    {
      const std::lock_guard<BriefMutex> lock(mutex_);
      server = PlaceSession(usable);
      if (server != nullptr) {
        ++server->reserved;
        epoch = server->epoch;
      }
    }
    if (server == nullptr) {
      KELVARO_LOG(*logger_, WARN_LOG_LEVEL, "", "No media server has room for a new session");
      return nullptr;
    }
    if (auto session = CreateSessionOn(*server, epoch)) return session;
    // One that let its time pass is not followed by another: the caller has waited long enough.
    if (clock_->Now() - begun >= std::chrono::milliseconds(server->settings.request_timeout_ms)) return nullptr;
    for (size_t i = 0; i < servers_.size(); ++i) {
      if (servers_[i].get() == server) usable[i] = false;
    }
  }
}

std::shared_ptr<Session> Library::CreateSessionOn(Server& server, uint64_t epoch) {
  const std::shared_ptr<ServerSession> peer = server.media_server->CreateSession();
  std::shared_ptr<Session> session;
  bool entered = false;
  if (peer != nullptr) session = std::make_shared<Session>(shared_from_this(), server, peer, clock_->Now());
  {
    const std::lock_guard<BriefMutex> lock(mutex_);
    --server.reserved;
    if (session != nullptr && state_ == State::kRunning && !server.lost && server.epoch == epoch) {
      session->place = sessions_.insert(sessions_.end(), session.get());
      server.stats.IncreaseMediaSessionCount();
      summary_.IncreaseMediaSessionCount();
      entered = true;
    }
  }
  if (session == nullptr) {
    KELVARO_LOG(*logger_, WARN_LOG_LEVEL, server.settings.mac, "The media server gave no session");
    return nullptr;
  }
  if (!entered) {  // the server was lost, or the library stopped, while it was being made
    peer->Release();
    return nullptr;
  }
  KELVARO_LOG(*logger_, DEBUG_LOG_LEVEL, session->log_id, "Session made on " + server.settings.mac);
  return session;
}

void Library::ForgetSession(Session& session) {
  if (!session.place) return;
  sessions_.erase(*std::exchange(session.place, std::nullopt));
  const auto lasted = std::chrono::duration_cast<std::chrono::microseconds>(clock_->Now() - session.started);
  const MediaSessionStats::Duration duration = boost::posix_time::microseconds(lasted.count());
  for (MediaSessionStats* stats : {&session.server.stats, &summary_}) {
    stats->DecreaseMediaSessionCount();
    stats->AddNewMediaSessionDuration(duration);
  }
}

}  // namespace kelvaro::jsr309
