#include "mailbox.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "worker.h"

namespace media_engine {
namespace {

// Who helps may find that others put more in meanwhile; it does not go on for ever.
constexpr int kRoundsOfHelp = 4;

/// Gives the helm back whatever happens: without it a worker never serves again.
struct HelmGuard {
  Helm& helm;
  ~HelmGuard() { helm.GiveBack(); }
};

}  // namespace

Mailbox::Mailbox() : event_fd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

Mailbox::~Mailbox() {
  Close();
}

bool Mailbox::PutIn(std::unique_ptr<Task>& task, bool for_thread) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (closed_) return false;
  tasks_.push_back(std::move(task));
  for_thread_ = for_thread_ || for_thread;
  has_mail_.store(true);
  return true;
}

bool Mailbox::Put(std::unique_ptr<Task>& task) {
  return PutIn(task, false);
}

bool Mailbox::Post(std::unique_ptr<Task>& task) {
  if (!PutIn(task, false)) return false;
  Wake();
  return true;
}

bool Mailbox::PostToThread(std::unique_ptr<Task> task) {
  if (!PutIn(task, true)) return false;
  Wake();
  return true;
}

// Nobody is woken in vain and nothing is left lying: the worker looks for mail after it has left the helm, a helper
// after it has given the helm back, and who put something in looks at the helm afterwards.
void Mailbox::Wake() {
  if (helm_.IsFree()) Ring();
}

void Mailbox::Ring() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (closed_ || rung_) return;
  const uint64_t one = 1;
  rung_ = write(event_fd_, &one, sizeof one) == static_cast<ssize_t>(sizeof one);
}

void Mailbox::Serve() {
  for (int round = 0; round < kRoundsOfHelp && HasMail() && helm_.TryTake(); ++round) {
    Worker::Help help;
    {
      const HelmGuard guard{helm_};
      help = worker_->HelpOut();
    }
    if (help.wake) Ring();
    if (!help.done) break;
  }
  if (HasMail()) Wake();
}

Mailbox::Tasks Mailbox::Take() {
  std::lock_guard<std::mutex> lock(mutex_);
  uint64_t count = 0;
  if (!closed_ && rung_ && read(event_fd_, &count, sizeof count) > 0) rung_ = false;
  for_thread_ = false;
  has_mail_.store(false);
  return std::exchange(tasks_, {});
}

Mailbox::Tasks Mailbox::TakeAsHelper() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (for_thread_) return {};
  has_mail_.store(false);
  return std::exchange(tasks_, {});
}

void Mailbox::Close() {
  Tasks dropped;  // their destructors may post elsewhere: not under the lock
  std::lock_guard<std::mutex> lock(mutex_);
  dropped.swap(tasks_);
  has_mail_.store(false);
  if (!closed_ && event_fd_ >= 0) close(event_fd_);
  closed_ = true;
}

}  // namespace media_engine
