/// Reads an input as a series of packets with a few octets of instructions before each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace fuzz {

using Bytes = std::vector<uint8_t>;

/// Takes the input apart from front to back. What is beyond its end reads as zero.
class Input {
 public:
  Input(const uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool done() const { return at_ >= size_; }
  uint8_t Octet() { return at_ < size_ ? data_[at_++] : 0; }
  /// Two octets of length and as many octets as that, or as there are.
  Bytes Packet();

 private:
  const uint8_t* const data_;
  const std::size_t size_;
  std::size_t at_ = 0;
};

/// Ends the program when something that must hold does not, so that the input is kept.
void Require(bool holds, const char* what);

}  // namespace fuzz
