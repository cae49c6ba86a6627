/// Running statistics over values that are not kept.
///
/// A media server that has carried ten million calls cannot keep ten million durations to tell the longest. Each of
/// these classes folds one value after the other into what the question needs. Values are of type T: it is ordered,
/// value-initialised to zero, can be added and divided by an int. The library uses unsigned long and
/// boost::posix_time::time_duration.
///
/// A getter yields none until the first value. Threads: none of the classes locks; the owner does.
#pragma once

#include <cstddef>
#include <limits>
#include <optional>

namespace kelvaro {

template <typename T>
class MinComputer {
 public:
  void AddData(const T& value) {
    if (!elementvalue_ || value < *elementvalue_) elementvalue_ = value;
  }
  std::optional<T> GetMin() const { return elementvalue_; }
  void Reset() { elementvalue_ = std::nullopt; }
  /// Starts over with one value already seen.
  void Reset(const T& value) { elementvalue_ = value; }

 private:
  std::optional<T> elementvalue_;
};

template <typename T>
class MaxComputer {
 public:
  void AddData(const T& value) {
    if (!elementvalue_ || *elementvalue_ < value) elementvalue_ = value;
  }
  std::optional<T> GetMax() const { return elementvalue_; }
  void Reset() { elementvalue_ = std::nullopt; }
  /// Starts over with one value already seen.
  void Reset(const T& value) { elementvalue_ = value; }

 private:
  std::optional<T> elementvalue_;
};

template <typename T>
class MinMaxComputer {
 public:
  void AddData(const T& value) {
    min_computer_.AddData(value);
    max_computer_.AddData(value);
  }
  std::optional<T> GetMin() const { return min_computer_.GetMin(); }
  std::optional<T> GetMax() const { return max_computer_.GetMax(); }
  void Reset() {
    min_computer_.Reset();
    max_computer_.Reset();
  }

 private:
  MinComputer<T> min_computer_;
  MaxComputer<T> max_computer_;
};

template <typename T>
class AvgComputer {
 public:
  void AddData(const T& value) {
    sum_ = sum_ + value;
    ++num_of_items_;
  }
  /// The mean, rounded towards zero at the resolution of T.
  std::optional<T> GetAvg() const {
    if (num_of_items_ == 0) return std::nullopt;
    return std::optional<T>(sum_ / Divisor(num_of_items_));
  }
  /// T is divided by an int. A server that runs for years counts further than that: the mean is then no longer exact,
  /// but it is never one by a negative number or by 0.
  static constexpr int Divisor(std::size_t items) {
    constexpr std::size_t kMost = std::numeric_limits<int>::max();
    return static_cast<int>(items < kMost ? items : kMost);
  }
  void Reset() {
    sum_ = T();
    num_of_items_ = 0;
  }
  /// Starts over with one value already seen.
  void Reset(const T& value) {
    sum_ = value;
    num_of_items_ = 1;
  }

 private:
  T sum_ = T();
  std::size_t num_of_items_ = 0;
};

template <typename T>
class MinMaxAvgComputer {
 public:
  void AddData(const T& value) {
    min_max_computer_.AddData(value);
    avg_computer_.AddData(value);
  }
  std::optional<T> GetMin() const { return min_max_computer_.GetMin(); }
  std::optional<T> GetMax() const { return min_max_computer_.GetMax(); }
  std::optional<T> GetAvg() const { return avg_computer_.GetAvg(); }
  void Reset() {
    min_max_computer_.Reset();
    avg_computer_.Reset();
  }

 private:
  MinMaxComputer<T> min_max_computer_;
  AvgComputer<T> avg_computer_;
};

}  // namespace kelvaro
