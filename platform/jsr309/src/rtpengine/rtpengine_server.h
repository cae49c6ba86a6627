/// One configured rtpengine daemon and the sessions on it.
#pragma once

#include "rtpengine/rtpengine_context.h"
#include "rtpengine/rtpengine_endpoint.h"

#include <memory>
#include <string>
#include <vector>

namespace kelvaro::jsr309::rtpengine {

class RtpengineServer : public MediaServer, private DaemonListener {
 public:
  RtpengineServer(const MediaServerSettings& settings, const RtpengineSettings& own,
                  std::shared_ptr<RtpengineBooks> books, MediaServerObserver& observer,
                  std::shared_ptr<GuardedLogger> logger);

  /// Once, before anything else; does not wait. False, with nothing left behind, when the system gives no socket or
  /// thread.
  bool Start(std::string& reason);
  const std::shared_ptr<RtpengineContext>& context() const { return context_; }

  bool IsAlive() const override { return context_->IsAlive(); }
  std::vector<std::string> Addresses() const override { return context_->settings().addresses; }
  std::size_t Capacity() const override { return context_->settings().capacity; }
  std::shared_ptr<ServerSession> CreateSession() override;
  void Shutdown(std::chrono::milliseconds limit) override { context_->Stop(limit); }

 private:
  void OnDaemonBack() override;
  void OnDaemonLost(const std::string& why) override;

  MediaServerObserver& observer_;
  bool was_lost_ = false;  // control thread only
  const std::shared_ptr<RtpengineContext> context_;
};

class RtpengineSession : public ServerSession {
 public:
  explicit RtpengineSession(std::shared_ptr<RtpengineContext> context)
      : context_(std::move(context)), book_(std::make_shared<RtpengineSessionBook>()) {}

  std::shared_ptr<ServerEndpoint> CreateEndpoint(std::weak_ptr<RtpTimeoutSink> sink) override;
  bool ImportEndpoint(const std::shared_ptr<ServerEndpoint>& endpoint) override;
  void Release() override;

 private:
  const std::shared_ptr<RtpengineContext> context_;
  const std::shared_ptr<RtpengineSessionBook> book_;
};

}  // namespace kelvaro::jsr309::rtpengine
