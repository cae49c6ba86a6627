#include "relay_trial.h"

#include <cstdio>
#include <stdexcept>

#include "../support/system.h"

namespace bench {
namespace {

constexpr double kMostLoss = 0.001;
constexpr double kMostBacklog = 0.005;
// A load that ends this late has not sent at the rate it should; one that was this late for a moment has then sent more
// at once than it should.
constexpr double kLatestEndShare = 0.01;
constexpr double kLongestLatenessUs = 20000;
// rtpengine looks for other sources of a leg for its first 3 s.
constexpr double kWarmUpSeconds = 3.5, kWarmUpRate = 10000;

ProgramSettings LoadSettings(const Settings& settings) {
  ProgramSettings program;
  program.command = {(settings.programs / "bench_load").string()};
  program.core = kLoadCore;
  program.log = settings.output / "load.log";
  return program;
}

RelayRun Weigh(Figures f, double rate, double seconds, double cpu_seconds) {
  RelayRun run;
  const double sent = f["sent"];
  const double received = f["in_time"] + f["late"];
  // What was sent in fact, in the time that it took.
  run.rate = sent / (seconds + 1e-6 * f["lateness_us"]);
  if (sent > 0) run.loss = (sent - received - f["own_drops"]) / sent;
  if (sent > 0) run.backlog = f["late"] / sent;
  // What the former run left would be taken for this one's.
  if (f["quiet"] == 0) run.backlog = 1;
  if (received > 0) run.cpu_us_per_packet = 1e6 * cpu_seconds / received;
  run.p50_us = f["p50_us"];
  run.p99_us = f["p99_us"];
  run.load_too_slow = f["refused"] > 0 || f["lateness_us"] > 1e6 * kLatestEndShare * seconds;
  run.load_stumbled = f["longest_lateness_us"] > kLongestLatenessUs;
  char text[300];
  std::snprintf(text, sizeof text,
                "%.0f/s: loss %.3f %%, backlog %.3f %%, %.2f us CPU a packet, delay p50 %.1f us p99 %.1f us, "
                "strange %.0f, own drops %.0f, load late by %.0f us, at most %.0f us%s",
                rate, 100 * run.loss, 100 * run.backlog, run.cpu_us_per_packet, run.p50_us, run.p99_us, f["strange"],
                f["own_drops"], f["lateness_us"], f["longest_lateness_us"],
                run.load_too_slow || run.load_stumbled ? ": LOAD" : "");
  run.text = text;
  return run;
}

}  // namespace

Trial VerdictOf(const RelayRun& run) {
  if (run.load_too_slow) return Trial::kLoadFails;
  if (run.loss < kMostLoss && run.backlog < kMostBacklog) return Trial::kHolds;
  return run.load_stumbled ? Trial::kLoadFails : Trial::kFails;
}

RelayTrial::RelayTrial(const Settings& settings, RelayKind kind, std::size_t legs, bool srtp)
    : settings_(settings), legs_(legs), load_(LoadSettings(settings)), relay_(StartRelay(kind, settings)) {
  load_.Say(std::string("open ") + std::to_string(legs) + " " + kFarAddress + (srtp ? " srtp" : ""));
  FarSide far_side;
  far_side.ports = PortsOf(load_.Hear("ports"), 1);
  far_side.rtcp_port = PortsOf(load_.Hear("rtcp"), 1).at(0);
  const Words keys = load_.Hear("keys");
  far_side.keys.assign(keys.begin() + 1, keys.end());
  if (kind != RelayKind::kFloor) idle_kib_ = ResidentKibOf(relay_->program().pid());
  load_.Say(Line(std::string("to ") + kRelayAddress, relay_->OpenCalls(far_side)));
  load_.Hear("ready");
  WarmUp();
}

void RelayTrial::WarmUp() {
  const RelayRun run = Run(kWarmUpRate, kWarmUpSeconds);
  if (run.loss > 0.5) throw std::runtime_error(relay_->name() + " does not relay: " + run.text);
}

RelayRun RelayTrial::Run(double rate, double seconds, bool stamped) {
  const pid_t pid = relay_->program().pid();
  const double before = CpuSecondsOf(pid);
  load_.Say("run " + std::to_string(rate) + " " + std::to_string(seconds) + (stamped ? " stamped" : ""));
  const Figures figures = FiguresOf(load_.Hear("result"), 1);
  const RelayRun run = Weigh(figures, rate, seconds, CpuSecondsOf(pid) - before);
  settings_.say("    " + relay_->name() + ", " + std::to_string(legs_) + " legs, " + run.text);
  return run;
}

RelayPeak RelayTrial::FindPeak(double guess, double step) {
  RelayPeak peak;
  SearchSettings search;
  search.guess = guess;
  search.step = step;
  peak.highest = FindHighestRate(search, [&](double rate) {
    const RelayRun run = Run(rate, settings_.trial_seconds);
    const Trial verdict = VerdictOf(run);
    if (verdict == Trial::kHolds && run.rate >= peak.best.rate) peak.best = run;
    return verdict;
  });
  return peak;
}

double RelayTrial::KibPerLeg() {
  return (ResidentKibOf(relay_->program().pid()) - idle_kib_) / static_cast<double>(legs_);
}

}  // namespace bench
