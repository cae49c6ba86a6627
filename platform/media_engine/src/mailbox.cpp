#include "mailbox.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace media_engine {

Mailbox::Mailbox() : event_fd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

Mailbox::~Mailbox() {
  Close();
}

bool Mailbox::Post(std::unique_ptr<Task>& task) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (closed_) return false;
  const bool wake = tasks_.empty();
  tasks_.push_back(std::move(task));
  if (!wake) return true;
  const uint64_t one = 1;
  // Cannot fail other than by an overflow of the counter, and then the worker is woken anyway.
  if (write(event_fd_, &one, sizeof one) < 0) return true;
  return true;
}

std::vector<std::unique_ptr<Task>> Mailbox::Take() {
  std::lock_guard<std::mutex> lock(mutex_);
  uint64_t count = 0;
  if (!closed_ && read(event_fd_, &count, sizeof count) < 0) count = 0;
  return std::exchange(tasks_, {});
}

void Mailbox::Close() {
  std::vector<std::unique_ptr<Task>> dropped;  // their destructors may post elsewhere: not under the lock
  std::lock_guard<std::mutex> lock(mutex_);
  dropped.swap(tasks_);
  if (!closed_ && event_fd_ >= 0) close(event_fd_);
  closed_ = true;
}

}  // namespace media_engine
