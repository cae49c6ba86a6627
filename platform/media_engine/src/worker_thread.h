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
  WorkerThread(const std::shared_ptr<ServerContext>& server, milliseconds longest_wait);
  ~WorkerThread() { Stop(); }
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;

  Outcome Start();
  /// Ends everything on the worker and joins the thread. Idempotent.
  void Stop();
  /// Test aid: the worker gets stuck in a task behind those that it has, until it is told to go on.
  void Stall(bool stalled);

  const std::shared_ptr<Mailbox>& mailbox() const { return mailbox_; }
  WorkerGauges& gauges() { return worker_.gauges(); }

 private:
  void Run();
  void WaitWhileStalled();

  const std::shared_ptr<Mailbox> mailbox_;
  const milliseconds longest_wait_;
  Worker worker_;  // the thread's own while that runs
  std::atomic<bool> stopping_{false};
  std::mutex stall_mutex_;
  bool stalled_ = false;  // guarded by stall_mutex_
  std::condition_variable stall_changed_;
  std::mutex stop_mutex_;
  std::thread thread_;  // joined under stop_mutex_
};

}  // namespace media_engine
