#include "console/wake_event.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace kvx_switch {

WakeEvent::WakeEvent() : descriptor_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (!descriptor_.valid()) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void WakeEvent::Raise() {
  const uint64_t one = 1;
  // Fails only when the counter is full, and then it is raised already.
  while (write(descriptor(), &one, sizeof(one)) < 0 && errno == EINTR) {
  }
}

void WakeEvent::Clear() {
  uint64_t count = 0;
  while (read(descriptor(), &count, sizeof(count)) < 0 && errno == EINTR) {
  }
}

bool WakeEvent::Raised() const {
  pollfd waiting{descriptor(), POLLIN, 0};
  return poll(&waiting, 1, 0) > 0;
}

}  // namespace kvx_switch
