#include "rtpengine/rtpengine_endpoint.h"

#include <algorithm>
#include <utility>

namespace kelvaro::jsr309::rtpengine {

void LegRecord::SetFarEnd(const NgPlace& place) {
  if (place == far_end) return;
  far_end = place;
  found = NgPlace();
  learning = detect;
}

void LegRecord::KeepFound(const LegRecord& latest) {
  if (!(latest.far_end == far_end)) return;
  found = latest.found;
  learning = latest.learning;
}

RtpengineEndpoint::RtpengineEndpoint(std::shared_ptr<RtpengineContext> context,
                                     std::shared_ptr<RtpengineSessionBook> session, std::weak_ptr<RtpTimeoutSink> sink)
    : context_(std::move(context)), sink_(std::move(sink)), session_(std::move(session)) {}

bool RtpengineEndpoint::Usable() const {
  return session_ != nullptr && (call_ == nullptr ? context_->IsAlive() : call_->IsThere());
}

bool RtpengineEndpoint::Report(const char* what, const std::string& refusal) const {
  if (refusal.empty()) return true;
  bool ended = false;
  {
    const Lock lock(context_->books().mutex);
    ended = session_ == nullptr;
  }
  // What comes after the end of a call is everyday; what goes wrong during one is not.
  context_->Log(ended ? DEBUG_LOG_LEVEL : ERROR_LOG_LEVEL, std::string("Refused ") + what + ": " + refusal);
  return false;
}

bool RtpengineEndpoint::SetRemoteAddressDetection() {
  return Report("remote address detection", DetectAddress());
}

std::string RtpengineEndpoint::DetectAddress() {
  const NgTime now = NgTime::clock::now();
  const NgTime deadline = context_->DeadlineFrom(now);
  const GatePass pass(gate_, deadline);
  if (!pass) return kBusy;
  {
    const Lock lock(context_->books().mutex);
    if (!Usable()) return kGone;
    // Asking again opens nothing: a call is described again and again, and each time would be a stranger's chance.
    if (std::exchange(record_.detect, true)) return "";
    KeepLearning(now);
    ++changes_;
  }
  std::string error;
  if (Settle(deadline, error)) return "";
  {
    const Lock lock(context_->books().mutex);
    record_.detect = record_.learning = false;
    ++changes_;
  }
  PostSettle(nullptr);  // it may have begun to look, and would take the first stranger
  return error;
}

void RtpengineEndpoint::LeaveSession() {
  auto& siblings = session_->endpoints;
  const auto own = [this](const std::weak_ptr<RtpengineEndpoint>& sibling) {
    const Self locked = sibling.lock();
    return locked == nullptr || locked.get() == this;
  };
  siblings.erase(std::remove_if(siblings.begin(), siblings.end(), own), siblings.end());
  session_.reset();
}

bool RtpengineEndpoint::Close() {
  const NgTime now = NgTime::clock::now();
  const NgTime deadline = context_->DeadlineFrom(now);
  const auto posted = std::make_shared<PostedRequests>();
  const Call call = TakeApart(posted, now);
  // An operation that is under way sees that by its next request, and gives up.
  if (call != nullptr) call->Condemn();
  const GatePass pass(gate_, deadline);
  if (call == nullptr) return true;
  if (!pass) {
    call->Drop();  // and the operation that is under way does so once more
    return Report("close", kBusy);
  }
  std::string error;
  const bool ended = call->End(deadline, error);
  posted->Wait(deadline);
  return ended || Report("close", error);
}

void RtpengineEndpoint::Release() {
  const Call call = TakeApart(nullptr, NgTime::clock::now());
  if (call != nullptr) call->Drop();
}

RtpengineEndpoint::Call RtpengineEndpoint::TakeApart(const std::shared_ptr<PostedRequests>& posted, NgTime now) {
  std::vector<Self> parted;
  Call call;
  {
    const Lock lock(context_->books().mutex);
    if (session_ == nullptr) return nullptr;
    Part(parted, now);
    LeaveSession();
    ++changes_;
    call = call_;
  }
  SettleAll(parted, posted);
  return call;
}

bool RtpengineEndpoint::MoveTo(const std::shared_ptr<RtpengineSessionBook>& session) {
  std::vector<Self> parted;
  {
    const Lock lock(context_->books().mutex);
    if (session_ == nullptr || session->ended) return false;
    if (session_ == session) return true;
    Part(parted, NgTime::clock::now());
    LeaveSession();
    session_ = session;
    session->endpoints.push_back(weak_from_this());
  }
  SettleAll(parted, nullptr);
  return true;
}

}  // namespace kelvaro::jsr309::rtpengine
