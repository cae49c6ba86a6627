#include <map>

#include "relay_trial.h"

namespace bench {
namespace {

// 500 calls, each leg at 50 packets per second.
constexpr std::size_t kLegs = 1000;
constexpr double kRate = 50000;
constexpr double kLongestCoalescedUs = 500;

struct Record {
  std::vector<double> cpu_us, p50_us, p99_us;
  std::string trouble;
};

Record& Measure(const Settings& settings, RelayKind kind, Record& record) {
  RelayTrial trial(settings, kind, kLegs, false);
  // Stamping costs both sides a little, so the cost is taken without.
  const RelayRun plain = trial.Run(kRate, settings.steady_seconds);
  const RelayRun stamped = trial.Run(kRate, settings.steady_seconds, true);
  for (const RelayRun* run : {&plain, &stamped}) {
    if (VerdictOf(*run) != Trial::kHolds) record.trouble = NameOf(kind) + " did not hold the rate: " + run->text;
  }
  record.cpu_us.push_back(plain.cpu_us_per_packet);
  record.p50_us.push_back(stamped.p50_us);
  record.p99_us.push_back(stamped.p99_us);
  return record;
}

}  // namespace

Comparisons CompareSteadyWork(const Settings& settings) {
  settings.say("cost and delay, 50,000 packets/s, 500 calls");
  std::map<RelayKind, Record> records;
  for (int round = 0; round < settings.rounds; ++round) {
    for (const RelayKind kind : {RelayKind::kEngine, RelayKind::kEngineAtOnce, RelayKind::kRtpengine}) {
      Measure(settings, kind, records[kind]);
    }
  }
  Record& reference = records[RelayKind::kRtpengine];
  const auto compare = [&](const char* id, const char* what, const char* unit, double target, RelayKind kind,
                           std::vector<double> Record::*figure) {
    Record& ours = records[kind];
    Comparison out;
    out.id = id;
    out.what = what;
    out.unit = unit;
    out.target = target;
    out.at_most = true;
    out.ours_name = NameOf(kind);
    out.reference_name = NameOf(RelayKind::kRtpengine);
    out.ours = ours.*figure;
    out.reference = reference.*figure;
    out.note = ours.trouble + (ours.trouble.empty() || reference.trouble.empty() ? "" : "; ") + reference.trouble;
    return out;
  };
  const RelayKind on = RelayKind::kEngine, off = RelayKind::kEngineAtOnce;
  Comparison coalesced = compare("delay_p50_on", "delay p50, coalescing", "us", 1.0, on, &Record::p50_us);
  coalesced.reference_name = "half a millisecond";
  coalesced.reference.assign(coalesced.ours.size(), kLongestCoalescedUs);
  return {compare("cost_at_work", "cost at work, 50,000 packets/s", "CPU us/packet", 0.5, on, &Record::cpu_us),
          compare("delay_p50", "delay p50, no coalescing", "us", 1.0, off, &Record::p50_us),
          compare("delay_p99", "delay p99, no coalescing", "us", 1.0, off, &Record::p99_us), coalesced};
}

}  // namespace bench
