/// What every media server has to do, whatever its driver: the same tests run on embedded media servers and on
/// rtpengine daemons.
#pragma once

#include "embedded/embedded_server.h"
#include "embedded_fixture.h"
#include "support/rtpengine_daemon.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace test_support {

enum class MediaServerKind { kEmbedded, kRtpengine };

inline std::string NameOf(const ::testing::TestParamInfo<MediaServerKind>& info) {
  return info.param == MediaServerKind::kEmbedded ? "embedded" : "rtpengine";
}

inline auto EveryMediaServer() {
  return ::testing::Values(MediaServerKind::kEmbedded, MediaServerKind::kRtpengine);
}

class ContractTest : public EmbeddedTest, public ::testing::WithParamInterface<MediaServerKind> {
 protected:
  ~ContractTest() override { DestroyFactory(); }  // before its daemons

  bool IsRtpengine() const { return GetParam() == MediaServerKind::kRtpengine; }

  /// So many servers; options that are an embedded server's own do not count for others.
  void Start(EmbeddedOptions options = {}, unsigned servers = 1) {
    options.addresses.clear();
    for (unsigned number = 1; number <= servers; ++number) {
      if (IsRtpengine()) {
        daemons_.push_back(std::make_unique<RtpengineDaemon>(DaemonOptions()));
        options.addresses.push_back(daemons_.back()->Address());
        options.extras.push_back("<control>" + daemons_.back()->Address() + ":" +
                                 std::to_string(daemons_.back()->ControlPort()) + "</control>");
      } else {
        options.addresses.push_back("127.0.0." + std::to_string(number));
      }
    }
    if (IsRtpengine()) {
      options.driver = "rtpengine";
      options.port_quarantine_ms.clear();
      // A daemon that ends is noticed at once; how long one may keep quiet on a busy machine is another matter.
      if (!options.heartbeat_ms.empty()) options.heartbeat_ms = "10000";
    }
    addresses_ = options.addresses;
    EmbeddedTest::Start(options);
  }

  /// One server on ::1, the only IPv6 address that a loopback has.
  void StartOnIpv6() {
    EmbeddedOptions options;
    options.addresses = {"::1"};
    if (IsRtpengine()) {
      RtpengineDaemon::Options daemon = DaemonOptions();
      daemon.address = "::1";
      // What others here have taken is passed over; a part of its own keeps that from happening often.
      daemon.port_min = static_cast<std::uint16_t>(30000 + getpid() % 100 * 300);
      daemon.port_max = static_cast<std::uint16_t>(daemon.port_min + 299);
      daemons_.push_back(std::make_unique<RtpengineDaemon>(daemon));
      options.extras = {"<control>[::1]:" + std::to_string(daemons_.back()->ControlPort()) + "</control>"};
      options.driver = "rtpengine";
      options.port_quarantine_ms.clear();
    }
    addresses_ = options.addresses;
    EmbeddedTest::Start(options);
  }

  const std::string& Address(size_t server = 0) const { return addresses_.at(server); }
  RtpengineDaemon& Daemon(size_t server) { return *daemons_.at(server); }

  /// The server stops serving, as its kind does: a worker that is stuck, a process that is killed.
  void Lose(size_t server) {
    if (IsRtpengine()) return Daemon(server).Kill();
    ASSERT_TRUE(kelvaro::jsr309::StallEmbeddedServer(Address(server), 0, true));
  }
  void BringBack(size_t server) {
    if (IsRtpengine()) return Daemon(server).Start();
    ASSERT_TRUE(kelvaro::jsr309::StallEmbeddedServer(Address(server), 0, false));
  }

  /// Whether nothing comes of what was sent at the one before this.
  bool NothingComes(const Leg& from, const Leg& to) const {
    // A worker of ours serves a request after the packets that were sent before it; a daemon promises nothing.
    std::vector<kelvaro::jsr309::RtcpStatsReport> reports;
    EXPECT_TRUE(from.connection->GetRtcpStatsReport(reports));
    return !to.Receive(IsRtpengine() ? 150 : 0);
  }
  /// A daemon closes its sockets a moment after it has said that the call is gone.
  bool PortIsFree(const Leg& leg) const { return PortIsFree(leg.local.GetIPAddress(), leg.local.GetRtpPort()); }
  bool PortIsFree(const std::string& address, std::uint16_t port) const {
    return IsRtpengine() ? Eventually([&] { return CanBind(address, port); }) : CanBind(address, port);
  }
  template <typename Condition>
  static bool Eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + 2 * kPatience;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
  }

 private:
  static bool CanBind(const std::string& address, std::uint16_t port) {
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &at.sin_addr);
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool bound = bind(descriptor, reinterpret_cast<const sockaddr*>(&at), sizeof(at)) == 0;
    close(descriptor);
    return bound;
  }
  static RtpengineDaemon::Options DaemonOptions() {
    RtpengineDaemon::Options options;
    options.more = {"--endpoint-learning=immediate"};
    return options;
  }

  std::vector<std::unique_ptr<RtpengineDaemon>> daemons_;
  std::vector<std::string> addresses_;
};

}  // namespace test_support
