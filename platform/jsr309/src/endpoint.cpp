#include "endpoint.h"

#include "session.h"

#include <algorithm>

namespace kelvaro::jsr309 {

Endpoint::Endpoint(std::shared_ptr<Library> library_in, Server& server_in, uint64_t epoch, const char* log_id_in)
    : library(std::move(library_in)),
      server(server_in),
      server_epoch(epoch),
      number(library->NextNumber()),
      log_id(log_id_in != nullptr ? log_id_in : "connection-" + std::to_string(number)) {}

bool Endpoint::Fill(const char* what, ConfigRequest request, MediaConfig& config) {
  MediaConfig filled = config;
  if (!Ask(what, [&](ServerEndpoint& endpoint) { return (endpoint.*request)(filled); })) return false;
  config = std::move(filled);
  return true;
}

bool Endpoint::Apply(const char* what, ConstConfigRequest request, const MediaConfig& config) {
  return Ask(what, [&](ServerEndpoint& endpoint) { return (endpoint.*request)(config); });
}

bool Endpoint::DetectRemoteAddress() {
  return Ask("set remote address detection",
             [](ServerEndpoint& endpoint) { return endpoint.SetRemoteAddressDetection(); });
}

bool Endpoint::GetReports(std::vector<RtcpStatsReport>& reports) {
  std::vector<RtcpStatsReport> fetched;
  if (!Ask("get RTCP statistics", [&](ServerEndpoint& endpoint) { return endpoint.GetRtcpStatsReport(fetched); })) {
    return false;
  }
  reports = std::move(fetched);
  return true;
}

bool Endpoint::Join(Direction direction, const std::shared_ptr<Endpoint>& other) {
  if (direction < kDuplex || direction > kDisable) return false;
  return AskPair("join", other, [&] { return peer->Join(direction, other->peer); });
}

bool Endpoint::Unjoin(const std::shared_ptr<Endpoint>& other) {
  return AskPair("unjoin", other, [&] { return peer->Unjoin(other->peer); });
}

bool Endpoint::Ask(const char* what, const std::function<bool(ServerEndpoint&)>& request) {
  if (!Usable()) return false;
  if (request(*peer)) return true;
  LogRefusal(what);
  return false;
}

bool Endpoint::AskPair(const char* what, const std::shared_ptr<Endpoint>& other, const std::function<bool()>& request) {
  if (other.get() == this) return false;
  {
    const std::lock_guard<BriefMutex> lock(library->mutex());
    if (!Usable() || session != other->session || !other->Usable()) return false;
  }
  if (request()) return true;
  LogRefusal(what);
  return false;
}

bool Endpoint::AddListener(const RtpTimeoutListenerSharedPtr& listener_in) {
  if (listener_in == nullptr) return false;
  RtpTimeoutListenerSharedPtr former;  // goes after the lock
  const std::lock_guard<BriefMutex> lock(library->mutex());
  if (!Usable() || session->lost) return false;
  former.swap(listener);
  listener = listener_in;
  return true;
}

bool Endpoint::RemoveListener() {
  RtpTimeoutListenerSharedPtr former;  // goes after the lock
  const std::lock_guard<BriefMutex> lock(library->mutex());
  former.swap(listener);
  return former != nullptr;
}

void Endpoint::OnRtpTimeout(bool had_media) {
  library->events().Post([weak = weak_from_this(), had_media] {
    if (const auto endpoint = weak.lock()) endpoint->DeliverTimeout(had_media);
  });
}

void Endpoint::DeliverTimeout(bool had_media) {
  RtpTimeoutListenerSharedPtr called;
  {
    const std::lock_guard<BriefMutex> lock(library->mutex());
    called = listener;
  }
  if (called == nullptr || !called->IsListenerEnabled()) return;
  {
    // It may have been removed while it was asked.
    const std::lock_guard<BriefMutex> lock(library->mutex());
    if (called != listener) return;
  }
  called->OnEvent(RtpTimeoutEvent(number, had_media));
}

bool Endpoint::AddHandle() {
  const std::lock_guard<BriefMutex> lock(library->mutex());
  if (session == nullptr) return false;
  ++handles;
  return true;
}

void Endpoint::DropHandle() {
  if (--handles == 0 && open) End(false);
}

void Endpoint::End(bool wait) {
  // These may be last references, to objects of the driver and the application: they go after the lock.
  std::shared_ptr<Session> former_session;
  std::shared_ptr<Endpoint> self = shared_from_this();
  RtpTimeoutListenerSharedPtr former_listener;
  bool lost = false;
  {
    const std::lock_guard<BriefMutex> lock(library->mutex());
    if (session == nullptr) return;
    former_session.swap(session);
    open = false;
    former_listener.swap(listener);
    auto& siblings = former_session->endpoints;
    siblings.erase(std::find(siblings.begin(), siblings.end(), self));
    lost = IsLost();
  }
  KELVARO_LOG(library->logger(), DEBUG_LOG_LEVEL, log_id, "Endpoint ended");
  // Nobody waits for a server that is known to be gone.
  if (!wait || lost) {
    peer->Release();
  } else if (!peer->Close()) {
    LogRefusal("close");
  }
}

void Endpoint::LogRefusal(const char* what) {
  KELVARO_LOG(library->logger(), WARN_LOG_LEVEL, log_id,
              std::string("The media server did not ") + what + " on " + server.settings.mac);
}

}  // namespace kelvaro::jsr309
