/// What the measurements ask of the system: cores, limits, clocks.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace bench {

/// Keeps the calling process on that core. Throws std::runtime_error when it cannot.
void PinTo(int core);
/// Lets the process have that many files, if need be by raising its own limit. Throws when it may not.
void AllowFiles(std::size_t count);

/// Nanoseconds of the monotonic clock, and of the one that the kernel stamps packets with.
int64_t MonotonicNs();
int64_t RealtimeNs();

/// CPU time that a process has had so far, all its threads together; throws when it is gone.
double CpuSecondsOf(pid_t pid);
/// The same of a process and its children.
double CpuSecondsOfTree(pid_t pid);
/// Of the calling process, and of the calling thread.
double OwnCpuSeconds();
double ThreadCpuSeconds();
/// Resident memory of a process; throws when it is gone.
double ResidentKibOf(pid_t pid);

int CoreCount();
/// "2 cores, AMD EPYC, Linux 6.1.0": for the report.
std::string MachineText();

}  // namespace bench
