#include "library.h"

#include "address_text.h"
#include "driver_registry.h"
#include "session.h"

#include <algorithm>
#include <future>

namespace kelvaro::jsr309 {
namespace {

/// What a server's end may take beyond its request timeout, which may be too short for one that serves thousands. Of
/// the second that Stop has beyond it.
constexpr std::chrono::milliseconds kShutdownTime{500};

}  // namespace

void Server::OnServerLost() {
  library_.ServerLost(*this);
}

void Server::OnServerBack() {
  library_.ServerBack(*this);
}

Library::Library(const Configuration& configuration, std::shared_ptr<Clock> clock,
                 std::shared_ptr<GuardedLogger> logger)
    : clock_(std::move(clock)),
      logger_(std::move(logger)),
      events_(clock_, configuration.lost_events_per_second, logger_) {}

Library::~Library() = default;

bool Library::Open(const Configuration& configuration, SettingError& refusal) {
  for (const ServerConfiguration& server : configuration.servers) {
    if (OpenServer(server, refusal)) continue;
    ShutDownServers();
    return false;
  }
  for (const auto& driver : drivers_) driver.second->AwaitServers();
  events_.Start();
  const std::lock_guard<BriefMutex> lock(mutex_);
  state_ = State::kRunning;
  return true;
}

bool Library::OpenServer(const ServerConfiguration& configuration, SettingError& refusal) {
  auto& driver = drivers_[configuration.driver];
  if (driver == nullptr) driver = MakeMediaServerDriver(configuration.driver);
  if (driver == nullptr) {
    refusal = {configuration.element + ".driver", configuration.driver, "cannot be started"};
    return false;
  }
  auto server = std::make_unique<Server>(*this, configuration.settings, driver);
  server->media_server = driver->Open(server->settings, *server, logger_, refusal);
  if (server->media_server == nullptr) {
    refusal.element = configuration.element + (refusal.element.empty() ? "" : "." + refusal.element);
    return false;
  }
  server->addresses = server->media_server->Addresses();
  {
    const std::lock_guard<BriefMutex> lock(mutex_);
    server->stats = MediaSessionStats(server->media_server->Capacity());
  }
  KELVARO_LOG(*logger_, INFO_LOG_LEVEL, server->settings.mac, "Media server opened by driver " + configuration.driver);
  servers_.push_back(std::move(server));
  return true;
}

void Library::Stop() {
  const auto deadline = std::chrono::steady_clock::now() + LongestRequestTimeout() + std::chrono::seconds(1);
  std::vector<std::shared_ptr<Session>> sessions;
  {
    std::unique_lock<BriefMutex> lock(mutex_);
    if (state_ == State::kStopping && !events_.IsOwnThread()) {
      stopped_condition_.wait(lock, [this] { return state_ == State::kStopped; });
    }
    if (state_ != State::kRunning) return;
    state_ = State::kStopping;
    for (Session* session : sessions_) sessions.push_back(session->shared_from_this());
  }
  for (const auto& session : sessions) session->End();
  ShutDownServers();
  if (!events_.Stop(deadline) && !events_.IsOwnThread()) {
    KELVARO_LOG(*logger_, WARN_LOG_LEVEL, "", "Stopped while a listener has not returned");
  }
  KELVARO_LOG(*logger_, INFO_LOG_LEVEL, "", "Stopped");
  logger_->Detach();
  const std::lock_guard<BriefMutex> lock(mutex_);
  state_ = State::kStopped;
  stopped_condition_.notify_all();
}

void Library::ShutDownServers() {
  // Side by side: each may take its whole time when it does not answer.
  std::vector<std::future<void>> shutdowns;
  for (const auto& server : servers_) {
    shutdowns.push_back(std::async(std::launch::async, [&server] {
      server->media_server->Shutdown(std::chrono::milliseconds(server->settings.request_timeout_ms) + kShutdownTime);
    }));
  }
  for (std::future<void>& shutdown : shutdowns) shutdown.wait();
}

std::chrono::milliseconds Library::LongestRequestTimeout() const {
  unsigned longest = 0;
  for (const auto& server : servers_) longest = std::max(longest, server->settings.request_timeout_ms);
  return std::chrono::milliseconds(longest);
}

bool Library::SetServerStatus(const std::string& ip, bool in_service) {
  for (const auto& server : servers_) {
    const auto names = [&](const std::string& address) { return SameIp(address, ip); };
    if (std::none_of(server->addresses.begin(), server->addresses.end(), names)) continue;
    {
      const std::lock_guard<BriefMutex> lock(mutex_);
      if (state_ != State::kRunning) return false;
      in_service ? server->stats.PutInService() : server->stats.PutOutOfService();
    }
    KELVARO_LOG(*logger_, INFO_LOG_LEVEL, server->settings.mac, in_service ? "Put into service" : "Put out of service");
    return true;
  }
  return false;
}

bool Library::GetStats(JSR309Stats& stats) {
  MediaSessionStatsMap per_server;
  const std::lock_guard<BriefMutex> lock(mutex_);
  if (state_ != State::kRunning) return false;
  MediaSessionStats summary = summary_;
  uint64_t capacity = 0;
  summary.PutOutOfService();
  for (const auto& server : servers_) {
    per_server.SetOneStatsItem(server->settings.mac.c_str(), server->stats);
    for (const std::string& address : server->addresses) {
      per_server.AddMacIPPair(server->settings.mac.c_str(), address.c_str());
    }
    capacity += server->stats.GetMediaSessionCapacity();
    if (server->stats.IsInService()) summary.PutInService();
  }
  summary.SetMediaSessionCapacity(capacity);
  stats.SetMediaSessionStats(summary);
  stats.SetMediaSessionStatsPerMediaServer(per_server);
  return true;
}

void Library::ServerLost(Server& server) {
  std::vector<EventLoop::PacedTask> events;
  {
    const std::lock_guard<BriefMutex> lock(mutex_);
    if (server.lost) return;
    server.lost = true;
    ++server.epoch;
    for (Session* session : sessions_) {
      if (session->lost || !session->UsesServer(server)) continue;
      session->lost = true;
      events.push_back([weak = session->weak_from_this()] {
        const auto lost = weak.lock();
        return lost != nullptr && lost->DeliverLost();
      });
    }
  }
  KELVARO_LOG(*logger_, ERROR_LOG_LEVEL, server.settings.mac,
              "Media server lost, sessions affected: " + std::to_string(events.size()));
  events_.PostPaced(std::move(events));
}

void Library::ServerBack(Server& server) {
  {
    const std::lock_guard<BriefMutex> lock(mutex_);
    if (!server.lost) return;
    server.lost = false;
  }
  KELVARO_LOG(*logger_, INFO_LOG_LEVEL, server.settings.mac, "Media server back");
}

}  // namespace kelvaro::jsr309
