/// What an endpoint's log says of its packets when it ends. Packets are only counted while it lives, so that nobody can
/// fill the log by sending; afterwards somebody wants to know why a call sounded as it did, and who knocked at its
/// port.
#pragma once

#include <string>

#include "media_engine/statistics.h"

namespace media_engine {

/// "jitter buffer: delay 40 ms, reordered 12, late 3, duplicates 1, without room 0, discarded 2, of 500 packets"
std::string JitterBufferAccount(const EndpointStatistics& statistics);

/// "dropped: from strangers 3, SRTP replayed 2", what is not 0. Only what should not have come, or not like that; empty
/// when there was none of it.
std::string DroppedAccount(const EndpointStatistics& statistics);

}  // namespace media_engine
