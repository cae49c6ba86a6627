#include "rtpengine/ng_control.h"

#include "rtpengine/ng_channel.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

constexpr milliseconds kLastMoment{100};

/// What one asker waits with; the control thread may hold it longer than the asker.
class Waiter {
 public:
  void Tell(const NgResult& result) {
    const std::lock_guard<std::mutex> lock(mutex_);
    result_ = result;
    told_.notify_one();
  }

  /// None when the time is over.
  std::optional<NgResult> Wait(NgTime until) {
    std::unique_lock<std::mutex> lock(mutex_);
    told_.wait_until(lock, until, [this] { return result_.has_value(); });
    return std::exchange(result_, std::nullopt);
  }

 private:
  std::mutex mutex_;
  std::condition_variable told_;
  std::optional<NgResult> result_;  // guarded by mutex_
};

NgRequest RequestOf(const Dictionary& message, milliseconds limit) {
  NgRequest request;
  request.command = TextOf(message, "command");
  request.call_id = TextOf(message, "call-id");
  request.limit = std::clamp(limit, milliseconds(0), kNgLongestLimit);
  return request;
}

}  // namespace

NgControl::NgControl(const NgControlSettings& settings, std::shared_ptr<GuardedLogger> logger)
    : channel_(std::make_unique<Channel>(settings, std::move(logger))) {}

NgControl::~NgControl() = default;

bool NgControl::Start(NgListener* listener, std::string& error) {
  return channel_->Start(listener, error);
}

std::optional<Dictionary> NgControl::Ask(const Dictionary& message, milliseconds limit, std::string& error,
                                         const NgCondition& wanted) {
  NgRequest request = RequestOf(message, limit);
  const std::string what = Name() + ": \"" + request.command + "\"";
  if (channel_->IsOwnThread()) {
    error = what + " asked by a callback, which would wait for itself";
    return std::nullopt;
  }
  error.clear();
  const NgTime until = std::chrono::steady_clock::now() + request.limit;
  const auto waiter = std::make_shared<Waiter>();
  request.asked = true;
  request.done = [waiter](const NgResult& result) { waiter->Tell(result); };
  const uint64_t number = channel_->Add(std::move(request), message, wanted, error);
  if (number == 0) {
    if (error.empty()) error = what + " is not wanted any more";
    return std::nullopt;
  }
  std::optional<NgResult> result = waiter->Wait(until);
  if (!result) {
    error = channel_->Abandon(number);
    if (!error.empty()) return std::nullopt;
    // It was answered in the last moment, and the control thread is about to tell.
    result = waiter->Wait(until + kLastMoment);
  }
  if (!result) result = NgResult{std::nullopt, what + " had no reply in time"};
  error = std::move(result->error);
  return std::move(result->reply);
}

bool NgControl::Post(const Dictionary& message, milliseconds limit, NgDone done, const NgCondition& wanted) {
  NgRequest request = RequestOf(message, limit);
  request.done = std::move(done);
  std::string error;
  if (channel_->Add(std::move(request), message, wanted, error) != 0) return true;
  if (!error.empty()) channel_->Complain(error);
  return false;
}

void NgControl::WakeListener() {
  channel_->WakeListener();
}

void NgControl::Stop() {
  channel_->Stop();
}

NgCounters NgControl::Counters() const {
  return channel_->Counters();
}

const std::string& NgControl::Name() const {
  return channel_->name();
}

}  // namespace kelvaro::jsr309::rtpengine
