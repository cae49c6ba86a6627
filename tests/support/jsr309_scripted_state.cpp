#include "support/jsr309_scripted_state.h"

namespace test_support {

using kelvaro::jsr309::MediaServerObserver;
using kelvaro::jsr309::MediaServerSettings;
using kelvaro::jsr309::RtpTimeoutSink;

size_t ScriptedState::AddServer(const MediaServerSettings& settings, MediaServerObserver& observer) {
  const std::lock_guard<std::mutex> lock(mutex_);
  servers_.push_back(std::make_unique<Server>());
  servers_.back()->settings = settings;
  servers_.back()->observer = &observer;
  return servers_.size() - 1;
}

bool ScriptedState::Open(size_t server) {
  ScriptedCall call{ScriptedOperation::kOpen};
  call.server = server;
  return Perform(call, [&] { return closed_macs_.erase(servers_[server]->settings.mac) == 0; });
}

bool ScriptedState::IsAlive(size_t server) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return servers_[server]->alive && !servers_[server]->shut_down;
}

const MediaServerSettings& ScriptedState::Settings(size_t server) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return servers_[server]->settings;
}

void ScriptedState::Shutdown(size_t server) {
  ScriptedCall call{ScriptedOperation::kShutdown};
  call.server = server;
  Perform(call, [&] {
    servers_[server]->shut_down = true;
    servers_[server]->observer = nullptr;
    for (auto& [number, session] : sessions_) {
      if (session.server == server) CloseSession(number);
    }
    for (auto& [number, endpoint] : endpoints_) {
      if (endpoint.server == server) CloseEndpoint(number);
    }
    return true;
  });
}

unsigned ScriptedState::CreateSession(size_t server) {
  ScriptedCall call{ScriptedOperation::kCreateSession};
  call.server = server;
  unsigned number = 0;
  Perform(call, [&] {
    if (!servers_[server]->alive || servers_[server]->shut_down) return false;
    number = static_cast<unsigned>(sessions_.size()) + 1;
    sessions_[number].server = server;
    return true;
  });
  return number;
}

void ScriptedState::ReleaseSession(unsigned session) {
  ScriptedCall call{ScriptedOperation::kReleaseSession};
  call.session = session;
  Perform(call, [&] {
    CloseSession(session);
    return true;
  });
}

unsigned ScriptedState::CreateEndpoint(unsigned session, std::weak_ptr<RtpTimeoutSink> sink) {
  ScriptedCall call{ScriptedOperation::kCreateEndpoint};
  call.session = session;
  unsigned number = 0;
  Perform(call, [&] {
    const Session& place = sessions_[session];
    if (!place.open || !servers_[place.server]->alive) return false;
    number = static_cast<unsigned>(endpoints_.size()) + 1;
    Endpoint& endpoint = endpoints_[number];
    endpoint.server = place.server;
    endpoint.session = session;
    endpoint.sink = std::move(sink);
    return true;
  });
  return number;
}

bool ScriptedState::ImportEndpoint(unsigned session, unsigned endpoint) {
  ScriptedCall call{ScriptedOperation::kImportEndpoint};
  call.session = session;
  call.endpoint = endpoint;
  return Perform(call, [&] {
    if (!sessions_[session].open || !EndpointAnswers(endpoint)) return false;
    endpoints_[endpoint].session = session;
    DissolveJoins(endpoint, session);
    return true;
  });
}

bool ScriptedState::Describe(ScriptedOperation operation, unsigned endpoint, MediaConfig& config) {
  ScriptedCall call{operation};
  call.endpoint = endpoint;
  call.config = config;
  std::function<void(MediaConfig&)> answer;
  const bool described = Perform(call, [&] {
    if (!EndpointAnswers(endpoint)) return false;
    const auto found = answers_.find(operation);
    if (found != answers_.end()) answer = found->second;
    const bool image =
        operation == ScriptedOperation::kGetLocalImageConfig || operation == ScriptedOperation::kGetRemoteImageConfig;
    if (image) return answer != nullptr;
    const bool new_port =
        operation == ScriptedOperation::kGetLocalAnswer && config.GetAutoLocalPortRenew().value_or(false);
    FillInDescription(endpoints_[endpoint], config, new_port);
    return true;
  });
  if (described && answer) answer(config);
  return described;
}

bool ScriptedState::Accept(ScriptedOperation operation, unsigned endpoint, const MediaConfig* config) {
  ScriptedCall call{operation};
  call.endpoint = endpoint;
  if (config != nullptr) call.config = *config;
  return Perform(call, [&] { return EndpointAnswers(endpoint); });
}

bool ScriptedState::GetReports(unsigned endpoint, std::vector<kelvaro::jsr309::RtcpStatsReport>& reports) {
  ScriptedCall call{ScriptedOperation::kGetRtcpStatsReport};
  call.endpoint = endpoint;
  return Perform(call, [&] {
    if (!EndpointAnswers(endpoint)) return false;
    reports = reports_;
    return true;
  });
}

