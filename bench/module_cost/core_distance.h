/// How far the machine's cores are from each other.
///
/// What two threads do more than one depends on how long a cache line takes from the core of the one to that of the
/// other: some 30 ns where cores share a cache, several times that where they do not. The host of a virtual machine may
/// change that from one minute to the next, so it has to be known for each run.
#pragma once

namespace bench {

/// What one way of a cache line from thread to thread takes, in nanoseconds: the least that was found within a
/// twentieth of a second, since threads may share a core for a while. Keeps two cores busy meanwhile.
double CoreDistanceNs();

}  // namespace bench
