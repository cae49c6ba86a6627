#include "support/scripted_media_server.h"

#include "kelvaro/jsr309/driver.h"

#include "support/jsr309_recording_listeners.h"
#include "support/jsr309_scripted_state.h"
#include "support/process_scratch.h"

#include <atomic>
#include <cstdio>
#include <fstream>
#include <stdexcept>

#include <unistd.h>

namespace test_support {
namespace {

using kelvaro::jsr309::Direction;

std::string WriteTemporaryFile(const std::string& content) {
  const std::string path = scratch_file("media_servers.xml").string();
  std::ofstream(path) << content;
  return path;
}

std::string MacOf(size_t server) {
  char mac[18];
  std::snprintf(mac, sizeof(mac), "02:00:00:00:%02X:%02X", static_cast<unsigned>((server + 1) >> 8 & 0xff),
                static_cast<unsigned>((server + 1) & 0xff));
  return mac;
}

std::string AddressOf(size_t server, unsigned network) {
  return "127.0." + std::to_string(network) + "." + std::to_string(server + 1);
}

std::string Element(const std::string& name, const std::string& content) {
  return "<" + name + ">" + content + "</" + name + ">\n";
}

std::string ServerElement(const ScriptedOptions& options, const std::string& driver, size_t server) {
  std::string content = Element("driver", driver) + Element("mac", MacOf(server));
  for (const unsigned network : {1, 2}) content += Element("address", AddressOf(server, network));
  if (server == 0 && !options.public_address.empty()) content += Element("public_address", options.public_address);
  const size_t capacity = server < options.capacities.size() ? options.capacities[server] : options.capacity;
  content += Element("capacity", std::to_string(capacity)) + options.extra_server_elements;
  return Element("media_server", content);
}

std::string ConfigurationFile(const ScriptedOptions& options, const std::string& driver) {
  std::string servers = Element("request_timeout_ms", std::to_string(options.request_timeout_ms)) +
                        Element("lost_events_per_second", std::to_string(options.lost_events_per_second));
  for (size_t i = 0; i < options.servers; ++i) servers += ServerElement(options, driver, i);
  servers += options.more_servers;
  const std::string media = Element("media", Element("codec", Element("audio", options.audio_codecs)));
  return Element("jsr309", media + Element("media_servers", servers));
}

std::string FreshDriverName() {
  static std::atomic<unsigned> count{0};
  return "scripted-" + std::to_string(++count);
}

Direction Reversed(Direction direction) {
  if (direction == kelvaro::jsr309::kReceive) return kelvaro::jsr309::kSend;
  return direction == kelvaro::jsr309::kSend ? kelvaro::jsr309::kReceive : direction;
}

}  // namespace

const char* Name(ScriptedOperation operation) {
  static constexpr const char* kNames[] = {"Open",
                                           "CreateSession",
                                           "CreateEndpoint",
                                           "ImportEndpoint",
                                           "GetLocalOffer",
                                           "GetLocalAnswer",
                                           "SetRemoteOffer",
                                           "SetRemoteAnswer",
                                           "SetRemoteAddressDetection",
                                           "GetLocalImageConfig",
                                           "GetRemoteImageConfig",
                                           "GetRtcpStatsReport",
                                           "Join",
                                           "Unjoin",
                                           "Close",
                                           "Release",
                                           "ReleaseSession",
                                           "Shutdown"};
  return kNames[static_cast<size_t>(operation)];
}

std::ostream& operator<<(std::ostream& out, ScriptedOperation operation) {
  return out << Name(operation);
}

ScriptedMediaServers::ScriptedMediaServers(const ScriptedOptions& options)
    : state_(std::make_shared<ScriptedState>()), driver_name_(FreshDriverName()) {
  kelvaro::jsr309::RegisterMediaServerDriver(driver_name_, [state = state_] { return MakeScriptedDriver(state); });
  config_path_ = WriteTemporaryFile(ConfigurationFile(options, driver_name_));
}

ScriptedMediaServers::~ScriptedMediaServers() {
  kelvaro::jsr309::UnregisterMediaServerDriver(driver_name_);
  std::remove(config_path_.c_str());
}

std::string ScriptedMediaServers::Address(size_t server) const {
  return AddressOf(server, 1);
}

std::string ScriptedMediaServers::Mac(size_t server) const {
  return MacOf(server);
}

void ScriptedMediaServers::Fail(ScriptedOperation operation, int times) {
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  state_->failures_[operation] = times;
}

void ScriptedMediaServers::Succeed(ScriptedOperation operation) {
  Fail(operation, 0);
}

void ScriptedMediaServers::FailOpen(size_t server) {
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  state_->closed_macs_.insert(MacOf(server));
}

void ScriptedMediaServers::Answer(ScriptedOperation operation,
                                  std::function<void(kelvaro::jsr309::MediaConfig&)> fill_in) {
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  state_->answers_[operation] = std::move(fill_in);
}

void ScriptedMediaServers::AnswerReports(std::vector<kelvaro::jsr309::RtcpStatsReport> reports) {
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  state_->reports_ = std::move(reports);
}

void ScriptedMediaServers::Hold(ScriptedOperation operation) {
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  state_->held_.insert(operation);
}

void ScriptedMediaServers::Resume(ScriptedOperation operation) {
  {
    const std::lock_guard<std::mutex> lock(state_->mutex_);
    state_->held_.erase(operation);
  }
  state_->changed_.notify_all();
}

bool ScriptedMediaServers::WaitForHeld(ScriptedOperation operation) {
  std::unique_lock<std::mutex> lock(state_->mutex_);
  return state_->changed_.wait_for(lock, kPatience, [&] { return state_->waiting_[operation] > 0; });
}

void ScriptedMediaServers::During(ScriptedOperation operation, std::function<void()> work) {
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  state_->during_[operation] = std::move(work);
}

bool ScriptedMediaServers::FireRtpTimeout(unsigned endpoint, bool had_media) {
  std::shared_ptr<kelvaro::jsr309::RtpTimeoutSink> sink;
  {
    const std::lock_guard<std::mutex> lock(state_->mutex_);
    const auto found = state_->endpoints_.find(endpoint);
    if (found != state_->endpoints_.end()) sink = found->second.sink.lock();
  }
  if (sink == nullptr) return false;
  sink->OnRtpTimeout(had_media);
  return true;
}

void ScriptedMediaServers::Lose(size_t server, bool report) {
  kelvaro::jsr309::MediaServerObserver* observer = nullptr;
  {
    const std::lock_guard<std::mutex> lock(state_->mutex_);
    state_->servers_.at(server)->alive = false;
    for (auto& [number, session] : state_->sessions_) {
      if (session.server == server) session.open = false;
    }
    for (auto& [number, endpoint] : state_->endpoints_) {
      if (endpoint.server == server) state_->CloseEndpoint(number);
    }
    observer = state_->servers_[server]->observer;
  }
  if (report && observer != nullptr) observer->OnServerLost();
}

void ScriptedMediaServers::ReportLost(size_t server) {
  kelvaro::jsr309::MediaServerObserver* observer = nullptr;
  {
    const std::lock_guard<std::mutex> lock(state_->mutex_);
    observer = state_->servers_.at(server)->observer;
  }
  if (observer != nullptr) observer->OnServerLost();
}

void ScriptedMediaServers::Return(size_t server) {
  kelvaro::jsr309::MediaServerObserver* observer = nullptr;
  {
    const std::lock_guard<std::mutex> lock(state_->mutex_);
    state_->servers_.at(server)->alive = true;
    observer = state_->servers_[server]->observer;
  }
  if (observer != nullptr) observer->OnServerBack();
}

std::vector<ScriptedCall> ScriptedMediaServers::Calls() const {
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  return state_->calls_;
}

std::vector<ScriptedCall> ScriptedMediaServers::Calls(ScriptedOperation operation) const {
  std::vector<ScriptedCall> calls;
  for (ScriptedCall& call : Calls()) {
    if (call.operation == operation) calls.push_back(std::move(call));
  }
  return calls;
}

std::vector<ScriptedOperation> ScriptedMediaServers::Operations() const {
  std::vector<ScriptedOperation> operations;
  for (const ScriptedCall& call : Calls()) operations.push_back(call.operation);
  return operations;
}

void ScriptedMediaServers::ForgetCalls() {
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  state_->calls_.clear();
}

unsigned ScriptedMediaServers::LastEndpoint() const {
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  return state_->endpoints_.empty() ? 0 : state_->endpoints_.rbegin()->first;
}

std::vector<unsigned> ScriptedMediaServers::OpenEndpoints() const {
  std::vector<unsigned> open;
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  for (const auto& [number, endpoint] : state_->endpoints_) {
    if (endpoint.open) open.push_back(number);
  }
  return open;
}

size_t ScriptedMediaServers::OpenSessions() const {
  size_t open = 0;
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  for (const auto& [number, session] : state_->sessions_) open += session.open ? 1 : 0;
  return open;
}

unsigned ScriptedMediaServers::SessionOf(unsigned endpoint) const {
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  const auto found = state_->endpoints_.find(endpoint);
  return found != state_->endpoints_.end() && found->second.open ? found->second.session : 0;
}

std::optional<Direction> ScriptedMediaServers::JoinOf(unsigned endpoint, unsigned other) const {
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  const auto join = state_->FindJoin(endpoint, other);
  if (join == state_->joins_.end()) return std::nullopt;
  return join->first.first == endpoint ? join->second : Reversed(join->second);
}

uint16_t ScriptedMediaServers::PortOf(unsigned endpoint) const {
  const std::lock_guard<std::mutex> lock(state_->mutex_);
  const auto found = state_->endpoints_.find(endpoint);
  return found == state_->endpoints_.end() ? 0 : found->second.port;
}

}  // namespace test_support
