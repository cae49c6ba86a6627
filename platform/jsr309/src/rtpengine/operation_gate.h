/// Lets one operation on an endpoint through at a time, for at most as long as a request may wait.
///
/// What a description or a join changes takes several requests to the daemon, which must not be mixed with those of
/// another one on the same endpoint.
///
/// Threads: any.
#pragma once

#include "rtpengine/ng_control.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <utility>

namespace kelvaro::jsr309::rtpengine {

class OperationGate {
 public:
  bool Enter(NgTime deadline) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!free_.wait_until(lock, deadline, [this] { return !taken_; })) return false;
    taken_ = true;
    return true;
  }
  void Leave() {
    const std::lock_guard<std::mutex> lock(mutex_);
    taken_ = false;
    free_.notify_one();
  }

 private:
  std::mutex mutex_;
  std::condition_variable free_;
  bool taken_ = false;  // guarded by mutex_
};

/// Through one gate or two, always in the same order, so that two operations on one pair do not wait for each other.
class GatePass {
 public:
  GatePass(OperationGate& gate, NgTime deadline)
      : first_(gate.Enter(deadline) ? &gate : nullptr), entered_(first_ != nullptr) {}
  GatePass(OperationGate& one, OperationGate& other, NgTime deadline) {
    OperationGate *first = &one, *second = &other;
    if (std::less<>()(second, first)) std::swap(first, second);
    if (!first->Enter(deadline)) return;
    first_ = first;
    if (!second->Enter(deadline)) return;
    second_ = second;
    entered_ = true;
  }
  ~GatePass() {
    if (second_ != nullptr) second_->Leave();
    if (first_ != nullptr) first_->Leave();
  }
  GatePass(const GatePass&) = delete;
  GatePass& operator=(const GatePass&) = delete;

  explicit operator bool() const { return entered_; }

 private:
  OperationGate* first_ = nullptr;
  OperationGate* second_ = nullptr;
  bool entered_ = false;
};

}  // namespace kelvaro::jsr309::rtpengine
