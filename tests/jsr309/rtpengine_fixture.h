/// Sessions on rtpengine daemons, or on what a test lets answer in their place.
#pragma once

#include "embedded_fixture.h"
#include "rtpengine/bencode.h"
#include "rtpengine/ng_control.h"
#include "support/ng_server.h"
#include "support/rtpengine_daemon.h"

#include <signal.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

namespace test_support {

class RtpengineTest : public EmbeddedTest {
 protected:
  ~RtpengineTest() override { DestroyFactory(); }  // before what it talks to

  static EmbeddedOptions At(const std::string& address, std::uint16_t control_port) {
    EmbeddedOptions options;
    options.driver = "rtpengine";
    options.port_quarantine_ms.clear();
    options.addresses = {address};
    options.extras = {"<control>" + address + ":" + std::to_string(control_port) + "</control>"};
    return options;
  }
  static EmbeddedOptions At(const RtpengineDaemon& daemon) { return At(daemon.Address(), daemon.ControlPort()); }
  static RtpengineDaemon::Options Learning() {
    RtpengineDaemon::Options options;
    options.more = {"--endpoint-learning=immediate"};
    return options;
  }

  /// Stops it as it stands, all of its threads.
  static void Suspend(const RtpengineDaemon& daemon) {
    ASSERT_EQ(kill(daemon.Pid(), SIGSTOP), 0);
    ASSERT_TRUE(Eventually([&] { return IsSuspended(daemon.Pid()); }));
  }
  static void Resume(const RtpengineDaemon& daemon) { ASSERT_EQ(kill(daemon.Pid(), SIGCONT), 0); }

  /// How many calls the daemon has.
  static std::size_t CallsOn(const RtpengineDaemon& daemon) { return ListCalls(daemon).size(); }
  /// As an operator does.
  static void EndCallsOn(const RtpengineDaemon& daemon) {
    for (const auto& call : ListCalls(daemon)) {
      Command(daemon, {{"command", "delete"}, {"call-id", *call.Text()}, {"delete-delay", 0}});
    }
  }
  template <typename Condition>
  static bool Eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + 2 * kPatience;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
  }

 private:
  static kelvaro::jsr309::rtpengine::Dictionary Command(const RtpengineDaemon& daemon,
                                                        const kelvaro::jsr309::rtpengine::Dictionary& command) {
    using namespace kelvaro::jsr309::rtpengine;
    NgControl control({daemon.Address(), daemon.ControlPort(), "test"},
                      std::make_shared<kelvaro::jsr309::GuardedLogger>(nullptr));
    std::string error;
    if (!control.Start(nullptr, error)) throw std::runtime_error(error);
    auto reply = control.Ask(command, std::chrono::seconds(10), error);
    if (!reply) throw std::runtime_error(error);
    return *reply;
  }
  static kelvaro::jsr309::rtpengine::Bencode::List ListCalls(const RtpengineDaemon& daemon) {
    return *Command(daemon, {{"command", "list"}, {"limit", 1000}}).at("calls").Items();
  }
  static bool IsSuspended(pid_t process) {
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
      std::ifstream file(thread.path() / "stat");
      std::string stat;
      std::getline(file, stat);
      const auto name_end = stat.rfind(')');  // of the program's name, before the state
      if (name_end == std::string::npos || stat.substr(name_end + 2, 1) != "T") return false;
    }
    return true;
  }
};

}  // namespace test_support
