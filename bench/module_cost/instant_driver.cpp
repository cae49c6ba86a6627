#include "instant_driver.h"

#include <memory>
#include <stdexcept>

#include "kelvaro/jsr309/driver.h"

namespace bench {
namespace {

using namespace kelvaro::jsr309;

class InstantEndpoint : public ServerEndpoint {
 public:
  bool GetLocalOffer(MediaConfig& config) override { return Describe(config); }
  bool GetLocalAnswer(MediaConfig& config) override { return Describe(config); }
  bool SetRemoteOffer(const MediaConfig&) override { return true; }
  bool SetRemoteAnswer(const MediaConfig&) override { return true; }
  bool SetRemoteAddressDetection() override { return true; }
  bool GetLocalImageConfig(MediaConfig&) override { return false; }
  bool GetRemoteImageConfig(MediaConfig&) override { return false; }
  bool GetRtcpStatsReport(std::vector<RtcpStatsReport>& reports) override {
    reports.clear();
    return true;
  }
  bool Join(Direction, const std::shared_ptr<ServerEndpoint>&) override { return true; }
  bool Unjoin(const std::shared_ptr<ServerEndpoint>&) override { return true; }
  bool Close() override { return true; }
  void Release() override {}

 private:
  static bool Describe(MediaConfig& config) {
    config.SetIPAddress("127.0.0.1");
    config.SetRtpPort(20000);
    config.SetRtcpPort(20001);
    return true;
  }
};

class InstantSession : public ServerSession {
 public:
  std::shared_ptr<ServerEndpoint> CreateEndpoint(std::weak_ptr<RtpTimeoutSink>) override {
    return std::make_shared<InstantEndpoint>();
  }
  bool ImportEndpoint(const std::shared_ptr<ServerEndpoint>&) override { return true; }
  void Release() override {}
};

class InstantServer : public MediaServer {
 public:
  explicit InstantServer(const MediaServerSettings& settings) : settings_(settings) {}
  bool IsAlive() const override { return true; }
  std::vector<std::string> Addresses() const override { return settings_.addresses; }
  std::size_t Capacity() const override { return settings_.capacity; }
  std::shared_ptr<ServerSession> CreateSession() override { return std::make_shared<InstantSession>(); }
  void Shutdown(std::chrono::milliseconds) override {}

 private:
  const MediaServerSettings settings_;
};

class InstantDriver : public MediaServerDriver {
 public:
  std::unique_ptr<MediaServer> Open(const MediaServerSettings& settings, MediaServerObserver&,
                                    const std::shared_ptr<GuardedLogger>&, SettingError&) override {
    return std::make_unique<InstantServer>(settings);
  }
};

}  // namespace

void RegisterInstantDriver() {
  if (!RegisterMediaServerDriver("instant", [] { return std::make_unique<InstantDriver>(); })) {
    throw std::runtime_error("the driver \"instant\" is known already");
  }
}

std::string InstantConfiguration(std::size_t capacity) {
  return "<?xml version=\"1.0\"?>\n<jsr309><media><codec><audio><PCMU/></audio></codec></media><media_servers>"
         "<media_server><driver>instant</driver><mac>02:00:00:00:00:01</mac><address>127.0.0.1</address><capacity>" +
         std::to_string(capacity) + "</capacity></media_server></media_servers></jsr309>\n";
}

}  // namespace bench
