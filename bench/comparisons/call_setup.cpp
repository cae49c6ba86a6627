#include <signal.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "../support/program.h"
#include "../support/rate_search.h"
#include "../support/system.h"
#include "call_stack.h"

namespace bench {
namespace {

constexpr double kSteadyRate = 1600;  // calls per second
constexpr double kBusyLoad = 0.97;    // of a core: the load can no more
// Of the time that a run should take. A stack that ends later has put calls off, which its buffers let it do for a run
// as short as ours but not for ever.
constexpr double kMostLate = 0.1;
constexpr int kStartAttempts = 20;

/// What sipp says at the end of its statistics file, by the column's name.
Figures LastLineOf(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::string header, line, last;
  std::getline(in, header);
  while (std::getline(in, line)) last = line;
  Figures figures;
  std::istringstream names(header), values(last);
  for (std::string name, value; std::getline(names, name, ';') && std::getline(values, value, ';');) {
    char* end = nullptr;
    const double number = std::strtod(value.c_str(), &end);
    if (end != value.c_str()) figures[name] = number;
  }
  return figures;
}

struct CallRun {
  double calls = 0, failed = 0, retransmissions = 0;
  double cpu_us_per_call = 0;  ///< the stack's
  double load_cores = 0;       ///< what caller and callee took of their core
  double late_seconds =
      0;  ///< by how much it ended later than the rate would have it; 15 ms are the start of the phone
  Trial verdict = Trial::kFails;
};

/// A callee that stays, and callers one after the other.
class Phones {
 public:
  Phones(const Settings& settings, CallStack& stack) : settings_(settings), stack_(stack) {
    callee_ = std::make_unique<Program>(Sipp(
        {"-sf", (settings.sources / "calls/callee.xml").string(), "-i", kCalleeAddress, "-p",
         std::to_string(kCalleePort), "-mi", kCalleeAddress, "-trace_stat", "-stf", CalleeFile().string(), "-fd", "1"},
        "callee.log"));
    for (int i = 0; i < kStartAttempts; ++i) {
      if (Place(10, 10).failed == 0) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    throw std::runtime_error(stack.name() + " does not carry calls, see " + settings.output.string());
  }
  ~Phones() { callee_->End(SIGKILL); }  // it would wait for calls that failed

  CallRun Run(double rate, double seconds) {
    CallRun run = Place(rate, std::llround(rate * seconds));
    const bool clean = run.failed == 0 && run.retransmissions == 0 && run.late_seconds < kMostLate * seconds;
    run.verdict = clean ? Trial::kHolds : run.load_cores > kBusyLoad ? Trial::kLoadFails : Trial::kFails;
    settings_.say("    " + stack_.name() + ", " + std::to_string(std::llround(rate)) +
                  " calls/s: " + std::to_string(std::llround(run.failed)) + " failed, " +
                  std::to_string(std::llround(run.retransmissions)) + " retransmissions, " +
                  std::to_string(run.cpu_us_per_call) + " us CPU a call, late by " + std::to_string(run.late_seconds) +
                  " s, load " + std::to_string(run.load_cores));
    return run;
  }

 private:
  std::filesystem::path CalleeFile() const { return settings_.output / "callee.csv"; }

  ProgramSettings Sipp(std::vector<std::string> arguments, const char* log) const {
    ProgramSettings program;
    program.command = {"sipp", "-nostdin", "-l", "5000", "-max_invite_retrans", "3", "-max_non_invite_retrans", "3"};
    program.command.insert(program.command.end(), arguments.begin(), arguments.end());
    program.core = kLoadCore;
    program.log = settings_.output / log;
    program.speaks = false;
    return program;
  }

  CallRun Place(double rate, long long count) {
    const std::filesystem::path file = settings_.output / "caller.csv";
    std::filesystem::remove(file);
    const double callee_retransmissions = LastLineOf(CalleeFile())["Retransmissions(C)"];
    const double stack_cpu = stack_.CpuSeconds(), callee_cpu = CpuSecondsOf(callee_->pid());
    const int64_t start = MonotonicNs();
    Program caller(Sipp({"-sf",         (settings_.sources / "calls/caller.xml").string(),
                         "-s",          kCalledNumber,
                         "-i",          kCallerAddress,
                         "-p",          std::to_string(kCallerPort),
                         "-mi",         kCallerAddress,
                         "-r",          std::to_string(std::llround(rate)),
                         "-m",          std::to_string(count),
                         "-timeout",    "30",
                         "-trace_stat", "-stf",
                         file.string(), "-fd",
                         "1",           kStackSip},
                        "caller.log"));
    double caller_cpu = 0;
    while (caller.Running()) {
      caller_cpu = CpuSecondsOf(caller.pid());
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const double wall = 1e-9 * static_cast<double>(MonotonicNs() - start);
    CallRun run;
    run.late_seconds = wall - static_cast<double>(count) / rate;
    run.load_cores = (caller_cpu + CpuSecondsOf(callee_->pid()) - callee_cpu) / wall;
    // The callee's statistics come every second.
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    Figures caller_figures = LastLineOf(file), callee_figures = LastLineOf(CalleeFile());
    run.calls = caller_figures["SuccessfulCall(C)"];
    run.failed = static_cast<double>(count) - run.calls;
    run.retransmissions =
        caller_figures["Retransmissions(C)"] + callee_figures["Retransmissions(C)"] - callee_retransmissions;
    if (run.calls > 0) run.cpu_us_per_call = 1e6 * (stack_.CpuSeconds() - stack_cpu) / run.calls;
    return run;
  }

  const Settings& settings_;
  CallStack& stack_;
  std::unique_ptr<Program> callee_;
};

/// The highest rate at which as many runs as there are rounds go without a failure or a retransmission.
Highest FindPeak(const Settings& settings, Phones& phones, double cpu_us_per_call) {
  const double seconds = 2 * settings.trial_seconds;
  SearchSettings search;
  search.guess = 0.8e6 / cpu_us_per_call;  // what one core would carry, nearly
  search.step = 0.2;
  search.resolution = 0.05;
  search.lowest = 50;
  Highest highest = FindHighestRate(search, [&](double rate) { return phones.Run(rate, seconds).verdict; });
  for (int good = 0; good < settings.rounds && highest.rate > search.lowest;) {
    const Trial verdict = phones.Run(highest.rate, seconds).verdict;
    good = verdict == Trial::kHolds ? good + 1 : 0;
    if (verdict != Trial::kHolds) highest.rate *= 0.95;
  }
  return highest;
}

struct Side {
  std::string name;
  std::vector<double> rates, cpu_us;
  std::string note;
};

using StackStart = std::unique_ptr<CallStack> (*)(const Settings&);

void MeasureCost(const Settings& settings, StackStart start, Side& side) {
  const std::unique_ptr<CallStack> stack = start(settings);
  side.name = stack->name();
  Phones phones(settings, *stack);
  const CallRun steady = phones.Run(kSteadyRate, settings.steady_seconds);
  side.cpu_us.push_back(steady.cpu_us_per_call);
  if (steady.verdict != Trial::kHolds)
    side.note = side.name + " did not carry 1,600 calls/s without failures, retransmissions or delay";
}

/// With a stack of its own: one that was offered more than it carries has the calls of that time to end first.
void MeasureRate(const Settings& settings, StackStart start, Side& side) {
  const std::unique_ptr<CallStack> stack = start(settings);
  Phones phones(settings, *stack);
  const Highest highest = FindPeak(settings, phones, side.cpu_us.back());
  side.rates.push_back(highest.rate);
  if (highest.by_the_load) side.note += (side.note.empty() ? "" : "; ") + ("the load was the limit of " + side.name);
}

}  // namespace

Comparisons CompareCallSetup(const Settings& settings) {
  settings.say("call setup, answered and hung up at once");
  Side ours, reference;
  for (int round = 0; round < settings.rounds; ++round) {
    MeasureCost(settings, StartSwitchStack, ours);
    MeasureCost(settings, StartKamailioStack, reference);
    MeasureRate(settings, StartSwitchStack, ours);
    MeasureRate(settings, StartKamailioStack, reference);
  }
  const auto compare = [&](const char* id, const char* what, const char* unit, bool at_most,
                           std::vector<double> Side::*figure) {
    Comparison out;
    out.id = id;
    out.what = what;
    out.unit = unit;
    out.target = 1.0;
    out.at_most = at_most;
    out.ours_name = ours.name;
    out.reference_name = reference.name;
    out.ours = ours.*figure;
    out.reference = reference.*figure;
    out.note = ours.note + (ours.note.empty() || reference.note.empty() ? "" : "; ") + reference.note;
    return out;
  };
  return {compare("call_rate", "call setup, one core", "calls/s", false, &Side::rates),
          compare("call_cost", "call setup, 1,600 calls/s", "CPU us/call", true, &Side::cpu_us)};
}

}  // namespace bench
