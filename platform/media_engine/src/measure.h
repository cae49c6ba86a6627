/// A figure that is measured again and again, of which the largest and the mean are wanted.
#pragma once

#include <algorithm>
#include <cstdint>

namespace media_engine {

class Measure {
 public:
  void Add(uint32_t value) {
    maximum_ = std::max(maximum_, value);
    sum_ += value;
    ++count_;
  }
  /// As if what the other was given had been given to this one too.
  void Add(const Measure& other) {
    maximum_ = std::max(maximum_, other.maximum_);
    sum_ += other.sum_;
    count_ += other.count_;
  }
  uint32_t maximum() const { return maximum_; }
  /// 0 when nothing was measured.
  uint32_t average() const { return count_ == 0 ? 0 : static_cast<uint32_t>(sum_ / count_); }

 private:
  uint64_t sum_ = 0;
  uint32_t count_ = 0;
  uint32_t maximum_ = 0;
};

}  // namespace media_engine
