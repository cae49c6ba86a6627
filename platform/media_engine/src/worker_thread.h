/// A worker and the thread it runs on; the destructor joins it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "worker.h"

namespace media_engine {

/// Threads: all operations from any thread but the worker's.
class WorkerThread {
 public:
  /// longest_wait: how long the worker may rest when there is nothing to do.
  WorkerThread(const std::shared_ptr<ServerContext>& server, milliseconds longest_wait, Coalescing coalescing);
  ~WorkerThread();
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;

  Outcome Start();
  /// The worker shall end everything on it and then itself. Does not wait.
  void AskToStop();
  /// Joins the thread, which was asked to stop. False when it has not ended by then, in real time: it is left to
  /// itself, refuses requests, and ends everything on it when it gets to that. Nothing of ours is needed for that any
  /// more.
  bool Join(TimePoint deadline);
  /// Test aid: the worker gets stuck in a task behind those that it has, until it is told to go on.
  void Stall(bool stalled);

  const std::shared_ptr<Mailbox>& mailbox() const { return loop_->mailbox; }
  WorkerGauges& gauges() { return loop_->worker.gauges(); }

 private:
  /// What the thread needs; it holds it itself, for it may outlive us.
  struct Loop {
    Loop(const std::shared_ptr<ServerContext>& server, milliseconds longest_wait, Coalescing coalescing);
    void Run();
    void WaitWhileStalled();

    const std::shared_ptr<Mailbox> mailbox;
    const milliseconds longest_wait;
    const Coalescing coalescing;
    Worker worker;  // the thread's own while that runs
    std::atomic<bool> stopping{false};
    std::mutex mutex;
    bool stalled = false;   // guarded by mutex
    bool finished = false;  // guarded by mutex
    std::condition_variable changed;
  };

  const std::shared_ptr<Loop> loop_;
  std::mutex thread_mutex_;
  std::thread thread_;  // guarded by thread_mutex_
};

}  // namespace media_engine
