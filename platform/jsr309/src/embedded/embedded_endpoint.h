/// Session and endpoint of an embedded media server: the driver seam's terms on the one side, the engine's on the
/// other.
#pragma once

#include "embedded/embedded_context.h"
#include "kelvaro/jsr309/driver.h"
#include "media_engine/engine.h"

#include <memory>
#include <vector>

namespace kelvaro::jsr309 {

class EmbeddedEndpoint : public ServerEndpoint {
 public:
  EmbeddedEndpoint(std::shared_ptr<EmbeddedContext> context, std::shared_ptr<media_engine::Endpoint> endpoint)
      : context_(std::move(context)), endpoint_(std::move(endpoint)) {}

  bool GetLocalOffer(MediaConfig& config) override;
  bool GetLocalAnswer(MediaConfig& config) override;
  bool SetRemoteOffer(const MediaConfig& config) override { return SetRemote("remote offer", config, true); }
  bool SetRemoteAnswer(const MediaConfig& config) override { return SetRemote("remote answer", config, false); }
  bool SetRemoteAddressDetection() override;
  bool GetLocalImageConfig(MediaConfig& config) override;
  bool GetRemoteImageConfig(MediaConfig& config) override;
  bool GetRtcpStatsReport(std::vector<RtcpStatsReport>& reports) override;
  bool Join(Direction direction, const std::shared_ptr<ServerEndpoint>& other) override;
  bool Unjoin(const std::shared_ptr<ServerEndpoint>& other) override;
  bool Close() override;
  void Release() override { endpoint_->Release(); }

  media_engine::Endpoint& engine_endpoint() { return *endpoint_; }

 private:
  bool SetRemote(const char* what, const MediaConfig& config, bool offer);
  /// The outcome as the seam wants it; a refusal is logged.
  bool Report(const char* what, const media_engine::Outcome& outcome) const;

  const std::shared_ptr<EmbeddedContext> context_;
  const std::shared_ptr<media_engine::Endpoint> endpoint_;
};

class EmbeddedSession : public ServerSession {
 public:
  EmbeddedSession(std::shared_ptr<EmbeddedContext> context, std::shared_ptr<media_engine::Session> session)
      : context_(std::move(context)), session_(std::move(session)) {}

  std::shared_ptr<ServerEndpoint> CreateEndpoint(std::weak_ptr<RtpTimeoutSink> sink) override;
  bool ImportEndpoint(const std::shared_ptr<ServerEndpoint>& endpoint) override;
  void Release() override { session_->Release(); }

 private:
  const std::shared_ptr<EmbeddedContext> context_;
  const std::shared_ptr<media_engine::Session> session_;
};

}  // namespace kelvaro::jsr309
