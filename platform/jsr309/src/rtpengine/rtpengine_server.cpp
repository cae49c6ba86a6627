#include "rtpengine/rtpengine_server.h"

#include "rtpengine/rtpengine_unsupported.h"

#include <algorithm>
#include <utility>

namespace kelvaro::jsr309::rtpengine {
RtpengineServer::RtpengineServer(const MediaServerSettings& settings, const RtpengineSettings& own,
                                 std::shared_ptr<RtpengineBooks> books, MediaServerObserver& observer,
                                 std::shared_ptr<GuardedLogger> logger)
    : observer_(observer),
      context_(std::make_shared<RtpengineContext>(settings, own, std::move(books), static_cast<DaemonListener&>(*this),
                                                  std::move(logger))) {}

bool RtpengineServer::Start(std::string& reason) {
  if (!context_->Start(reason)) return false;
  NameIgnoredElements(*context_);
  return true;
}

std::shared_ptr<ServerSession> RtpengineServer::CreateSession() {
  if (!IsAlive()) return nullptr;
  return std::make_shared<RtpengineSession>(context_);
}

void RtpengineServer::OnDaemonBack() {
  context_->EndFormerCalls();
  // The first return is how every daemon begins.
  if (std::exchange(was_lost_, false)) observer_.OnServerBack();
}

void RtpengineServer::OnDaemonLost(const std::string& why) {
  was_lost_ = true;
  context_->Log(WARN_LOG_LEVEL, context_->Name() + ": " + why);
  observer_.OnServerLost();
}

std::shared_ptr<ServerEndpoint> RtpengineSession::CreateEndpoint(std::weak_ptr<RtpTimeoutSink> sink) {
  auto endpoint = std::make_shared<RtpengineEndpoint>(context_, book_, std::move(sink));
  if (!context_->IsAlive()) {
    context_->Log(WARN_LOG_LEVEL, "Refused endpoint: " + context_->Name() + " is lost");
    return nullptr;
  }
  const std::lock_guard<std::mutex> lock(context_->books().mutex);
  if (book_->ended) return nullptr;
  book_->endpoints.push_back(endpoint);
  return endpoint;
}

bool RtpengineSession::ImportEndpoint(const std::shared_ptr<ServerEndpoint>& endpoint) {
  if (std::static_pointer_cast<RtpengineEndpoint>(endpoint)->MoveTo(book_)) return true;
  context_->Log(ERROR_LOG_LEVEL, "Refused import: the endpoint or the session has ended");
  return false;
}

void RtpengineSession::Release() {
  const std::lock_guard<std::mutex> lock(context_->books().mutex);
  book_->ended = true;
}

}  // namespace kelvaro::jsr309::rtpengine
