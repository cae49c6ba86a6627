/// Who may touch a worker's sessions: its own thread while it is awake, and while it sleeps a thread that has a
/// request.
///
/// To hand a request to a thread that sleeps and to wait for the answer takes two changes of thread, which cost many
/// times what the request does. So a worker that goes to sleep leaves its helm, and who has a request takes it, does
/// the request itself and gives the helm back. A worker that is awake is not disturbed: its requests wait for it.
///
/// The worker's thread comes back with one exchange of an atomic variable a turn, whatever packets it then moves. Only
/// when a request is being done at that very moment it waits for its end, which is as far away as when the thread did
/// the request itself.
///
/// What the helm guards passes from one holder to the next with release and acquire on holder_.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace media_engine {

class Helm {
 public:
  // The worker's thread, which has the helm from the start.
  /// Before it sleeps.
  void Leave();
  /// After it slept; waits for who has the helm. True when somebody has had it since Leave.
  bool Return();

  // Other threads. None of these waits.
  /// False unless the worker sleeps and nobody else has the helm.
  bool TryTake();
  /// After TryTake said true.
  void GiveBack();
  /// Whether the worker sleeps, and nobody has the helm.
  bool IsFree() const { return holder_.load() == Holder::kNobody; }

 private:
  enum class Holder { kWorker, kNobody, kHelper };

  bool TakeBack();

  // Sequentially consistent, like wanted_ and the mailbox's count: each side writes its own and then reads the other's.
  std::atomic<Holder> holder_{Holder::kWorker};
  std::atomic<bool> wanted_{false};  // the worker waits for the helm
  bool helped_ = false;              // guarded by the helm itself
  std::mutex mutex_;                 // for the wait only
  std::condition_variable given_back_;
};

}  // namespace media_engine
