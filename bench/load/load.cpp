// The load: plays the far ends of calls through a relay, and counts.
//
//     open COUNT ADDRESS [srtp]   ->  ports P0 P1 ...   rtcp P   keys K0 K1 ...
//     to ADDRESS P0 P1 ...        ->  ready
//     run RATE SECONDS [stamped]  ->  result NAME VALUE ...
//     order E0 E1 ...             ->  ready                    (before "to": which ends are the two of a call)
//     talk COUNT SECONDS          ->  result NAME VALUE ...    (so many ends at 50/s, at rest between packets)
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "../support/lines.h"
#include "../support/system.h"
#include "far_ends.h"

namespace bench {
namespace {

constexpr double kPacketsPerSecond = 50;  // of a far end that talks
constexpr int64_t kGraceNs = 300'000'000;
constexpr int64_t kReportsEveryNs = 20'000'000;
constexpr uint64_t kTurnsUnread = 8;  // of a far end: packets that may wait in its socket
// A run begins when nothing of the former one is left in the relay, and waits that long for it at most.
constexpr int64_t kQuietNs = 100'000'000, kLongestWaitNs = 5'000'000'000;

struct Outcome {
  uint64_t planned = 0, sent = 0, refused = 0, in_time = 0, late = 0, strange = 0, own_drops = 0;
  bool quiet = true;  // before
  int64_t lateness_ns = 0, longest_lateness_ns = 0;
  std::vector<int64_t> delays;
};

/// Whether it waits for the next packet awake, which is exact and takes a core, or asleep.
enum class Waiting { kAwake, kAsleep };

/// Sends at an even pace: one packet every 1/rate seconds, the first so many far ends taking turns.
class Run {
 public:
  Run(FarEnds& ends, std::size_t count, double rate, double seconds, Waiting waiting = Waiting::kAwake)
      : ends_(ends),
        count_(count),
        rate_(rate),
        planned_(static_cast<uint64_t>(std::llround(rate * seconds))),
        waiting_(waiting) {}

  Outcome Do(bool stamped) {
    outcome_.planned = planned_;
    ends_.BeginRun(stamped, static_cast<std::size_t>(planned_ / count_ + 1));
    if (stamped) outcome_.delays.reserve(planned_);
    outcome_.quiet = AwaitQuiet();
    const uint64_t drops = ends_.OwnDrops();
    Pace();
    TakeIn(outcome_.in_time);
    const int64_t end = MonotonicNs() + kGraceNs;
    while (MonotonicNs() < end) TakeIn(outcome_.late);
    outcome_.own_drops = ends_.OwnDrops() - drops;
    return std::move(outcome_);
  }

 private:
  /// False when the relay still has packets of the former run.
  bool AwaitQuiet() {
    const int64_t start = MonotonicNs();
    int64_t last = start;
    int64_t now = start;
    for (; now < last + kQuietNs && now < start + kLongestWaitNs; now = MonotonicNs()) {
      uint64_t came = 0, strange = outcome_.strange;
      TakeIn(came);
      if (came > 0 || outcome_.strange > strange) last = MonotonicNs();
    }
    outcome_.strange = 0;
    outcome_.delays.clear();
    return now < start + kLongestWaitNs;
  }

  void Pace() {
    const int64_t start = MonotonicNs();
    int64_t reports_due = start;
    for (uint64_t i = 0; i < planned_; ++i) {
      const int64_t due = start + static_cast<int64_t>(static_cast<double>(i) * 1e9 / rate_);
      int64_t now = MonotonicNs();
      while (now < due) now = Wait();
      outcome_.lateness_ns = now - due;
      outcome_.longest_lateness_ns = std::max(outcome_.longest_lateness_ns, now - due);
      const std::size_t end = i % count_;
      if (i / count_ % kTurnsUnread == kTurnsUnread - 1) Receive(end, outcome_.in_time);
      if (ends_.Send(end)) {
        ++outcome_.sent;
      } else {
        ++outcome_.refused;
      }
      if (now < reports_due) continue;
      ends_.DrainReports();
      reports_due = now + kReportsEveryNs;
    }
  }

