#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kvx_switch {

/// A limit of the process that is too low shows at the busiest hour, as calls that fail, or after a crash, as a core
/// file that is not there. These look at the start. RLIM_INFINITY stands for no limit.
struct ProcessLimits {
  uint64_t descriptors = 0;
  uint64_t core_bytes = 0;
};

/// What the configuration allows to be there at once.
struct ConfiguredLoad {
  uint64_t sessions = 0;
  uint64_t sip_connections = 0;  ///< over TCP
};

/// How many files are open at once under that load: two sockets for each session, one for each connection, and what
/// the switch has anyway.
uint64_t DescriptorsFor(const ConfiguredLoad& load);

/// Raises what this process may raise itself, its file descriptors as far as the load needs, with one more for each
/// session, and the size of a core file, and says what holds then.
ProcessLimits RaiseProcessLimits(const ConfiguredLoad& load);

/// Linux keeps the sleeping threads of a process in lists of its own, a few for each processor, and looks through one
/// of them for every thread that is woken. A leg is a thread: with thousands of them that search would be a quarter of
/// the work. This asks for as many lists as there may be legs; systems that know no such request have lists enough.
void ShortenWaitQueues(const ConfiguredLoad& load);

/// A sentence for each limit that is too low: the number there is, the number needed and the settings that give it.
std::vector<std::string> FindLowLimits(const ProcessLimits& limits, const ConfiguredLoad& load);

}  // namespace kvx_switch
