/// Finds the highest rate that holds, by trying.
///
/// A trial at one rate tells only whether that rate holds, and near the limit it does not always say the same. So a
/// rate that fails gets a second trial, and the answer is the highest rate that held, never one in between. The search
/// goes up or down from a guess in steps until it has a rate that holds below one that does not, and then halves the
/// gap.
///
/// A rate at which the load could not keep up says nothing of what is measured: the search then stops, and the limit
/// counts as the load's.
///
/// Pure logic; the trials are the caller's. Threads: the caller's.
#pragma once

#include <functional>

namespace bench {

enum class Trial {
  kHolds,
  kFails,
  kLoadFails,  ///< the load did not reach the rate
};

struct SearchSettings {
  double guess = 100000;
  double step = 0.10;        ///< of the rate, upwards and downwards
  double resolution = 0.01;  ///< of the rate; the gap that is left
  double lowest = 1000;      ///< below it nothing is tried
};

struct Highest {
  double rate = 0;           ///< 0: none held
  bool by_the_load = false;  ///< what is measured might do more
  int trials = 0;
};

Highest FindHighestRate(const SearchSettings& settings, const std::function<Trial(double rate)>& try_rate);

}  // namespace bench
