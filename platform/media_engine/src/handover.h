/// A packet on its way out through another participant; it lies in the buffer it was received into.
#pragma once

#include <cstddef>
#include <cstdint>

namespace media_engine {

class Participant;

struct Handover {
  Participant* to = nullptr;  // null: the packet goes nowhere
  uint8_t* data = nullptr;
  std::size_t length = 0;
  std::size_t payload_length = 0;
  bool rtp = true;  // else a datagram relayed as it is
};

}  // namespace media_engine
