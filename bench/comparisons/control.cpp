#include <stdexcept>

#include "relay.h"

namespace bench {
namespace {

double MeasureOnce(const Settings& settings, std::vector<std::string> command, const std::string& name) {
  ProgramSettings program;
  program.command = std::move(command);
  program.log = settings.output / "control.log";
  Program client(program);
  Figures figures = FiguresOf(client.Hear("result"), 1);
  if (client.AwaitEnd(std::chrono::seconds(10)) != 0) throw std::runtime_error(name + ": the client failed");
  settings.say("    " + name + ": " + std::to_string(figures["calls_per_second"]) + " calls/s, " +
               std::to_string(figures["cpu_us_per_call"]) + " us CPU of the client's process a call");
  return figures["calls_per_second"];
}

}  // namespace

Comparisons CompareControl(const Settings& settings) {
  settings.say("control, set up and taken down by one client");
  const std::string client = (settings.programs / "bench_control").string();
  const std::string seconds = std::to_string(settings.steady_seconds);
  Comparison out;
  out.id = "control";
  out.what = "control, one client";
  out.unit = "calls/s";
  out.ours_name = "libjsr309 embedded";
  out.reference_name = "rtpengine over ng";
  out.target = 5;
  for (int round = 0; round < settings.rounds; ++round) {
    out.ours.push_back(
        MeasureOnce(settings, {client, "embedded", (settings.output / "control").string(), seconds}, out.ours_name));
    ProgramSettings daemon;
    daemon.command = RtpengineCommand(settings);
    daemon.log = settings.output / "rtpengine.log";
    daemon.speaks = false;
    Program rtpengine(daemon);
    AwaitRtpengine();
    out.reference.push_back(
        MeasureOnce(settings, {client, "ng", kRelayAddress, std::to_string(kNgPort), seconds}, out.reference_name));
  }
  return {out};
}

}  // namespace bench
