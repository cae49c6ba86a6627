#include "embedded/embedded_server.h"

#include "embedded/embedded_endpoint.h"

#include <algorithm>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

namespace kelvaro::jsr309 {
namespace {

/// The servers that run, for the fault switch.
struct RunningServers {
  std::mutex mutex;
  std::set<EmbeddedServer*> servers;  // guarded by mutex
};

RunningServers& Running() {
  static RunningServers running;
  return running;
}

/// More threads than that do not help before the network card is the bottleneck.
constexpr unsigned kMostThreadsByDefault = 4;

unsigned ThreadsFor(unsigned wanted) {
  if (wanted != 0) return wanted;
  return std::clamp(std::thread::hardware_concurrency(), 1u, kMostThreadsByDefault);
}

}  // namespace

EmbeddedServer::EmbeddedServer(const MediaServerSettings& settings, MediaServerObserver& observer,
                               std::shared_ptr<GuardedLogger> logger)
    : settings_(settings),
      observer_(observer),
      context_(std::make_shared<EmbeddedContext>(settings.mac, std::chrono::milliseconds(settings.request_timeout_ms),
                                                 std::move(logger))) {}

EmbeddedServer::~EmbeddedServer() {
  RunningServers& running = Running();
  const std::lock_guard<std::mutex> lock(running.mutex);
  running.servers.erase(this);
}

bool EmbeddedServer::Start(media_engine::Engine& engine, const EmbeddedSettings& embedded, std::string& reason) {
  media_engine::ServerConfig config;
  config.addresses = settings_.addresses;
  config.public_address = settings_.public_address;
  config.rtp_port_min = settings_.rtp_port_min;
  config.rtp_port_max = settings_.rtp_port_max;
  config.threads = ThreadsFor(settings_.threads);
  config.heartbeat = embedded.heartbeat;
  config.port_quarantine = embedded.port_quarantine;
  config.coalescing = embedded.coalescing;
  config.log = [context = context_](media_engine::LogLevel level, const std::string& text) {
    context->Log(level, text);
  };
  media_engine::Outcome outcome;
  server_ = engine.OpenServer(config, this, outcome);
  if (!server_) {
    reason = outcome.reason;
    return false;
  }
  WarnOfFewPorts();
  RunningServers& running = Running();
  const std::lock_guard<std::mutex> lock(running.mutex);
  running.servers.insert(this);
  return true;
}

void EmbeddedServer::WarnOfFewPorts() const {
  const std::size_t first = settings_.rtp_port_min + settings_.rtp_port_min % 2u;
  const std::size_t pairs = (settings_.rtp_port_max - first + 1) / 2;
  if (pairs >= 2 * settings_.capacity) return;
  context_->Log(media_engine::LogLevel::kNotice, "RTP ports " + std::to_string(settings_.rtp_port_min) + "-" +
                                                     std::to_string(settings_.rtp_port_max) + " serve " +
                                                     std::to_string(pairs) + " endpoints: fewer than " +
                                                     std::to_string(settings_.capacity) + " sessions of two need");
}

std::shared_ptr<ServerSession> EmbeddedServer::CreateSession() {
  media_engine::Outcome outcome;
  auto session = server_->CreateSession(outcome);
  if (session) return std::make_shared<EmbeddedSession>(context_, std::move(session));
  context_->Log(media_engine::LogLevel::kWarning, "Refused session: " + outcome.reason);
  return nullptr;
}

void EmbeddedServer::Shutdown(std::chrono::milliseconds limit) {
  server_->Shutdown(limit);
}

bool StallEmbeddedServer(const std::string& address, unsigned worker, bool stalled) {
  RunningServers& running = Running();
  const std::lock_guard<std::mutex> lock(running.mutex);
  for (EmbeddedServer* server : running.servers) {
    if (server->settings_.addresses.front() != address || worker >= server->server_->threads()) continue;
    server->server_->StallWorker(worker, stalled);
    return true;
  }
  return false;
}

}  // namespace kelvaro::jsr309
