#pragma once

#include <condition_variable>
#include <mutex>

namespace kvx_switch {

/// Someone who is called back and may be removed while calls are going on: after Remove returns no call runs and none
/// begins, so the code behind the callback may go away. A receiver that removes itself from inside its own call does
/// not wait for that call.
class Receiver {
 public:
  Receiver() = default;
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  /// Held around one call; false when the receiver was removed and must not be called.
  class Call {
   public:
    explicit Call(Receiver& receiver);
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    explicit operator bool() const { return entered_; }

   private:
    Receiver& receiver_;
    const bool entered_;
  };

  void Remove();

 private:
  bool Enter();
  void Leave();

  std::mutex mutex_;
  std::condition_variable left_;
  int running_ = 0;       // guarded by mutex_
  bool removed_ = false;  // guarded by mutex_
};

}  // namespace kvx_switch
