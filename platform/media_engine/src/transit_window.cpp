#include "transit_window.h"

#include <algorithm>

namespace media_engine {
namespace {

constexpr uint64_t kRefreshInterval = 16;
constexpr std::size_t kOneIn = 100;

}  // namespace

bool TransitWindow::Add(microseconds transit) {
  transits_[count_ % kPackets] = transit;
  shortest_ = count_ == 0 ? transit : std::min(shortest_, transit);
  if (++count_ % kRefreshInterval != 0) return false;
  Refresh();
  return true;
}

void TransitWindow::Refresh() {
  const std::size_t size = count();
  if (size == 0) return;
  std::array<microseconds, kPackets> sorted;
  const auto end = std::copy_n(transits_.begin(), size, sorted.begin());
  shortest_ = *std::min_element(sorted.begin(), end);
  const auto nearly_all = end - 1 - static_cast<std::ptrdiff_t>(size / kOneIn);
  std::nth_element(sorted.begin(), nearly_all, end);
  spread_ = *nearly_all - shortest_;
}

}  // namespace media_engine
