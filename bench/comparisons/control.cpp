#include <stdexcept>

#include "relay.h"

namespace bench {
namespace {

Figures MeasureOnce(const Settings& settings, std::vector<std::string> command, const std::string& name,
                    std::size_t figures_told) {
  ProgramSettings program;
  program.command = std::move(command);
  program.log = settings.output / "control.log";
  Program client(program);
  Figures figures = FiguresOf(client.Hear("result"), 1);
  if (client.AwaitEnd(std::chrono::seconds(10)) != 0) throw std::runtime_error(name + ": the client failed");
  if (figures.size() < figures_told) throw std::runtime_error(name + ": the client does not tell everything");
  settings.say("    " + name + ": " + std::to_string(figures["calls_per_second"]) + " calls/s, " +
               std::to_string(figures["cpu_us_per_call"]) + " us CPU of the client's process a call, " +
               std::to_string(figures["requests_per_call"]) + " requests to a daemon a call");
  return figures;
}

constexpr std::size_t kOfAClient = 3, kOfAClientOfADaemon = 4;

/// The daemon is started anew for each of its clients.
Figures MeasureWithDaemon(const Settings& settings, std::vector<std::string> command, const std::string& name) {
  ProgramSettings daemon;
  daemon.command = RtpengineCommand(settings);
  daemon.log = settings.output / "rtpengine.log";
  daemon.speaks = false;
  Program rtpengine(daemon);
  AwaitRtpengine();
  return MeasureOnce(settings, std::move(command), name, kOfAClientOfADaemon);
}

Comparison CallsPerSecond(const std::string& id, const std::string& what, const std::string& ours_name) {
  Comparison out;
  out.id = id;
  out.what = what;
  out.unit = "calls/s";
  out.ours_name = ours_name;
  out.reference_name = "rtpengine over ng";
  return out;
}

}  // namespace

Comparisons CompareControl(const Settings& settings) {
  settings.say("control, set up and taken down by one client");
  const std::string client = (settings.programs / "bench_control").string();
  const std::string directory = (settings.output / "control").string();
  const std::string seconds = std::to_string(settings.steady_seconds), port = std::to_string(kNgPort);
  Comparison embedded = CallsPerSecond("control", "control, one client", "libjsr309 embedded");
  embedded.target = 5;
  Comparison fleet = CallsPerSecond("control_rtpengine", "control over rtpengine", "libjsr309 over rtpengine");
  fleet.target = 0.2;
  Comparison trips = fleet;
  trips.id = "control_round_trips";
  trips.what = "control round trips over rtpengine";
  trips.unit = "round trips/call";
  trips.target = 4;
  trips.at_most = true;
  fleet.note =
      "ours: a daemon call for each leg, so that legs can be parted, imported and joined across daemons; the "
      "bare client's legs share one and cannot";
  trips.note = "as the daemon counts its requests; each is asked when the one before is answered";
  for (int round = 0; round < settings.rounds; ++round) {
    Figures ours = MeasureOnce(settings, {client, "embedded", directory, seconds}, embedded.ours_name, kOfAClient);
    embedded.ours.push_back(ours["calls_per_second"]);
    ours = MeasureWithDaemon(settings, {client, "rtpengine", kRelayAddress, port, directory, seconds}, fleet.ours_name);
    fleet.ours.push_back(ours["calls_per_second"]);
    trips.ours.push_back(ours["requests_per_call"]);
    Figures bare = MeasureWithDaemon(settings, {client, "ng", kRelayAddress, port, seconds}, fleet.reference_name);
    for (Comparison* one : {&embedded, &fleet}) one->reference.push_back(bare["calls_per_second"]);
    trips.reference.push_back(bare["requests_per_call"]);
  }
  return {embedded, fleet, trips};
}

}  // namespace bench
