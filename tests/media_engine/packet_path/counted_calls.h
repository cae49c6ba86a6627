/// Counts what threads that ask for it allocate, lock and ask of the network: the C library's functions are replaced
/// for the whole program, so that every library's calls are seen, ours or not.
///
/// Not for programs with a sanitizer, which replace the same functions.
#pragma once

#include <cstdint>

namespace media_engine_test {

struct CountedCalls {
  uint64_t allocations = 0;  // memory taken, moved or given back
  uint64_t locks = 0;        // mutexes, spin locks and read-write locks taken
  uint64_t waits = 0;        // condition variables waited for or told
  uint64_t receives = 0;     // system calls that receive
  uint64_t sends = 0;        // system calls that send
  uint64_t rests = 0;        // system calls that wait for a fraction of a millisecond, or for anything else (ppoll)
};

/// The calling thread is counted from now on.
void CountThisThread();
/// What counted threads have done so far. Threads: from any thread.
CountedCalls CallsSoFar();

}  // namespace media_engine_test
