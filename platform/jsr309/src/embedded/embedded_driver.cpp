#include "embedded/embedded_driver.h"

#include "embedded/embedded_server.h"

#include <utility>

namespace kelvaro::jsr309 {
namespace {

constexpr char kHeartbeat[] = "heartbeat_ms";
constexpr unsigned kDefaultHeartbeat = 2000;
constexpr unsigned kShortestHeartbeat = 20;
constexpr unsigned kLongestHeartbeat = 600000;

bool ParseHeartbeat(const std::string& text, unsigned& milliseconds) {
  if (text.empty() || text.size() > 6 || text.find_first_not_of("0123456789") != std::string::npos) return false;
  milliseconds = static_cast<unsigned>(std::stoul(text));
  return milliseconds >= kShortestHeartbeat && milliseconds <= kLongestHeartbeat;
}

bool ReadSettings(const MediaServerSettings& settings, unsigned& heartbeat, SettingError& error) {
  for (const auto& [element, value] : settings.driver_settings) {
    if (element != kHeartbeat) {
      error = {element, value, "not known to the embedded media server"};
      return false;
    }
    if (!ParseHeartbeat(value, heartbeat)) {
      error = {element, value,
               "not a number of milliseconds from " + std::to_string(kShortestHeartbeat) + " to " +
                   std::to_string(kLongestHeartbeat)};
      return false;
    }
  }
  return true;
}

/// Its servers share one engine, so that endpoints can be imported from one into another.
class EmbeddedDriver : public MediaServerDriver {
 public:
  explicit EmbeddedDriver(std::shared_ptr<const media_engine::Clock> clock) : engine_(std::move(clock)) {}

  std::unique_ptr<MediaServer> Open(const MediaServerSettings& settings, MediaServerObserver& observer,
                                    const std::shared_ptr<GuardedLogger>& logger, SettingError& error) override {
    unsigned heartbeat = kDefaultHeartbeat;
    if (!ReadSettings(settings, heartbeat, error)) return nullptr;
    auto server = std::make_unique<EmbeddedServer>(settings, observer, logger);
    std::string reason;
    if (server->Start(engine_, std::chrono::milliseconds(heartbeat), reason)) return server;
    error = {"", settings.addresses.front(), reason};
    return nullptr;
  }

 private:
  media_engine::Engine engine_;
};

}  // namespace

std::unique_ptr<MediaServerDriver> MakeEmbeddedDriver(std::shared_ptr<const media_engine::Clock> clock) {
  return std::make_unique<EmbeddedDriver>(std::move(clock));
}

}  // namespace kelvaro::jsr309
