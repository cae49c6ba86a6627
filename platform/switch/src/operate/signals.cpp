#include "operate/signals.h"

#include <unistd.h>

#include <cerrno>

namespace kvx_switch {
namespace {

timespec to_timespec(std::chrono::milliseconds time) {
  timespec converted{};
  converted.tv_sec = static_cast<time_t>(time.count() / 1000);
  converted.tv_nsec = static_cast<long>(time.count() % 1000) * 1000000L;
  return converted;
}

}  // namespace

Signals::Signals() : on_terminal_(isatty(STDOUT_FILENO) != 0) {
  sigemptyset(&ending_);
  sigaddset(&ending_, SIGINT);
  sigaddset(&ending_, SIGTERM);
  if (on_terminal_) sigaddset(&ending_, SIGHUP);
  all_ = ending_;
  sigaddset(&all_, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &all_, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

std::optional<Signals::Kind> Signals::Next(std::chrono::milliseconds timeout) {
  const timespec time = to_timespec(timeout);
  int signal = -1;
  do {
    signal = timeout.count() > 0 ? sigtimedwait(&all_, nullptr, &time) : sigwaitinfo(&all_, nullptr);
  } while (signal < 0 && errno == EINTR);
  if (signal < 0) return std::nullopt;
  return sigismember(&ending_, signal) == 1 ? Kind::kEnd : Kind::kReopen;
}

bool Signals::EndIsThere() {
  const timespec now{};
  return sigtimedwait(&ending_, nullptr, &now) > 0;
}

}  // namespace kvx_switch
