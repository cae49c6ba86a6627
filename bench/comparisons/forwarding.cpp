#include <cstdio>
#include <map>

#include "relay_trial.h"

namespace bench {
namespace {

constexpr std::size_t kFewLegs = 1000, kManyLegs = 8000;

/// What the rounds found of one relay.
struct Record {
  std::vector<double> rates, cpu_us, kib_per_leg;
  int by_the_load = 0;  ///< rounds in which the load was the limit
};
using Records = std::map<RelayKind, Record>;

/// Rounds in which each relay is started anew and brought to its highest rate.
Records RunRounds(const Settings& settings, const std::vector<RelayKind>& kinds, std::size_t legs, bool srtp) {
  const double first_guess = srtp ? 40000 : 120000;
  Records records;
  for (int round = 0; round < settings.rounds; ++round) {
    for (const RelayKind kind : kinds) {
      settings.say("  round " + std::to_string(round + 1) + ": " + NameOf(kind));
      Record& record = records[kind];
      RelayTrial trial(settings, kind, legs, srtp);
      // Later rounds begin where earlier ones ended.
      const double guess = record.rates.empty() ? first_guess : Median(record.rates);
      const RelayPeak peak = trial.FindPeak(guess, record.rates.empty() ? 0.25 : 0.05);
      if (peak.highest.by_the_load) ++record.by_the_load;
      record.rates.push_back(peak.best.rate);
      record.cpu_us.push_back(peak.best.cpu_us_per_packet);
      record.kib_per_leg.push_back(trial.KibPerLeg());
    }
  }
  return records;
}

std::string LoadNote(const Records& records, const Settings& settings) {
  std::string note;
  for (const auto& [kind, record] : records) {
    if (record.by_the_load == 0) continue;
    note += (note.empty() ? "" : "; ") + std::string("in ") + std::to_string(record.by_the_load) + " of " +
            std::to_string(settings.rounds) + " rounds the load, not " + NameOf(kind) +
            ", was the limit: it can do at least this";
  }
  return note;
}

/// What the least that a relay can do comes to, as a measure of both.
std::string FloorNote(Records& records) {
  const std::vector<double>& floor = records[RelayKind::kFloor].rates;
  if (floor.empty()) return "";
  char text[120];
  std::snprintf(text, sizeof text, "the bare forwarder does %.0f, %.2f x %s", Median(floor),
                Median(floor) / Median(records[RelayKind::kRtpengine].rates), NameOf(RelayKind::kRtpengine).c_str());
  return text;
}

Comparison Against(Records& records, RelayKind reference, std::vector<double> Record::*figure) {
  Comparison out;
  out.ours_name = NameOf(RelayKind::kEngine);
  out.reference_name = NameOf(reference);
  out.ours = records[RelayKind::kEngine].*figure;
  out.reference = records[reference].*figure;
  return out;
}

Comparison RateOf(Records& records, const Settings& settings, const std::string& legs, double target) {
  Comparison out = Against(records, RelayKind::kRtpengine, &Record::rates);
  out.id = legs == "1,000" ? "rate_1000" : "rate_8000";
  out.what = "forwarding rate, " + legs + " legs";
  out.unit = "packets/s";
  out.target = target;
  out.note = FloorNote(records);
  const std::string load = LoadNote(records, settings);
  if (!load.empty()) out.note += (out.note.empty() ? "" : "; ") + load;
  return out;
}

Comparison OverFloor(Records& records, const Settings& settings) {
  Comparison out = Against(records, RelayKind::kFloor, &Record::cpu_us);
  out.id = "cost_over_floor";
  out.what = "cost over the floor, at the highest rate";
  out.unit = "CPU us/packet";
  out.target = 1.15;
  out.at_most = true;
  out.note = LoadNote(records, settings);
  return out;
}

Comparison Growth(Records& few, Records& many) {
  Comparison out;
  out.id = "growth";
  out.what = "growth, highest rate at 8,000 legs";
  out.unit = "packets/s";
  out.ours_name = "media engine at 8,000";
  out.reference_name = "at 1,000";
  out.ours = many[RelayKind::kEngine].rates;
  out.reference = few[RelayKind::kEngine].rates;
  out.target = 0.85;
  return out;
}

Comparison Memory(Records& records) {
  Comparison out = Against(records, RelayKind::kRtpengine, &Record::kib_per_leg);
  out.id = "memory";
  out.what = "memory, 8,000 legs";
  out.unit = "KiB/call";
  for (double& value : out.ours) value *= 2;
  for (double& value : out.reference) value *= 2;
  out.target = 0.4;
  out.at_most = true;
  return out;
}

}  // namespace

Comparisons CompareForwarding(const Settings& settings) {
  const std::vector<RelayKind> all{RelayKind::kFloor, RelayKind::kEngine, RelayKind::kRtpengine};
  settings.say("forwarding rate, 1,000 legs");
  Records few = RunRounds(settings, all, kFewLegs, false);
  settings.say("forwarding rate, 8,000 legs");
  Records many = RunRounds(settings, all, kManyLegs, false);
  return {RateOf(few, settings, "1,000", 1.5), RateOf(many, settings, "8,000", 2.0), OverFloor(few, settings),
          Growth(few, many), Memory(many)};
}

Comparisons CompareSrtp(const Settings& settings) {
  settings.say("SRTP both sides, 1,000 legs");
  Records records = RunRounds(settings, {RelayKind::kEngine, RelayKind::kRtpengine}, kFewLegs, true);
  Comparison out = RateOf(records, settings, "1,000", 1.5);
  out.id = "srtp";
  out.what = "SRTP both sides, 1,000 legs";
  return {out};
}

}  // namespace bench
