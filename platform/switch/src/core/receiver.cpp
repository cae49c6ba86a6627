#include "core/receiver.h"

#include <algorithm>
#include <vector>

namespace kvx_switch {
namespace {

/// The receivers whose calls the current thread is in, outermost first.
std::vector<const Receiver*>& entered_here() {
  thread_local std::vector<const Receiver*> entered;
  return entered;
}

}  // namespace

Receiver::Call::Call(Receiver& receiver) : receiver_(receiver), entered_(receiver.Enter()) {
  if (entered_) entered_here().push_back(&receiver_);
}

Receiver::Call::~Call() {
  if (!entered_) return;
  entered_here().pop_back();
  receiver_.Leave();
}

bool Receiver::Enter() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (removed_) return false;
  ++running_;
  return true;
}

void Receiver::Leave() {
  std::lock_guard<std::mutex> lock(mutex_);
  --running_;
  left_.notify_all();
}

void Receiver::Remove() {
  const auto& entered = entered_here();
  const auto own = std::count(entered.begin(), entered.end(), this);
  std::unique_lock<std::mutex> lock(mutex_);
  removed_ = true;
  left_.wait(lock, [&] { return running_ <= own; });
}

}  // namespace kvx_switch