bool ScriptedState::Join(unsigned endpoint, unsigned other, Direction direction) {
  ScriptedCall call{ScriptedOperation::kJoin};
  call.endpoint = endpoint;
  call.other = other;
  call.direction = direction;
  const bool joined = Perform(call, [&] {
    if (!EndpointAnswers(endpoint) || !EndpointAnswers(other)) return false;
    if (endpoints_[endpoint].session != endpoints_[other].session) return false;
    DissolveJoins(endpoint);
    DissolveJoins(other);
    joins_[{endpoint, other}] = direction;
    return true;
  });
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto left_over = FindJoin(endpoint, other);
  if (!joined && left_over != joins_.end()) joins_.erase(left_over);
  return joined;
}

bool ScriptedState::Unjoin(unsigned endpoint, unsigned other) {
  ScriptedCall call{ScriptedOperation::kUnjoin};
  call.endpoint = endpoint;
  call.other = other;
  return Perform(call, [&] {
    const auto join = FindJoin(endpoint, other);
    if (!EndpointAnswers(endpoint) || join == joins_.end()) return false;
    joins_.erase(join);
    return true;
  });
}

bool ScriptedState::EndEndpoint(ScriptedOperation operation, unsigned endpoint) {
  ScriptedCall call{operation};
  call.endpoint = endpoint;
  return Perform(call, [&] {
    const bool answers = EndpointAnswers(endpoint);
    CloseEndpoint(endpoint);
    return answers;
  });
}

bool ScriptedState::Perform(ScriptedCall call, const Request& request) {
  RunMeanwhile(call.operation);
  std::unique_lock<std::mutex> lock(mutex_);
  if (call.endpoint != 0) {
    call.server = endpoints_[call.endpoint].server;
    if (call.session == 0) call.session = endpoints_[call.endpoint].session;
  } else if (call.session != 0) {
    call.server = sessions_[call.session].server;
  }
  const bool in_time = WaitWhileHeld(lock, call);
  call.result = in_time && !TakeFailure(call.operation) && request();
  calls_.push_back(call);
  changed_.notify_all();
  return call.result;
}

void ScriptedState::RunMeanwhile(ScriptedOperation operation) {
  std::function<void()> work;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    during_[operation].swap(work);
  }
  if (work) work();
}

bool ScriptedState::WaitWhileHeld(std::unique_lock<std::mutex>& lock, const ScriptedCall& call) {
  if (held_.count(call.operation) == 0) return true;
  ++waiting_[call.operation];
  changed_.notify_all();
  const std::chrono::milliseconds limit(servers_[call.server]->settings.request_timeout_ms);
  const bool resumed = changed_.wait_for(lock, limit, [&] { return held_.count(call.operation) == 0; });
  --waiting_[call.operation];
  return resumed;
}

bool ScriptedState::TakeFailure(ScriptedOperation operation) {
  const auto failure = failures_.find(operation);
  if (failure == failures_.end() || failure->second == 0) return false;
  if (failure->second > 0) --failure->second;
  return true;
}

bool ScriptedState::EndpointAnswers(unsigned endpoint) const {
  const auto found = endpoints_.find(endpoint);
  return found != endpoints_.end() && found->second.open && servers_[found->second.server]->alive;
}

void ScriptedState::FillInDescription(Endpoint& endpoint, MediaConfig& config, bool new_port) {
  Server& server = *servers_[endpoint.server];
  if (endpoint.port == 0 || new_port) {
    endpoint.port = static_cast<uint16_t>(server.settings.rtp_port_min + 2 * server.ports_given++);
  }
  config.SetIPAddress(server.settings.addresses.front().c_str());
  if (!server.settings.public_address.empty()) config.SetPublicIPAddress(server.settings.public_address.c_str());
  config.SetRtpPort(endpoint.port);
  config.SetRtcpPort(static_cast<uint16_t>(endpoint.port + 1));
}

void ScriptedState::CloseEndpoint(unsigned endpoint) {
  DissolveJoins(endpoint);
  endpoints_[endpoint].open = false;
  endpoints_[endpoint].sink.reset();
}

void ScriptedState::CloseSession(unsigned session) {
  sessions_[session].open = false;
  for (auto& [number, endpoint] : endpoints_) {
    if (endpoint.session == session) CloseEndpoint(number);
  }
}

void ScriptedState::DissolveJoins(unsigned endpoint, std::optional<unsigned> except_session) {
  for (auto join = joins_.begin(); join != joins_.end();) {
    const auto [first, second] = join->first;
    const unsigned partner = first == endpoint ? second : first;
    const bool concerned = first == endpoint || second == endpoint;
    const bool kept = except_session && endpoints_[partner].session == *except_session;
    join = concerned && !kept ? joins_.erase(join) : std::next(join);
  }
}

std::map<std::pair<unsigned, unsigned>, ScriptedState::Direction>::iterator ScriptedState::FindJoin(unsigned endpoint,
                                                                                                    unsigned other) {
  const auto join = joins_.find({endpoint, other});
  return join != joins_.end() ? join : joins_.find({other, endpoint});
}

}  // namespace test_support
