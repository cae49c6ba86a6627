#include "worker_thread.h"

#include <pthread.h>

#include <system_error>

namespace media_engine {

WorkerThread::WorkerThread(const std::shared_ptr<ServerContext>& server, milliseconds longest_wait)
    : mailbox_(std::make_shared<Mailbox>()), longest_wait_(longest_wait), worker_(server, mailbox_) {}

Outcome WorkerThread::Start() {
  if (Outcome outcome = worker_.Ready(); !outcome) return outcome;
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (const std::system_error& error) {
    return Outcome::Refused(std::string("no thread for a worker: ") + error.what());
  }
  pthread_setname_np(thread_.native_handle(), "media-worker");
  return Outcome::Done();
}

void WorkerThread::Run() {
  while (!stopping_.load()) {
    worker_.RunOnce(longest_wait_);
  }
  worker_.Finish();
}

void WorkerThread::WaitWhileStalled() {
  std::unique_lock<std::mutex> lock(stall_mutex_);
  stall_changed_.wait(lock, [this] { return !stalled_ || stopping_.load(); });
}

void WorkerThread::Stall(bool stalled) {
  {
    std::lock_guard<std::mutex> lock(stall_mutex_);
    stalled_ = stalled;
  }
  stall_changed_.notify_all();
  if (stalled) mailbox_->Post(MakeTask([this](Worker&) { WaitWhileStalled(); }));
}

void WorkerThread::Stop() {
  {
    std::lock_guard<std::mutex> lock(stall_mutex_);
    stopping_.store(true);
  }
  stall_changed_.notify_all();
  mailbox_->Post(MakeTask([](Worker&) {}));
  std::lock_guard<std::mutex> lock(stop_mutex_);
  if (thread_.joinable()) thread_.join();
}

}  // namespace media_engine
