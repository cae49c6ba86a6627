/// Sessions on rtpengine daemons, or on what a test lets answer in their place.
#pragma once

#include "embedded_fixture.h"
#include "rtpengine/bencode.h"
#include "rtpengine/ng_control.h"
#include "support/ng_server.h"
#include "support/rtpengine_daemon.h"

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

  /// How many calls the daemon has.
  static std::size_t CallsOn(const RtpengineDaemon& daemon) {
    using namespace kelvaro::jsr309::rtpengine;
    NgControl control({daemon.Address(), daemon.ControlPort(), "test"},
                      std::make_shared<kelvaro::jsr309::GuardedLogger>(nullptr));
    std::string error;
    if (!control.Start(nullptr, error)) throw std::runtime_error(error);
    const auto reply = control.Ask({{"command", "list"}, {"limit", 1000}}, std::chrono::seconds(10), error);
    if (!reply) throw std::runtime_error(error);
    return reply->at("calls").Items()->size();
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
};

}  // namespace test_support
