#include "support/hidden_key.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace test_support {
namespace {

// What is looked for. The C library's allocator writes into the first 16 octets of what is freed, so only the salt
// tells there; a sanitizer's leaves all as it is, and then tells also of the salt in initialisation vectors, which are
// not secret, but of the key nothing else.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kFirst = 0, kCount = 16;
#else
constexpr std::size_t kFirst = 16, kCount = 14;
#endif

/// Larger ones are the books of sanitizers.
constexpr std::size_t kLargestRegion = std::size_t{1} << 30;
constexpr std::size_t kWindow = std::size_t{1} << 20;

struct Region {
  std::size_t begin = 0, end = 0;
};

std::vector<Region> WritableRegions() {
  std::vector<Region> regions;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    std::istringstream fields(line);
    Region region;
    char dash = 0;
    std::string permissions;
    fields >> std::hex >> region.begin >> dash >> region.end >> permissions;
    if (permissions.substr(0, 2) == "rw" && region.end - region.begin <= kLargestRegion) regions.push_back(region);
  }
  return regions;
}

/// Where in a piece of memory something stands, as addresses there.
std::vector<std::size_t> Find(const std::uint8_t* what, const std::uint8_t* in, std::size_t length,
                              std::size_t address) {
  std::vector<std::size_t> found;
  const auto* at = static_cast<const std::uint8_t*>(memmem(in, length, what, kCount));
  while (at != nullptr) {
    const auto offset = static_cast<std::size_t>(at - in);
    found.push_back(address + offset);
    at = static_cast<const std::uint8_t*>(memmem(at + 1, length - offset - 1, what, kCount));
  }
  return found;
}

}  // namespace

HiddenKey::HiddenKey() {
  std::random_device random;
  for (std::uint8_t& octet : masked_) octet = static_cast<std::uint8_t>(random());
}

std::size_t HiddenKey::CopiesInMemory() const {
  std::array<std::uint8_t, kCount> wanted;
  for (std::size_t i = 0; i < kCount; ++i) wanted[i] = (*this)[kFirst + i];
  const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
  std::vector<std::uint8_t> window(kWindow);
  const auto self = reinterpret_cast<std::size_t>(window.data());
  std::size_t copies = 0;
  for (const Region& region : WritableRegions()) {
    for (std::size_t at = region.begin; at < region.end; at += kWindow - kCount) {
      const ssize_t got = pread(memory, window.data(), std::min(kWindow, region.end - at), static_cast<off_t>(at));
      if (got <= 0) continue;
      for (const std::size_t found : Find(wanted.data(), window.data(), static_cast<std::size_t>(got), at)) {
        const bool own = found == reinterpret_cast<std::size_t>(wanted.data());
        if (!own && (found < self || found >= self + kWindow)) ++copies;
      }
    }
  }
  close(memory);
  explicit_bzero(wanted.data(), kCount);
  explicit_bzero(window.data(), kWindow);
  return copies;
}

}  // namespace test_support
