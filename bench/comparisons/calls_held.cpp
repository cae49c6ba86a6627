#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "../support/program.h"
#include "../support/rate_search.h"
#include "../support/system.h"
#include "call_stack.h"
#include "relay.h"

namespace bench {
namespace {

constexpr std::size_t kMostCalls = 3000;  // that are set up, and of which so many as are tried get audio
constexpr int kCallsPerSecond = 100;      // while they are set up
constexpr int kSetUpLimitSeconds = 90;
constexpr double kMostLoss = 0.001;
constexpr double kMostBacklog = 0.005;
// The load shares the cores and may be put off; when it cannot catch up it is not at the rate any more.
constexpr double kLatestEndShare = 0.01;
constexpr double kLongestLatenessUs = 200000;
constexpr double kFirstGuess = 1000;

/// All threads of all programs that this one has started, and of those that they have: no core is theirs.
void Unpin(pid_t parent) {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  for (int core = 0; core < CoreCount(); ++core) CPU_SET(core, &cores);
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::ifstream status(entry.path() / "stat");
    std::string number, name, state;
    pid_t of = 0;
    if (!(status >> number >> name >> state >> of) || of != parent) continue;
    for (const auto& thread : std::filesystem::directory_iterator(entry.path() / "task")) {
      sched_setaffinity(std::stoi(thread.path().filename().string()), sizeof cores, &cores);
    }
    Unpin(std::stoi(number));
  }
}

/// Calls that are up, and the audio in them.
class HeldCalls {
 public:
  HeldCalls(const Settings& settings, CallStack& stack)
      : settings_(settings), stack_(stack), load_(Unpinned({(settings.programs / "bench_load").string()}, "load.log")) {
    Unpin(getpid());
    load_.Say("open " + std::to_string(2 * kMostCalls) + " " + kFarAddress);
    const std::vector<uint16_t> ports = PortsOf(load_.Hear("ports"), 1);
    load_.Hear("rtcp");
    load_.Hear("keys");
    WriteEnds(ports, 0, kCallerEnds);
    WriteEnds(ports, 1, kCalleeEnds);
    SetUp();
  }

  Trial Carries(std::size_t calls) {
    const double seconds = 2 * settings_.trial_seconds;
    load_.Say("talk " + std::to_string(2 * calls) + " " + std::to_string(seconds));
    Figures f = FiguresOf(load_.Hear("result"), 1);
    const double lost = f["sent"] - f["in_time"] - f["late"];
    settings_.say("    " + stack_.name() + ", " + std::to_string(calls) + " calls: sent " + std::to_string(f["sent"]) +
                  ", lost " + std::to_string(lost) + ", late " + std::to_string(f["late"]) + ", load late by " +
                  std::to_string(f["longest_lateness_us"]) + " us at most");
    // Whoever comes too late, load or stack: the machine cannot hold so many.
    const bool load_in_time = f["refused"] == 0 && f["lateness_us"] <= 1e6 * kLatestEndShare * seconds &&
                              f["longest_lateness_us"] <= kLongestLatenessUs;
    const bool held =
        load_in_time && f["quiet"] != 0 && lost < kMostLoss * f["sent"] && f["late"] < kMostBacklog * f["sent"];
    return held ? Trial::kHolds : Trial::kFails;
  }

 private:
  static constexpr char kCallerEnds[] = "held_caller.csv", kCalleeEnds[] = "held_callee.csv";
  static constexpr char kCallerLog[] = "held_caller.ports", kCalleeLog[] = "held_callee.ports";

  ProgramSettings Unpinned(std::vector<std::string> command, const char* log) const {
    ProgramSettings program;
    program.command = std::move(command);
    program.log = settings_.output / log;
    return program;
  }

  /// Every second far end, as sipp takes them: port and place.
  void WriteEnds(const std::vector<uint16_t>& ports, std::size_t first, const char* file) const {
    std::ofstream out(settings_.output / file);
    out << "SEQUENTIAL\n";
    for (std::size_t end = first; end < ports.size(); end += 2) out << ports[end] << ";" << end << ";\n";
  }

  std::unique_ptr<Program> Phone(const char* scenario, const char* ends, const char* ports,
                                 std::vector<std::string> more, const char* log) const {
    std::filesystem::remove(settings_.output / ports);
    std::vector<std::string> command{"sipp",
                                     "-nostdin",
                                     "-sf",
                                     (settings_.sources / "calls" / scenario).string(),
                                     "-inf",
                                     (settings_.output / ends).string(),
                                     "-mi",
                                     kFarAddress,
                                     "-trace_logs",
                                     "-log_file",
                                     (settings_.output / ports).string(),
                                     "-l",
                                     std::to_string(kMostCalls)};
    command.insert(command.end(), more.begin(), more.end());
    ProgramSettings program = Unpinned(std::move(command), log);
    program.speaks = false;
    return std::make_unique<Program>(std::move(program));
  }