  int64_t Wait() const {
    if (waiting_ == Waiting::kAsleep) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return MonotonicNs();
  }

  void Receive(std::size_t end, uint64_t& counter) {
    Arrivals arrivals;
    ends_.Receive(end, arrivals, outcome_.delays);
    counter += arrivals.expected;
    outcome_.strange += arrivals.strange;
  }

  void TakeIn(uint64_t& counter) {
    for (std::size_t end = 0; end < ends_.count(); ++end) Receive(end, counter);
    ends_.DrainReports();
  }

  FarEnds& ends_;
  const std::size_t count_;
  const double rate_;
  const uint64_t planned_;
  const Waiting waiting_;
  Outcome outcome_;
};

double Percentile(std::vector<int64_t>& values, double share) {
  if (values.empty()) return 0;
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return static_cast<double>(*at) / 1000;
}

void Report(Outcome outcome) {
  char line[512];
  std::snprintf(
      line, sizeof line,
      "result quiet %d planned %llu sent %llu refused %llu in_time %llu late %llu strange %llu own_drops %llu "
      "lateness_us %.1f longest_lateness_us %.1f p50_us %.2f p99_us %.2f",
      outcome.quiet ? 1 : 0, static_cast<unsigned long long>(outcome.planned),
      static_cast<unsigned long long>(outcome.sent), static_cast<unsigned long long>(outcome.refused),
      static_cast<unsigned long long>(outcome.in_time), static_cast<unsigned long long>(outcome.late),
      static_cast<unsigned long long>(outcome.strange), static_cast<unsigned long long>(outcome.own_drops),
      static_cast<double>(outcome.lateness_ns) / 1000, static_cast<double>(outcome.longest_lateness_ns) / 1000,
      Percentile(outcome.delays, 0.5), Percentile(outcome.delays, 0.99));
  Answer(line);
}

void Obey(const Words& words, std::unique_ptr<FarEnds>& ends) {
  if (words[0] == "open" && words.size() >= 3) {
    const std::size_t count = std::stoul(words[1]);
    AllowFiles(count + 64);
    ends = std::make_unique<FarEnds>(count, words[2], words.size() > 3 && words[3] == "srtp");
    Answer(Line("ports", ends->Ports()));
    Answer("rtcp " + std::to_string(ends->RtcpPort()));
    Answer(Line("keys", ends->Keys()));
  } else if (words[0] == "order" && ends) {
    std::vector<std::size_t> order;
    for (auto word = words.begin() + 1; word != words.end(); ++word) order.push_back(std::stoul(*word));
    ends->Reorder(order);
    Answer("ready");
  } else if (words[0] == "to" && words.size() >= 3 && ends) {
    ends->ConnectTo(words[1], PortsOf(words, 2));
    Answer("ready");
  } else if (words[0] == "run" && words.size() >= 3 && ends) {
    Run run(*ends, ends->count(), std::stod(words[1]), std::stod(words[2]));
    Report(run.Do(words.size() > 3 && words[3] == "stamped"));
  } else if (words[0] == "talk" && words.size() == 3 && ends) {
    const std::size_t count = std::stoul(words[1]);
    if (count == 0 || count > ends->count()) throw std::runtime_error("no such far ends");
    Run run(*ends, count, kPacketsPerSecond * static_cast<double>(count), std::stod(words[2]), Waiting::kAsleep);
    Report(run.Do(false));
  } else {
    throw std::runtime_error("unknown command \"" + words[0] + "\"");
  }
}

}  // namespace
}  // namespace bench

int main() try {
  std::unique_ptr<bench::FarEnds> ends;
  for (std::string line; std::getline(std::cin, line);) {
    const bench::Words words = bench::Split(line);
    if (!words.empty()) bench::Obey(words, ends);
  }
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "load: %s\n", error.what());
  return 1;
}
