// Runs the comparisons and tells what came of them; exit code 0 only when every one of them ran.
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "../support/report.h"
#include "../support/system.h"
#include "settings.h"

namespace bench {
namespace {

const std::vector<Group>& Groups() {
  static const std::vector<Group> groups{{"forwarding", CompareForwarding}, {"srtp", CompareSrtp},
                                         {"steady", CompareSteadyWork},     {"module", CompareModule},
                                         {"control", CompareControl},       {"calls", CompareCallSetup},
                                         {"held", CompareCallsHeld}};
  return groups;
}

constexpr int kByMode = 0;  // how many rounds

struct Options {
  Settings settings;
  RunText run;
  std::vector<std::string> only;
};

[[noreturn]] void Usage(const std::string& problem) {
  std::string names;
  for (const Group& group : Groups()) names += (names.empty() ? "" : ", ") + group.name;
  throw std::runtime_error(problem +
                           "; usage: kvx-bench --out DIR --modules DIR --sources DIR [--commit TEXT] [--quick] "
                           "[--rounds N] [--only GROUP]...   (groups: " +
                           names + ")");
}

void TakeQuick(Options& options) {
  if (options.settings.rounds == kByMode) options.settings.rounds = 2;
  options.settings.trial_seconds = 0.7;
  options.settings.steady_seconds = 2;
}

Options Read(const std::vector<std::string>& words) {
  Options options;
  options.run.mode = "full";
  options.settings.rounds = kByMode;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word == "--quick") {
      options.run.mode = "quick";
      continue;
    }
    if (i + 1 == words.size()) Usage("\"" + word + "\" is unknown or lacks its value");
    const std::string& value = words[++i];
    if (word == "--out")
      options.settings.output = value;
    else if (word == "--modules")
      options.settings.modules = value;
    else if (word == "--sources")
      options.settings.sources = value;
    else if (word == "--commit")
      options.run.commit = value;
    else if (word == "--rounds")
      options.settings.rounds = std::stoi(value);
    else if (word == "--only")
      options.only.push_back(value);
    else
      Usage("unknown option \"" + word + "\"");
  }
  if (options.run.mode == "quick") TakeQuick(options);
  if (options.settings.rounds == kByMode) options.settings.rounds = 5;
  if (options.settings.output.empty() || options.settings.rounds < 1) Usage("--out is missing or --rounds below 1");
  return options;
}

std::string Now() {
  char text[32];
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", gmtime_r(&now, &parts));
  return text;
}

bool Wanted(const Options& options, const std::string& name) {
  if (options.only.empty()) return true;
  for (const std::string& one : options.only) {
    if (one == name) return true;
  }
  return false;
}

void CheckNames(const Options& options) {
  for (const std::string& one : options.only) {
    bool known = false;
    for (const Group& group : Groups()) known = known || group.name == one;
    if (!known) Usage("unknown group \"" + one + "\"");
  }
}

Comparisons RunGroup(const Group& group, const Settings& settings) {
  try {
    return group.run(settings);
  } catch (const std::exception& error) {
    Comparison failed;
    failed.id = group.name;
    failed.what = group.name;
    failed.failure = error.what();
    return {failed};
  }
}

int Main(Options options) {
  CheckNames(options);
  if (CoreCount() < 2) throw std::runtime_error("two cores are needed, one for the load");
  std::filesystem::create_directories(options.settings.output);
  options.settings.output = std::filesystem::canonical(options.settings.output);
  options.run.date = Now();
  options.run.machine = MachineText();
  std::ofstream log(options.settings.output / "runs.log");
  options.settings.say = [&log](const std::string& text) {
    log << text << std::endl;
    if (text.rfind("    ", 0) != 0) std::cout << text << std::endl;
  };
  Comparisons all;
  for (const Group& group : Groups()) {
    if (!Wanted(options, group.name)) continue;
    const Comparisons found = RunGroup(group, options.settings);
    all.insert(all.end(), found.begin(), found.end());
  }
  std::ofstream(options.settings.output / "results.json") << JsonOf(options.run, all);
  std::ofstream(options.settings.output / "results.svg") << PlotOf(options.run, all);
  std::cout << "\n"
            << options.run.date << ", " << options.run.machine << ", " << options.run.commit << ", " << options.run.mode
            << ", " << options.settings.rounds << " rounds\n\n"
            << TableOf(all);
  bool complete = options.only.empty();
  for (const Comparison& one : all) complete = complete && one.ran();
  if (!complete) std::cout << "\nNot every comparison ran.\n";
  return complete ? 0 : 1;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) try {
  bench::Options options = bench::Read({argv + 1, argv + argc});
  options.settings.programs = std::filesystem::canonical("/proc/self/exe").parent_path();
  return bench::Main(std::move(options));
} catch (const std::exception& error) {
  std::fprintf(stderr, "kvx-bench: %s\n", error.what());
  return 2;
}
