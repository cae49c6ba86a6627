/// Room for the payloads that a jitter buffer holds, taken once and shared out in small blocks.
///
/// A packet may be as long as the network carries, and there may be dozens, but never dozens of long ones: blocks need
/// a tenth of what slots of the greatest length would, for each of thousands of endpoints.
///
/// Threads: none of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace media_engine {

class PayloadStore {
 public:
  static constexpr std::size_t kBlock = 256;  ///< octets
  using Key = uint16_t;

  explicit PayloadStore(std::size_t blocks);

  /// False, and nothing stored, when there is not enough room. An empty payload takes a block too.
  bool Put(const uint8_t* payload, std::size_t length, Key& key);
  /// Copies out what was put under the key, whose length the caller knows, and frees its room.
  void Take(Key key, std::size_t length, uint8_t* to);
  void Clear();

 private:
  static std::size_t BlocksFor(std::size_t length) { return length == 0 ? 1 : (length + kBlock - 1) / kBlock; }

  std::vector<uint8_t> octets_;
  std::vector<Key> next_;  // of a payload's blocks, and of the free ones
  Key free_ = 0;
  std::size_t free_count_ = 0;
};

}  // namespace media_engine