  void SetUp() {
    callee_ = Phone("held_callee.xml", kCalleeEnds, kCalleeLog,
                    {"-i", kCalleeAddress, "-p", std::to_string(kCalleePort)}, "held_callee.log");
    caller_ = Phone("held_caller.xml", kCallerEnds, kCallerLog,
                    {"-i", kCallerAddress, "-p", std::to_string(kCallerPort), "-s", kCalledNumber, "-r",
                     std::to_string(kCallsPerSecond), "-m", std::to_string(kMostCalls), kStackSip},
                    "held_caller.log");
    const int64_t end = MonotonicNs() + int64_t{1000000000} * kSetUpLimitSeconds;
    std::vector<std::vector<std::size_t>> callers, callees;
    while (callers.size() < kMostCalls || callees.size() < kMostCalls) {
      if (MonotonicNs() > end || !caller_->Running()) {
        throw std::runtime_error(stack_.name() + " has set up " + std::to_string(callers.size()) + " of " +
                                 std::to_string(kMostCalls) + " calls, see " + settings_.output.string());
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      callers = LinesOf(kCallerLog, 2);
      callees = LinesOf(kCalleeLog, 3);
    }
    Connect(callers, callees);
  }

  /// Lines of that many numbers; one that is being written does not count.
  std::vector<std::vector<std::size_t>> LinesOf(const char* file, std::size_t numbers) const {
    std::ifstream in(settings_.output / file);
    std::vector<std::vector<std::size_t>> lines;
    for (std::string line; std::getline(in, line) && !in.eof();) {
      std::istringstream words(line);
      std::vector<std::size_t> found;
      for (std::size_t number = 0; words >> number;) found.push_back(number);
      if (found.size() == numbers) lines.push_back(std::move(found));
    }
    return lines;
  }

  /// Callers say who they are and where they have to send; callees whose call it is, who they are, and where they have
  /// to send. Calls may have come in another order than they were made in.
  void Connect(const std::vector<std::vector<std::size_t>>& callers,
               const std::vector<std::vector<std::size_t>>& callees) {
    std::vector<std::size_t> order(2 * kMostCalls), ports(2 * kMostCalls);
    for (const auto& caller : callers) {
      order.at(caller[0]) = caller[0];
      ports.at(caller[0]) = caller[1];
    }
    for (const auto& callee : callees) {
      order.at(callee[0] + 1) = callee[1];
      ports.at(callee[0] + 1) = callee[2];
    }
    load_.Say(Line("order", order));
    load_.Hear("ready");
    load_.Say(Line(std::string("to ") + kRelayAddress, ports));
    load_.Hear("ready");
  }

  const Settings& settings_;
  CallStack& stack_;
  Program load_;
  std::unique_ptr<Program> callee_, caller_;
};

double MostHeld(const Settings& settings, std::unique_ptr<CallStack> stack, double guess) {
  HeldCalls calls(settings, *stack);
  calls.Carries(kMostCalls / 10);  // every relay finds its far ends first
  SearchSettings search;
  search.guess = guess;
  search.step = 0.2;
  search.resolution = 0.03;
  search.lowest = 50;
  const Highest highest = FindHighestRate(search, [&](double count) {
    if (count > static_cast<double>(kMostCalls)) return Trial::kLoadFails;
    return calls.Carries(static_cast<std::size_t>(count));
  });
  return highest.rate;
}

}  // namespace

Comparisons CompareCallsHeld(const Settings& given) {
  Settings settings = given;
  settings.relay_threads = static_cast<unsigned>(CoreCount());
  settings.say("calls held, with audio both ways");
  Comparison out;
  out.id = "calls_held";
  out.what = "calls held, all cores, load included";
  out.unit = "calls";
  out.target = 1.5;
  out.ours_name = "kvx-switch";
  out.reference_name = "kamailio + rtpengine";
  const auto guess = [](const std::vector<double>& before) { return before.empty() ? kFirstGuess : Median(before); };
  for (int round = 0; round < settings.rounds; ++round) {
    out.ours.push_back(MostHeld(settings, StartSwitchStack(settings), guess(out.ours)));
    out.reference.push_back(MostHeld(settings, StartKamailioStack(settings), guess(out.reference)));
  }
  return {out};
}

}  // namespace bench
