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

}  // namespace

HiddenKey::HiddenKey() {
  std::random_device random;
  for (std::uint8_t& octet : masked_) octet = static_cast<std::uint8_t>(random());
}

bool HiddenKey::StandsAt(const std::uint8_t* octets) const {
  std::size_t same = 0;
  while (same < kEnd && octets[same] == (*this)[kLength - kEnd + same]) ++same;
  return same == kEnd;
}

std::size_t HiddenKey::CopiesInMemory() const {
  const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
  std::vector<std::uint8_t> window(kWindow);
  const auto self = reinterpret_cast<std::size_t>(window.data());
  std::size_t copies = 0;
  for (const Region& region : WritableRegions()) {
    for (std::size_t at = region.begin; at < region.end; at += kWindow - kEnd) {
      const std::size_t wanted = std::min(kWindow, region.end - at);
      const ssize_t got = pread(memory, window.data(), wanted, static_cast<off_t>(at));
      for (std::size_t i = 0; static_cast<ssize_t>(i + kEnd) <= got; ++i) {
        const bool in_window = at + i >= self && at + i < self + kWindow;
        if (!in_window && StandsAt(&window[i])) ++copies;
      }
    }
  }
  close(memory);
  explicit_bzero(window.data(), kWindow);
  return copies;
}

}  // namespace test_support
