#include "handles.h"

#include "endpoint.h"
#include "session.h"

#include <boost/pointer_cast.hpp>

namespace kelvaro::jsr309 {
namespace {

// Null when the other is gone or is no connection of this library.
boost::shared_ptr<NetworkConnectionHandle> Lock(const JoinableWeakPtr& other) {
  return boost::dynamic_pointer_cast<NetworkConnectionHandle>(other.lock());
}

}  // namespace

MediaSessionHandle::MediaSessionHandle(std::shared_ptr<Session> session) : session_(std::move(session)) {}

MediaSessionHandle::~MediaSessionHandle() {
  session_->End();
}

NetworkConnection* MediaSessionHandle::CreateNetworkConnection(const char* log_id) {
  auto endpoint = session_->CreateEndpoint(log_id);
  return endpoint == nullptr ? nullptr : new NetworkConnectionHandle(std::move(endpoint));
}

NetworkConnection* MediaSessionHandle::ImportNetworkConnection(NetworkConnectionSharedPtr connection) {
  const auto handle = boost::dynamic_pointer_cast<NetworkConnectionHandle>(connection);
  if (handle == nullptr || !session_->ImportEndpoint(handle->endpoint())) return nullptr;
  return handle->endpoint()->AddHandle() ? new NetworkConnectionHandle(handle->endpoint()) : nullptr;
}

bool MediaSessionHandle::AddListener(const MediaServerLostListenerSharedPtr& listener) {
  return session_->AddListener(listener);
}

bool MediaSessionHandle::RemoveListener(const MediaServerLostListenerSharedPtr& listener) {
  return session_->RemoveListener(listener);
}

NetworkConnectionHandle::NetworkConnectionHandle(std::shared_ptr<Endpoint> endpoint) : endpoint_(std::move(endpoint)) {}

NetworkConnectionHandle::~NetworkConnectionHandle() {
  endpoint_->DropHandle();
}

bool NetworkConnectionHandle::GetLocalOffer(MediaConfig& config) {
  return endpoint_->Fill("make a local offer", &ServerEndpoint::GetLocalOffer, config);
}

bool NetworkConnectionHandle::GetLocalAnswer(MediaConfig& config) {
  return endpoint_->Fill("make a local answer", &ServerEndpoint::GetLocalAnswer, config);
}

bool NetworkConnectionHandle::SetRemoteOffer(const MediaConfig& config) {
  return endpoint_->Apply("take the remote offer", &ServerEndpoint::SetRemoteOffer, config);
}

bool NetworkConnectionHandle::SetRemoteAnswer(const MediaConfig& config) {
  return endpoint_->Apply("take the remote answer", &ServerEndpoint::SetRemoteAnswer, config);
}

bool NetworkConnectionHandle::SetRemoteAddressDetection() {
  return endpoint_->DetectRemoteAddress();
}

bool NetworkConnectionHandle::GetLocalImageConfig(MediaConfig& config) {
  return endpoint_->Fill("describe the local image stream", &ServerEndpoint::GetLocalImageConfig, config);
}

bool NetworkConnectionHandle::GetRemoteImageConfig(MediaConfig& config) {
  return endpoint_->Fill("describe the remote image stream", &ServerEndpoint::GetRemoteImageConfig, config);
}

void NetworkConnectionHandle::Close() {
  endpoint_->Close();
}

bool NetworkConnectionHandle::Join(Direction direction, const JoinableWeakPtr& other) {
  const auto handle = Lock(other);
  return handle != nullptr && endpoint_->Join(direction, handle->endpoint());
}

bool NetworkConnectionHandle::Unjoin(const JoinableWeakPtr& other) {
  const auto handle = Lock(other);
  return handle != nullptr && endpoint_->Unjoin(handle->endpoint());
}

bool NetworkConnectionHandle::GetRtcpStatsReport(std::vector<RtcpStatsReport>& reports) {
  return endpoint_->GetReports(reports);
}

bool NetworkConnectionHandle::AddListener(const RtpTimeoutListenerSharedPtr& listener) {
  return endpoint_->AddListener(listener);
}

bool NetworkConnectionHandle::RemoveListener() {
  return endpoint_->RemoveListener();
}

}  // namespace kelvaro::jsr309
