/// How two endpoints of a session become the two ends of a UDP pass-through.
#pragma once

#include "participant.h"
#include "worker.h"

namespace media_engine {

/// Takes over a far end's description that names the other endpoint of a UDP pass-through, and ties the two together.
/// Refused, it changes neither.
Outcome DescribePassThrough(Worker& worker, Participant& participant, const RemoteDescription& description);

}  // namespace media_engine
