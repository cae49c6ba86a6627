#include "relay.h"

#include <fstream>
#include <stdexcept>
#include <thread>

#include "../ng_client/ng_call.h"

namespace bench {
namespace {

ProgramSettings SettingsOf(const Settings& settings, std::vector<std::string> command, const char* log) {
  ProgramSettings program;
  program.command = std::move(command);
  program.core = kMeasuredCore;
  program.log = settings.output / log;
  return program;
}

// What the control library sets when nothing is said.
constexpr char kDefaultCoalescingUs[] = "400";

class FloorRelay : public Relay {
 public:
  explicit FloorRelay(const Settings& settings)
      : program_(SettingsOf(settings, {(settings.programs / "bench_floor").string()}, "floor.log")) {}

  std::string name() const override { return NameOf(RelayKind::kFloor); }
  std::vector<uint16_t> OpenCalls(const FarSide& far_side) override {
    program_.Say(Line(std::string("legs ") + kRelayAddress + " " + kFarAddress, far_side.ports));
    return PortsOf(program_.Hear("ports"), 1);
  }
  Program& program() override { return program_; }

 private:
  Program program_;
};

class EngineRelay : public Relay {
 public:
  EngineRelay(const Settings& settings, RelayKind kind)
      : kind_(kind),
        program_(SettingsOf(
            settings,
            {(settings.programs / "bench_engine_host").string(), kRelayAddress, std::to_string(kFirstRelayPort),
             std::to_string(kLastRelayPort), kind == RelayKind::kEngine ? kDefaultCoalescingUs : "0"},
            "engine.log")) {
    program_.Hear("ready");
  }

  std::string name() const override { return NameOf(kind_); }
  std::vector<uint16_t> OpenCalls(const FarSide& far_side) override {
    program_.Say(Line(std::string("legs ") + kFarAddress + " " + std::to_string(far_side.rtcp_port), far_side.ports));
    program_.Say(Line("keys", far_side.keys));
    return PortsOf(program_.Hear("ports"), 1);
  }
  Program& program() override { return program_; }

 private:
  const RelayKind kind_;
  Program program_;
};

class RtpengineRelay : public Relay {
 public:
  explicit RtpengineRelay(const Settings& settings) : program_(Daemon(settings)) { AwaitRtpengine(); }

  std::string name() const override { return NameOf(RelayKind::kRtpengine); }
  std::vector<uint16_t> OpenCalls(const FarSide& far_side) override {
    rtpengine_ng::NgClient client({kRelayAddress, kNgPort});
    std::vector<uint16_t> ports;
    for (std::size_t i = 0; i + 1 < far_side.ports.size(); i += 2) {
      rtpengine_ng::NgCall call(client, "call-" + std::to_string(i));
      rtpengine_ng::NgLeg callee = LegOf(far_side, i + 1), towards_callee, towards_caller;
      std::string error;
      if (!call.Offer(LegOf(far_side, i), towards_callee, error)) throw std::runtime_error(error);
      ChooseFrom(towards_callee, callee);
      if (!call.Answer(callee, towards_caller, error)) throw std::runtime_error(error);
      ports.push_back(towards_caller.rtp_port);
      ports.push_back(towards_callee.rtp_port);
    }
    return ports;
  }
  Program& program() override { return program_; }

 private:
  static ProgramSettings Daemon(const Settings& settings) {
    ProgramSettings program = SettingsOf(settings, RtpengineCommand(settings), "rtpengine.log");
    program.speaks = false;
    return program;
  }
  static rtpengine_ng::NgLeg LegOf(const FarSide& far_side, std::size_t i) {
    rtpengine_ng::NgLeg leg{kFarAddress, far_side.ports[i], far_side.rtcp_port, {}};
    if (far_side.keys.empty()) return leg;
    const std::size_t colon = far_side.keys[i].find(':');
    leg.cryptos = {{"1", far_side.keys[i].substr(0, colon), far_side.keys[i].substr(colon + 1)}};
    return leg;
  }
  /// The callee takes the offered key of its own suite.
  static void ChooseFrom(const rtpengine_ng::NgLeg& offered, rtpengine_ng::NgLeg& callee) {
    for (rtpengine_ng::NgCrypto& crypto : callee.cryptos) {
      for (const rtpengine_ng::NgCrypto& one : offered.cryptos) {
        if (one.suite == crypto.suite) crypto.tag = one.tag;
      }
    }
  }

  Program program_;
};

}  // namespace

std::string NameOf(RelayKind kind) {
  switch (kind) {
    case RelayKind::kFloor:
      return "bare forwarder";
    case RelayKind::kEngine:
      return "media engine";
    case RelayKind::kEngineAtOnce:
      return "media engine, no coalescing";
    case RelayKind::kRtpengine:
      return "rtpengine";
  }
  return "";
}

std::unique_ptr<Relay> StartRelay(RelayKind kind, const Settings& settings) {
  if (kind == RelayKind::kFloor) return std::make_unique<FloorRelay>(settings);
  if (kind == RelayKind::kRtpengine) return std::make_unique<RtpengineRelay>(settings);
  return std::make_unique<EngineRelay>(settings, kind);
}

std::vector<std::string> RtpengineCommand(const Settings& settings) {
  const std::filesystem::path file = settings.output / "rtpengine.conf";
  std::ofstream(file) << "[rtpengine]\n"
                      << "table = -1\n"
                      << "interface = " << kRelayAddress << "\n"
                      << "listen-ng = " << kRelayAddress << ":" << kNgPort << "\n"
                      << "port-min = " << kFirstRelayPort << "\n"
                      << "port-max = " << kLastRelayPort << "\n"
                      << "num-threads = " << settings.relay_threads << "\n"
                      << "timeout = 3600\nsilent-timeout = 3600\noffer-timeout = 3600\ndelete-delay = 0\n"
                      << "log-level = 3\nlog-stderr = true\nforeground = true\n";
  return {"rtpengine", "--config-file=" + file.string(), "--foreground", "--log-stderr"};
}

void AwaitRtpengine() {
  rtpengine_ng::NgSettings ng;
  ng.address = kRelayAddress;
  ng.port = kNgPort;
  ng.first_wait = std::chrono::milliseconds(50);
  ng.limit = std::chrono::milliseconds(10000);
  rtpengine_ng::NgClient client(ng);
  std::string error;
  const auto reply = client.Ask({{"command", "ping"}}, error);
  if (!reply) throw std::runtime_error(error);
  if (rtpengine_ng::TextOf(*reply, "result") != "pong") throw std::runtime_error("rtpengine does not answer a ping");
}

}  // namespace bench
