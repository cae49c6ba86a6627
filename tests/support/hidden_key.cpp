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
std::vector<std::size_t> Find(const std::vector<std::uint8_t>& what, const std::uint8_t* in, std::size_t length,
                              std::size_t address) {
  std::vector<std::size_t> found;
  const auto* at = static_cast<const std::uint8_t*>(memmem(in, length, what.data(), what.size()));
  while (at != nullptr) {
    const auto offset = static_cast<std::size_t>(at - in);
    found.push_back(address + offset);
    at = static_cast<const std::uint8_t*>(memmem(at + 1, length - offset - 1, what.data(), what.size()));
  }
  return found;
}

/// How often it stands in memory beside where it is handed in, which is wiped.
std::size_t CountAndWipe(std::vector<std::uint8_t>& wanted) {
  const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
  std::vector<std::uint8_t> window(kWindow);
  const auto self = reinterpret_cast<std::size_t>(window.data());
  std::size_t copies = 0;
  for (const Region& region : WritableRegions()) {
    for (std::size_t at = region.begin; at < region.end; at += kWindow - wanted.size()) {
      const ssize_t got = pread(memory, window.data(), std::min(kWindow, region.end - at), static_cast<off_t>(at));
      if (got <= 0) continue;
      for (const std::size_t found : Find(wanted, window.data(), static_cast<std::size_t>(got), at)) {
        const bool own = found == reinterpret_cast<std::size_t>(wanted.data());
        if (!own && (found < self || found >= self + kWindow)) ++copies;
      }
    }
  }
  close(memory);
  explicit_bzero(wanted.data(), wanted.size());
  explicit_bzero(window.data(), kWindow);
  return copies;
}

}  // namespace

HiddenKey::HiddenKey() {
  std::random_device random;
  for (std::uint8_t& octet : masked_) octet = static_cast<std::uint8_t>(random());
}

std::size_t HiddenKey::CopiesInMemory() const {
  std::vector<std::uint8_t> wanted(kCount);
  for (std::size_t i = 0; i < kCount; ++i) wanted[i] = (*this)[kFirst + i];
  return CountAndWipe(wanted);
}

std::size_t HiddenKey::Base64CopiesInMemory() const {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  static_assert(kLength % 3 == 0);
  std::vector<std::uint8_t> wanted(kLength / 3 * 4);
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    const std::size_t first = i / 4 * 3;
    const std::uint32_t group = std::uint32_t{(*this)[first]} << 16 | std::uint32_t{(*this)[first + 1]} << 8 |
                                std::uint32_t{(*this)[first + 2]};
    wanted[i] = static_cast<std::uint8_t>(kDigits[group >> (18 - 6 * (i % 4)) & 0x3f]);
  }
  return CountAndWipe(wanted);
}

}  // namespace test_support
