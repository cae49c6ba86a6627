/// The way into a worker: other threads put tasks in, and the worker takes them out, or who put one in while the worker
/// sleeps. Packets do not pass its lock.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "helm.h"

namespace media_engine {

class Worker;

/// Something to be done at a worker: on its thread, or on another that has its helm. One that is destroyed instead of
/// being run answers nobody by itself; what it carries does, where somebody waits (Responder).
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

/// Threads: all operations from any thread, except where they say the worker's.
class Mailbox {
 public:
  using Tasks = std::vector<std::unique_ptr<Task>>;

  Mailbox();
  ~Mailbox();
  Mailbox(const Mailbox&) = delete;
  Mailbox& operator=(const Mailbox&) = delete;

  /// Tasks run in the order in which they were put in. Takes the task only when it says true: false once closed.
  bool Post(std::unique_ptr<Task>& task);
  bool Post(std::unique_ptr<Task>&& task) { return Post(task); }
  /// One that the worker's own thread is to run, and all that come with it.
  bool PostToThread(std::unique_ptr<Task> task);
  /// Puts the task in and leaves it at that; Serve is to follow, without locks that tasks may want.
  bool Put(std::unique_ptr<Task>& task);
  /// Sees to it that what is in the mailbox gets done: by the calling thread when the worker sleeps, by the worker
  /// otherwise. Does not wait for either.
  void Serve();

  /// Refuses everything from now on and drops what is in it.
  void Close();
  /// Readable while somebody wants the worker awake. Belongs to the mailbox, is -1 when it could not be made.
  int event_fd() const { return event_fd_; }

  // The worker's.
  /// Whose mailbox it is; before its first rest.
  void set_worker(Worker* worker) { worker_ = worker; }
  /// What has come in since the last time; for the worker's thread, or for another that has the helm.
  Tasks Take();
  Tasks TakeAsHelper();
  bool HasMail() const { return has_mail_.load(); }
  Helm& helm() { return helm_; }

 private:
  bool PutIn(std::unique_ptr<Task>& task, bool for_thread);
  void Wake();
  void Ring();

  Helm helm_;
  Worker* worker_ = nullptr;           // set once; used with the helm
  std::atomic<bool> has_mail_{false};  // whether tasks_ has any; written under mutex_

  std::mutex mutex_;
  Tasks tasks_;              // guarded by mutex_
  bool for_thread_ = false;  // guarded by mutex_; only the worker's thread may take them
  bool rung_ = false;        // guarded by mutex_; event_fd_ is readable
  bool closed_ = false;      // guarded by mutex_
  int event_fd_;             // set once; closed under mutex_, by the worker's last act
};

}  // namespace media_engine
