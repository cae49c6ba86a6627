/// The way into a worker: other threads put tasks in, the worker takes them out. The only lock of a worker's life, and
/// packets do not pass it.
#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace media_engine {

class Worker;

/// Something to be done on a worker's thread. One that is destroyed instead of being run answers nobody: whoever waits
/// sees a broken promise.
class Task {
 public:
  virtual ~Task() = default;
  virtual void Run(Worker& worker) = 0;
};

template <typename Function>
std::unique_ptr<Task> MakeTask(Function function) {
  class FunctionTask : public Task {
   public:
    explicit FunctionTask(Function function) : function_(std::move(function)) {}
    void Run(Worker& worker) override { function_(worker); }

   private:
    Function function_;
  };
  return std::make_unique<FunctionTask>(std::move(function));
}

/// Threads: all operations from any thread.
class Mailbox {
 public:
  Mailbox();
  ~Mailbox();
  Mailbox(const Mailbox&) = delete;
  Mailbox& operator=(const Mailbox&) = delete;

  /// Tasks run in the order in which they were put in. Takes the task only when it says true: false once closed.
  bool Post(std::unique_ptr<Task>& task);
  bool Post(std::unique_ptr<Task>&& task) { return Post(task); }
  /// What has come in since the last time.
  std::vector<std::unique_ptr<Task>> Take();
  /// Refuses everything from now on and drops what is in it.
  void Close();
  /// Readable while there is something to take. Belongs to the mailbox, is -1 when it could not be made.
  int event_fd() const { return event_fd_; }

 private:
  std::mutex mutex_;
  std::vector<std::unique_ptr<Task>> tasks_;  // guarded by mutex_
  bool closed_ = false;                       // guarded by mutex_
  int event_fd_;                              // set once; closed under mutex_, by the worker's last act
};

}  // namespace media_engine
