#include "rtpengine/rtpengine_driver.h"

#include "address_text.h"
#include "rtpengine/rtpengine_server.h"

#include <charconv>
#include <utility>

namespace kelvaro::jsr309 {
namespace {

using rtpengine::RtpengineBooks;
using rtpengine::RtpengineServer;
using rtpengine::RtpengineSettings;

constexpr unsigned kShortestHeartbeat = 100;
constexpr unsigned kLongestHeartbeat = 600000;

template <typename Number>
bool ParseNumber(const std::string& text, Number& number) {
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  return !text.empty() && problem == std::errc() && end == text.data() + text.size();
}

/// "192.0.2.1:2223" or "[2001:db8::1]:2223".
bool ParseControl(const std::string& text, RtpengineSettings& own) {
  const auto colon = text.rfind(':');
  if (colon == std::string::npos) return false;
  const std::string host = text.substr(0, colon);
  // An IPv6 literal without brackets leaves open where it ends.
  if (host.find(':') != std::string::npos && host.front() != '[') return false;
  if (!ParseIp(host) || !ParseNumber(text.substr(colon + 1), own.control_port) || own.control_port == 0) return false;
  own.control_address = WithoutBrackets(host);
  return true;
}

/// Empty, or what is wrong with the value.
std::string ReadSetting(const std::string& element, const std::string& value, RtpengineSettings& own) {
  if (element == "control") {
    return ParseControl(value, own) ? "" : "not a numeric address and a port, as in 192.0.2.1:2223";
  }
  if (element == "interface") {
    own.interface = value;
    return value.empty() || value.find_first_of("/! \t") != std::string::npos ? "not the name of an interface" : "";
  }
  if (element == "heartbeat_ms") {
    unsigned number = 0;
    const bool right = ParseNumber(value, number) && number >= kShortestHeartbeat && number <= kLongestHeartbeat;
    own.heartbeat = std::chrono::milliseconds(number);
    return right ? ""
                 : "not a number of milliseconds from " + std::to_string(kShortestHeartbeat) + " to " +
                       std::to_string(kLongestHeartbeat);
  }
  return "not known to the rtpengine driver";
}

std::vector<SettingError> ReadSettings(const MediaServerSettings& settings, RtpengineSettings& own) {
  std::vector<SettingError> errors;
  bool control = false;
  for (const auto& [element, value] : settings.driver_settings) {
    control = control || element == "control";
    std::string fault = ReadSetting(element, value, own);
    if (!fault.empty()) errors.push_back({element, value, std::move(fault)});
  }
  if (!control) errors.push_back({"control", "", "missing"});
  return errors;
}

/// Its servers share their books, so that endpoints of one can be joined with those of another.
class RtpengineDriver : public MediaServerDriver {
 public:
  std::unique_ptr<MediaServer> Open(const MediaServerSettings& settings, MediaServerObserver& observer,
                                    const std::shared_ptr<GuardedLogger>& logger, SettingError& error) override {
    RtpengineSettings own;
    std::vector<SettingError> errors = ReadSettings(settings, own);
    if (!errors.empty()) {
      error = std::move(errors.front());
      return nullptr;
    }
    auto server = std::make_unique<RtpengineServer>(settings, own, books_, observer, logger);
    std::string reason;
    if (server->Start(reason)) return server;
    error = {"", settings.addresses.front(), reason};
    return nullptr;
  }

  std::vector<SettingError> Check(const MediaServerSettings& settings) override {
    RtpengineSettings ignored;
    return ReadSettings(settings, ignored);
  }

 private:
  const std::shared_ptr<RtpengineBooks> books_ = std::make_shared<RtpengineBooks>();
};

}  // namespace

std::unique_ptr<MediaServerDriver> MakeRtpengineDriver() {
  return std::make_unique<RtpengineDriver>();
}

}  // namespace kelvaro::jsr309
