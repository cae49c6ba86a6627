#include "session.h"

#include "endpoint.h"

#include <algorithm>

namespace kelvaro::jsr309 {

Session::Session(std::shared_ptr<Library> library_in, Server& server_in, std::shared_ptr<ServerSession> peer,
                 Clock::TimePoint started_in)
    : library(std::move(library_in)),
      server(server_in),
      number(library->NextNumber()),
      log_id("session-" + std::to_string(number)),
      started(started_in),
      peer_(std::move(peer)) {}

std::shared_ptr<Endpoint> Session::CreateEndpoint(const char* endpoint_log_id) {
  uint64_t epoch = 0;
  {
    const std::lock_guard<BriefMutex> lock(library->mutex());
    if (ended || lost) return nullptr;
    epoch = server.epoch;
  }
  auto endpoint = std::make_shared<Endpoint>(library, server, epoch, endpoint_log_id);
  endpoint->peer = peer_->CreateEndpoint(endpoint);
  if (endpoint->peer == nullptr) {
    KELVARO_LOG(library->logger(), WARN_LOG_LEVEL, log_id,
                "The media server " + server.settings.mac + " gave no endpoint");
    return nullptr;
  }
  bool entered = false;
  {
    const std::lock_guard<BriefMutex> lock(library->mutex());
    if (!ended && !lost) {
      endpoint->session = shared_from_this();
      endpoint->open = true;
      endpoint->handles = 1;
      endpoints.push_back(endpoint);
      entered = true;
    }
  }
  if (!entered) {
    endpoint->peer->Release();
    return nullptr;
  }
  KELVARO_LOG(library->logger(), DEBUG_LOG_LEVEL, log_id, "Endpoint " + endpoint->log_id + " made");
  return endpoint;
}

bool Session::ImportEndpoint(const std::shared_ptr<Endpoint>& endpoint) {
  if (endpoint->library != library) return false;
  if (endpoint->server.driver != server.driver) {
    KELVARO_LOG(library->logger(), ERROR_LOG_LEVEL, log_id,
                "Refused import of endpoint " + endpoint->log_id + ": it is on media server " +
                    endpoint->server.addresses.front() + ", whose driver is not that of " + server.addresses.front());
    return false;
  }
  {
    const std::lock_guard<BriefMutex> lock(library->mutex());
    if (ended || lost || endpoint->importing) return false;
    if (endpoint->session == nullptr || endpoint->session->lost) return false;
    if (endpoint->session.get() == this) return true;
    endpoint->importing = true;
  }
  const bool adopted = peer_->ImportEndpoint(endpoint->peer);

  std::shared_ptr<Session> former = shared_from_this();  // becomes the session it leaves; goes after the lock
  bool moved = false;
  {
    const std::lock_guard<BriefMutex> lock(library->mutex());
    endpoint->importing = false;
    if (adopted && !ended && !lost && endpoint->session != nullptr && !endpoint->IsLost()) {
      former.swap(endpoint->session);
      auto& siblings = former->endpoints;
      siblings.erase(std::find(siblings.begin(), siblings.end(), endpoint));
      endpoints.push_back(endpoint);
      moved = true;
    }
  }
  // Where the server has it and where the books have it must not differ: an endpoint whose session went meanwhile ends.
  if (adopted && !moved) endpoint->Abandon();
  return moved;
}

bool Session::AddListener(const MediaServerLostListenerSharedPtr& listener) {
  if (listener == nullptr) return false;
  const std::lock_guard<BriefMutex> lock(library->mutex());
  if (ended || lost) return false;
  if (std::find(listeners.begin(), listeners.end(), listener) == listeners.end()) listeners.push_back(listener);
  return true;
}

bool Session::RemoveListener(const MediaServerLostListenerSharedPtr& listener) {
  MediaServerLostListenerSharedPtr removed;  // goes after the lock
  const std::lock_guard<BriefMutex> lock(library->mutex());
  return TakeListener(listener, removed);
}

bool Session::TakeListener(const MediaServerLostListenerSharedPtr& listener,
                           MediaServerLostListenerSharedPtr& removed) {
  const auto found = std::find(listeners.begin(), listeners.end(), listener);
  if (found == listeners.end()) return false;
  removed = *found;
  listeners.erase(found);
  return true;
}

bool Session::DeliverLost() {
  std::vector<MediaServerLostListenerSharedPtr> called;
  {
    const std::lock_guard<BriefMutex> lock(library->mutex());
    called = listeners;
  }
  bool told = false;
  for (const MediaServerLostListenerSharedPtr& listener : called) {
    if (!listener->IsListenerEnabled()) continue;
    {
      // It may have been removed while another was called or while it was asked.
      const std::lock_guard<BriefMutex> lock(library->mutex());
      if (std::find(listeners.begin(), listeners.end(), listener) == listeners.end()) continue;
    }
    told = true;
    bool out_delete_listener = false;
    try {
      listener->OnEvent(MediaServerLostEvent(), out_delete_listener);
    } catch (...) {
      KELVARO_LOG(library->logger(), ERROR_LOG_LEVEL, log_id, "A listener for lost servers has thrown");
    }
    if (out_delete_listener) RemoveListener(listener);
  }
  return told;
}

void Session::End() {
  // These may be last references, to objects of the driver and the application: they go after the lock.
  std::vector<std::shared_ptr<Endpoint>> former_endpoints;
  std::vector<RtpTimeoutListenerSharedPtr> former_rtp_listeners;
  std::vector<MediaServerLostListenerSharedPtr> former_listeners;
  const std::shared_ptr<Session> self = shared_from_this();
  {
    const std::lock_guard<BriefMutex> lock(library->mutex());
    if (ended) return;
    ended = true;
    former_endpoints.swap(endpoints);
    former_listeners.swap(listeners);
    for (const auto& endpoint : former_endpoints) {
      former_rtp_listeners.emplace_back().swap(endpoint->listener);
      endpoint->session.reset();  // self still holds the session
      endpoint->open = false;
    }
    library->ForgetSession(*this);
  }
  for (const auto& endpoint : former_endpoints) endpoint->peer->Release();
  peer_->Release();
  KELVARO_LOG(library->logger(), DEBUG_LOG_LEVEL, log_id, "Session ended");
}

bool Session::UsesServer(const Server& other) const {
  return &server == &other || std::any_of(endpoints.begin(), endpoints.end(),
                                          [&](const auto& endpoint) { return &endpoint->server == &other; });
}

}  // namespace kelvaro::jsr309
