#include "operate/process_limits.h"

#include <sys/prctl.h>
#include <sys/resource.h>

#include <algorithm>

namespace kvx_switch {
namespace {

constexpr uint64_t kDescriptorsForSession = 2;  // RTP and RTCP
constexpr uint64_t kUsefulForSession = 1;       // the media server's third socket, which it can do without
/// Clients of the event socket with two each, the media servers' loops, SIP, the log, files that are read.
constexpr uint64_t kOtherDescriptors = 256;

// Linux 6.16 and later; the C library's headers are older.
#ifndef PR_FUTEX_HASH
#define PR_FUTEX_HASH 78
#define PR_FUTEX_HASH_SET_SLOTS 1
#endif
constexpr uint64_t kFewestSlots = 256, kMostSlots = 65536;

uint64_t raise(decltype(RLIMIT_CORE) resource, uint64_t wanted) {
  rlimit limit{};
  if (getrlimit(resource, &limit) != 0) return RLIM_INFINITY;  // nothing is known to be too low
  if (limit.rlim_cur >= wanted) return limit.rlim_cur;
  rlimit raised = limit;
  raised.rlim_cur = std::min<rlim_t>(wanted, limit.rlim_max);
  return setrlimit(resource, &raised) == 0 ? raised.rlim_cur : limit.rlim_cur;
}

}  // namespace

uint64_t DescriptorsFor(const ConfiguredLoad& load) {
  return load.sessions * kDescriptorsForSession + load.sip_connections + kOtherDescriptors;
}

ProcessLimits RaiseProcessLimits(const ConfiguredLoad& load) {
  return {raise(RLIMIT_NOFILE, DescriptorsFor(load) + load.sessions * kUsefulForSession),
          raise(RLIMIT_CORE, RLIM_INFINITY)};
}

void ShortenWaitQueues(const ConfiguredLoad& load) {
  uint64_t slots = kFewestSlots;
  while (slots < load.sessions && slots < kMostSlots) slots *= 2;
  prctl(PR_FUTEX_HASH, PR_FUTEX_HASH_SET_SLOTS, slots, 0UL, 0UL);
}

std::vector<std::string> FindLowLimits(const ProcessLimits& limits, const ConfiguredLoad& load) {
  std::vector<std::string> low;
  const std::string needed = std::to_string(DescriptorsFor(load));
  if (limits.descriptors < DescriptorsFor(load)) {
    low.push_back("No more than " + std::to_string(limits.descriptors) + " files may be open at once, and " +
                  std::to_string(load.sessions) + " sessions and " + std::to_string(load.sip_connections) +
                  " SIP connections need " + needed + ": set LimitNOFILE=" + needed +
                  " in the service's unit, \"ulimit -n " + needed +
                  "\" in a shell, or a lower max-sessions in switch.conf or tcp-max-connections in the SIP profiles");
  }
  if (limits.core_bytes == 0) {
    low.push_back(
        "A crash would leave no core file, whose size is limited to 0: set LimitCORE=infinity in the service's unit or "
        "\"ulimit -c unlimited\" in a shell");
  }
  return low;
}

}  // namespace kvx_switch
