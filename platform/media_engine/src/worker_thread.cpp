#include "worker_thread.h"

#include <pthread.h>

#include <system_error>

namespace media_engine {

WorkerThread::Loop::Loop(const std::shared_ptr<ServerContext>& server, milliseconds longest_wait)
    : mailbox(std::make_shared<Mailbox>()), longest_wait(longest_wait), worker(server, mailbox) {}

WorkerThread::WorkerThread(const std::shared_ptr<ServerContext>& server, milliseconds longest_wait)
    : loop_(std::make_shared<Loop>(server, longest_wait)) {}

WorkerThread::~WorkerThread() {
  AskToStop();
  Join(TimePoint::max());
}

Outcome WorkerThread::Start() {
  if (Outcome outcome = loop_->worker.Ready(); !outcome) return outcome;
  const std::lock_guard<std::mutex> lock(thread_mutex_);
  try {
    thread_ = std::thread([loop = loop_] { loop->Run(); });
  } catch (const std::system_error& error) {
    return Outcome::Refused(std::string("no thread for a worker: ") + error.what());
  }
  pthread_setname_np(thread_.native_handle(), "media-worker");
  return Outcome::Done();
}

void WorkerThread::Loop::Run() {
  while (!stopping.load()) {
    worker.RunOnce(longest_wait);
  }
  worker.Finish();
  const std::lock_guard<std::mutex> lock(mutex);
  finished = true;
  changed.notify_all();
}

void WorkerThread::Loop::WaitWhileStalled() {
  std::unique_lock<std::mutex> lock(mutex);
  changed.wait(lock, [this] { return !stalled || stopping.load(); });
}

void WorkerThread::Stall(bool stalled) {
  {
    const std::lock_guard<std::mutex> lock(loop_->mutex);
    loop_->stalled = stalled;
  }
  loop_->changed.notify_all();
  if (stalled) mailbox()->PostToThread(MakeTask([loop = loop_.get()](Worker&) { loop->WaitWhileStalled(); }));
}

void WorkerThread::AskToStop() {
  {
    const std::lock_guard<std::mutex> lock(loop_->mutex);
    loop_->stopping.store(true);
  }
  loop_->changed.notify_all();
  mailbox()->PostToThread(MakeTask([](Worker&) {}));
}

bool WorkerThread::Join(TimePoint deadline) {
  const std::lock_guard<std::mutex> thread_lock(thread_mutex_);
  if (!thread_.joinable()) return true;
  std::unique_lock<std::mutex> lock(loop_->mutex);
  const auto finished = [this] { return loop_->finished; };
  if (deadline == TimePoint::max()) {
    loop_->changed.wait(lock, finished);
  } else if (!loop_->changed.wait_until(lock, deadline, finished)) {
    lock.unlock();
    loop_->mailbox->Close();
    thread_.detach();
    return false;
  }
  lock.unlock();
  thread_.join();
  return true;
}

}  // namespace media_engine
