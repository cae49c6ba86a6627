#include <stdexcept>

#include "../support/program.h"
#include "settings.h"

namespace bench {
namespace {

constexpr int kFew = 10, kMany = 100000;

Figures Measure(const Settings& settings, int sessions, int threads) {
  ProgramSettings program;
  program.command = {(settings.programs / "bench_module_cost").string(), (settings.output / "module").string(),
                     std::to_string(sessions), std::to_string(threads), std::to_string(settings.steady_seconds)};
  program.core = threads == 1 ? kMeasuredCore : kAnyCore;
  program.log = settings.output / "module.log";
  Program measured(program);
  Figures figures = FiguresOf(measured.Hear("result", std::chrono::minutes(5)), 1);
  if (measured.AwaitEnd(std::chrono::minutes(2)) != 0)
    throw std::runtime_error("the module's program failed at its end");
  settings.say("    module, " + std::to_string(sessions) + " sessions, " + std::to_string(threads) +
               " threads: " + std::to_string(figures["cpu_us_per_call"]) + " us CPU a call, " +
               std::to_string(figures["calls_per_second"]) + " calls/s" +
               (threads == 1 ? "" : ", cores " + std::to_string(figures["core_distance_ns"]) + " ns apart"));
  return figures;
}

}  // namespace

Comparisons CompareModule(const Settings& settings) {
  settings.say("module cost, 10 and 100,000 sessions, 1 and 2 threads");
  Comparison many, threads;
  many.id = "module_sessions";
  many.what = "module, 100,000 sessions in its tables";
  many.unit = "CPU us/call";
  many.ours_name = "at 100,000";
  many.reference_name = "at 10";
  many.target = 1.2;
  many.at_most = true;
  threads.id = "module_threads";
  threads.what = "module, two threads";
  threads.unit = "calls/s";
  threads.ours_name = "two threads";
  threads.reference_name = "one";
  threads.target = 1.6;
  for (int round = 0; round < settings.rounds; ++round) {
    Figures few = Measure(settings, kFew, 1);
    many.reference.push_back(few["cpu_us_per_call"]);
    threads.reference.push_back(few["calls_per_second"]);
    threads.ours.push_back(Measure(settings, kFew, 2)["calls_per_second"]);
    many.ours.push_back(Measure(settings, kMany, 1)["cpu_us_per_call"]);
  }
  return {many, threads};
}

}  // namespace bench
