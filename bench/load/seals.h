/// SRTP for the far ends: a key for each, and packets protected before the clock runs.
///
/// The two ends of a call have different suites, with tags of 10 and of 4 octets: a relay could hand the packets of
/// like ones through under the key of the one it has from the other, and would not be measured at all.
///
/// Protecting packets would take from what the load can send; so all packets of a run are made beforehand. Ours are
/// made with the engine's own SRTP, which is checked against the reference elsewhere, and by rtpengine here: it relays
/// none that is not authentic. Those that come back are counted by their length and not opened: only the relay has the
/// key.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "srtp_transform.h"

namespace bench {

class Seals {
 public:
  Seals(std::size_t count, bool wanted);

  /// "SUITE:KEY", the key in base64 with its salt, one a far end; empty when not wanted.
  std::vector<std::string> Keys() const;

  /// How many octets the packets of that far end grow by.
  static std::size_t TagLength(std::size_t end) { return end % 2 == 0 ? 10 : 4; }

  /// Room for the packets of a run.
  void BeginRun(std::size_t packets_each, std::size_t packet_length);
  /// The next packet of that far end, protected; in the order in which they will be taken.
  void Add(std::size_t end, const uint8_t* packet, std::size_t length);
  /// Null when the run has used them all up.
  const uint8_t* Take(std::size_t end);

 private:
  struct End {
    std::vector<uint8_t> key;
    std::unique_ptr<media_engine::SrtpTransform> transform;
    std::vector<uint8_t> packets;
    std::size_t taken = 0;
  };

  std::vector<End> ends_;
  std::size_t packet_length_ = 0;
};

std::string Base64(const std::vector<uint8_t>& octets);

}  // namespace bench
