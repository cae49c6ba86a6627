/// A key that can be looked for in the memory of the process, to see that nobody has left a copy behind.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace test_support {

/// 30 octets drawn at random, 16 of key and 14 of salt. They stand in the object in disguise, so that it does not find
/// itself.
class HiddenKey {
 public:
  static constexpr std::size_t kLength = 30;

  HiddenKey();
  std::uint8_t operator[](std::size_t index) const { return masked_[index] ^ kMask; }
  /// How often the key stands in what the process has written to, freed memory included.
  std::size_t CopiesInMemory() const;
  /// The same of the key in base64 (RFC 4648), as descriptions carry it.
  std::size_t Base64CopiesInMemory() const;

 private:
  static constexpr std::uint8_t kMask = 0xa5;
  std::array<std::uint8_t, kLength> masked_;
};

}  // namespace test_support
