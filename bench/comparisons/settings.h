/// How a run of the measurements is to be: where things lie, how often and how long is measured.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "../support/figures.h"

namespace bench {

// What is measured has one core, what measures it the other.
constexpr int kMeasuredCore = 0;
constexpr int kLoadCore = 1;

// Addresses of their own keep the ports of load and relay apart from each other and from what else runs here.
constexpr char kFarAddress[] = "127.0.0.2";
constexpr char kRelayAddress[] = "127.0.0.3";
// Below the ports that the system hands out; two for each of 8,000 legs.
constexpr uint16_t kFirstRelayPort = 10000;
constexpr uint16_t kLastRelayPort = 27999;

struct Settings {
  std::filesystem::path programs;               ///< where the programs of the measurements lie
  std::filesystem::path modules;                ///< where the switch's modules lie
  std::filesystem::path sources;                ///< where bench/ lies
  std::filesystem::path output;                 ///< where logs, JSON and the plot go
  int rounds = 5;                               ///< of each comparison, its sides in turns
  double trial_seconds = 1.0;                   ///< one trial at one rate
  double steady_seconds = 4.0;                  ///< at a rate that is given
  unsigned relay_threads = 1;                   ///< of what moves packets; on one core more only take turns
  std::function<void(const std::string&)> say;  ///< progress, for who waits
};

using Comparisons = std::vector<Comparison>;

/// A group of comparisons that share their runs.
struct Group {
  std::string name;  ///< as --only names it
  std::function<Comparisons(const Settings&)> run;
};

Comparisons CompareForwarding(const Settings& settings);  ///< rate, floor, growth, memory
Comparisons CompareSrtp(const Settings& settings);
Comparisons CompareSteadyWork(const Settings& settings);  ///< cost and delay at 50,000 packets/s
Comparisons CompareModule(const Settings& settings);
Comparisons CompareControl(const Settings& settings);
Comparisons CompareCallSetup(const Settings& settings);  ///< rate and cost of calls
Comparisons CompareCallsHeld(const Settings& settings);  ///< calls at once, with audio, on all cores

}  // namespace bench
