/// What the application holds: handles on sessions and endpoints. They only pass on.
#pragma once

#include "kelvaro/jsr309/media_session.h"
#include "kelvaro/jsr309/network_connection.h"

#include <memory>
#include <vector>

namespace kelvaro::jsr309 {

class Endpoint;
class Session;

/// Ends its session when it goes.
class MediaSessionHandle final : public MediaSession {
 public:
  explicit MediaSessionHandle(std::shared_ptr<Session> session);
  ~MediaSessionHandle() override;
  MediaSessionHandle(const MediaSessionHandle&) = delete;
  MediaSessionHandle& operator=(const MediaSessionHandle&) = delete;

  NetworkConnection* CreateNetworkConnection(const char* log_id) override;
  NetworkConnection* ImportNetworkConnection(NetworkConnectionSharedPtr connection) override;
  bool AddListener(const MediaServerLostListenerSharedPtr& listener) override;
  bool RemoveListener(const MediaServerLostListenerSharedPtr& listener) override;

 private:
  const std::shared_ptr<Session> session_;
};

/// Counts as one handle of its endpoint from construction to destruction.
class NetworkConnectionHandle final : public NetworkConnection {
 public:
  /// Takes over a handle that was counted with Endpoint::AddHandle, or with which the endpoint came into its session.
  explicit NetworkConnectionHandle(std::shared_ptr<Endpoint> endpoint);
  ~NetworkConnectionHandle() override;
  NetworkConnectionHandle(const NetworkConnectionHandle&) = delete;
  NetworkConnectionHandle& operator=(const NetworkConnectionHandle&) = delete;

  bool GetLocalOffer(MediaConfig& config) override;
  bool GetLocalAnswer(MediaConfig& config) override;
  bool SetRemoteOffer(const MediaConfig& config) override;
  bool SetRemoteAnswer(const MediaConfig& config) override;
  bool SetRemoteAddressDetection() override;
  bool GetLocalImageConfig(MediaConfig& config) override;
  bool GetRemoteImageConfig(MediaConfig& config) override;
  void Close() override;
  bool Join(Direction direction, const JoinableWeakPtr& other) override;
  bool Unjoin(const JoinableWeakPtr& other) override;
  bool GetRtcpStatsReport(std::vector<RtcpStatsReport>& reports) override;
  bool AddListener(const RtpTimeoutListenerSharedPtr& listener) override;
  bool RemoveListener() override;

  const std::shared_ptr<Endpoint>& endpoint() const { return endpoint_; }

 private:
  const std::shared_ptr<Endpoint> endpoint_;
};

}  // namespace kelvaro::jsr309
