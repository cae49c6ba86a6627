/// How far the machine's cores are from each other.
///
/// What two threads do more than one depends on how long a cache line takes from the core of the one to that of the
/// other: some 30 ns where cores share a cache, several times that where they do not. The host of a virtual machine may
/// change that from one minute to the next, so it has to be known for each run.
#pragma once

namespace bench {

/// What one way of a cache line between cores 0 and 1 takes, in nanoseconds: the least that was found within a
/// twentieth of a second, in which others may be at work on the cores. 0 when there is but one core.
double CoreDistanceNs();

}  // namespace bench
