/// Octets that must not stay behind in freed memory, such as keys.
#pragma once

#include <string.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kelvaro::jsr309 {

/// Overwrites memory before it is given back, so that every copy cleans up after itself.
template <typename T>
struct WipingAllocator {
  using value_type = T;

  WipingAllocator() = default;
  template <typename U>
  WipingAllocator(const WipingAllocator<U>&) {}

  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* memory, std::size_t count) {
    explicit_bzero(memory, count * sizeof(T));
    std::allocator<T>().deallocate(memory, count);
  }
  bool operator==(const WipingAllocator&) const { return true; }
  bool operator!=(const WipingAllocator&) const { return false; }
};

using SecretBytes = std::vector<uint8_t, WipingAllocator<uint8_t>>;

}  // namespace kelvaro::jsr309
