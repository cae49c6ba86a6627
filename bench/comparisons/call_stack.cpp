#include "call_stack.h"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "../support/program.h"
#include "../support/system.h"
#include "relay.h"

namespace bench {
namespace {

ProgramSettings Silent(const Settings& settings, std::vector<std::string> command, const char* log) {
  ProgramSettings program;
  program.command = std::move(command);
  program.core = kMeasuredCore;
  program.log = settings.output / log;
  program.speaks = false;
  return program;
}

void Replace(const std::filesystem::path& file, const std::string& from, const std::string& to) {
  std::ifstream in(file);
  std::stringstream all;
  all << in.rdbuf();
  std::string text = all.str();
  const std::size_t at = text.find(from);
  if (at == std::string::npos) throw std::runtime_error(file.string() + " has no " + from);
  std::ofstream(file) << text.replace(at, from.size(), to);
}

// Octets of its UDP socket, as many as the switch asks for; a burst costs either side the same.
constexpr char kReceiveBuffer[] = "2097152";

/// The sample configuration, with more room and one media server.
std::filesystem::path SwitchConfiguration(const Settings& settings) {
  const std::filesystem::path conf = settings.output / "switch-conf";
  std::filesystem::remove_all(conf);
  std::filesystem::copy(settings.sources / "../conf", conf, std::filesystem::copy_options::recursive);
  std::filesystem::copy(settings.sources / "calls/jsr309.xml", conf / "jsr309.xml",
                        std::filesystem::copy_options::overwrite_existing);
  Replace(conf / "autoload_configs/switch.conf.xml", "name=\"max-sessions\" value=\"1000\"",
          "name=\"max-sessions\" value=\"40000\"");
  Replace(conf / "autoload_configs/switch.conf.xml", "name=\"sessions-per-second\" value=\"1000\"",
          "name=\"sessions-per-second\" value=\"100000\"");
  if (settings.relay_threads != 1) {
    Replace(conf / "jsr309.xml", "<threads>1<", "<threads>" + std::to_string(settings.relay_threads) + "<");
  }
  return conf;
}

class SwitchStack : public CallStack {
 public:
  explicit SwitchStack(const Settings& settings)
      : ready_(settings.output / "switch.ready"), program_(Silent(settings, Command(settings, ready_), "switch.log")) {
    for (int i = 0; i < 1000 && !std::filesystem::exists(ready_); ++i) {
      if (!program_.Running()) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (!std::filesystem::exists(ready_)) throw std::runtime_error("the switch does not start, see switch.log");
  }

  std::string name() const override { return "kvx-switch"; }
  double CpuSeconds() override { return CpuSecondsOf(program_.pid()); }

 private:
  static std::vector<std::string> Command(const Settings& settings, const std::filesystem::path& ready) {
    std::filesystem::remove(ready);
    return {(settings.programs / "kvx-switch").string(),
            "--conf",
            SwitchConfiguration(settings).string(),
            "--mod",
            settings.modules.string(),
            "--ready-file",
            ready.string(),
            "--set",
            "local_ip=127.0.0.3",
            "--set",
            "event_socket_port=0",
            "--set",
            std::string("phone_b=") + kCalleeAddress + ":" + std::to_string(kCalleePort)};
  }

  const std::filesystem::path ready_;
  Program program_;
};

class KamailioStack : public CallStack {
 public:
  explicit KamailioStack(const Settings& settings)
      : rtpengine_(Silent(settings, RtpengineCommand(settings), "rtpengine.log")) {
    AwaitRtpengine();
    kamailio_ =
        std::make_unique<Program>(Silent(settings,
                                         {"kamailio", "-f", (settings.sources / "calls/kamailio.cfg").string(), "-DD",
                                          "-E", "-Y", settings.output.string(), "-m", "256", "-b", kReceiveBuffer},
                                         "kamailio.log"));
  }

  std::string name() const override { return "kamailio + rtpengine"; }
  double CpuSeconds() override { return CpuSecondsOf(rtpengine_.pid()) + CpuSecondsOfTree(kamailio_->pid()); }

 private:
  Program rtpengine_;
  std::unique_ptr<Program> kamailio_;
};

}  // namespace

std::unique_ptr<CallStack> StartSwitchStack(const Settings& settings) {
  return std::make_unique<SwitchStack>(settings);
}

std::unique_ptr<CallStack> StartKamailioStack(const Settings& settings) {
  return std::make_unique<KamailioStack>(settings);
}

}  // namespace bench
