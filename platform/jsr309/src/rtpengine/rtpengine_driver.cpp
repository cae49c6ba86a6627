#include "rtpengine/rtpengine_driver.h"

#include "address_text.h"
#include "rtpengine/rtpengine_server.h"

#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <mutex>
#include <utility>

namespace kelvaro::jsr309 {
namespace {

using rtpengine::milliseconds;
using rtpengine::NgTime;
using rtpengine::RtpengineBooks;
using rtpengine::RtpengineContext;
using rtpengine::RtpengineServer;
using rtpengine::RtpengineSettings;

constexpr unsigned kShortestHeartbeat = 100;
constexpr unsigned kLongestHeartbeat = 600000;

template <typename Number>
bool ParseNumber(const std::string& text, Number& number) {
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  return !text.empty() && problem == std::errc() && end == text.data() + text.size();
}

/// Digits and dots alone are an address that is wrong.
bool IsName(const std::string& host) {
  const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  const auto fits = [letter](char c) { return letter(c) || (c >= '0' && c <= '9') || c == '-' || c == '.'; };
  return std::all_of(host.begin(), host.end(), fits) && std::any_of(host.begin(), host.end(), letter);
}

/// "192.0.2.1:2223", "[2001:db8::1]:2223" or "media1.example.net:2223".
bool ParseControl(const std::string& text, RtpengineSettings& own) {
  const auto colon = text.rfind(':');
  if (colon == std::string::npos) return false;
  own.control_host = text.substr(0, colon);
  // An IPv6 literal without brackets leaves open where it ends.
  if (own.control_host.find(':') != std::string::npos && own.control_host.front() != '[') return false;
  if (!ParseIp(own.control_host) && !IsName(own.control_host)) return false;
  return ParseNumber(text.substr(colon + 1), own.control_port) && own.control_port != 0;
}

/// Of a name's addresses, the first of the media address's family, or else the first.
bool Resolve(const MediaServerSettings& settings, RtpengineSettings& own, std::string& error) {
  if (ParseIp(own.control_host)) {
    own.control_address = WithoutBrackets(own.control_host);
    return true;
  }
  addrinfo hints{}, *list = nullptr;
  hints.ai_socktype = SOCK_DGRAM;
  const int problem = getaddrinfo(own.control_host.c_str(), nullptr, &hints, &list);
  if (problem != 0) {
    error = std::string("the name cannot be resolved: ") + gai_strerror(problem);
    return false;
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> found(list, freeaddrinfo);
  const int preferred = ParseIp(settings.addresses.front()).value_or(IpKey()).family;
  const addrinfo* chosen = list;
  for (const addrinfo* one = list; one != nullptr && chosen->ai_family != preferred; one = one->ai_next) {
    if (one->ai_family == preferred) chosen = one;
  }
  char text[NI_MAXHOST];
  if (getnameinfo(chosen->ai_addr, chosen->ai_addrlen, text, sizeof(text), nullptr, 0, NI_NUMERICHOST) != 0) {
    error = "the name has no numeric address";
    return false;
  }
  own.control_address = text;
  return true;
}

/// Empty, or what is wrong with the value.
std::string ReadSetting(const std::string& element, const std::string& value, RtpengineSettings& own) {
  if (element == "control") {
    return ParseControl(value, own) ? "" : "not an address or a name, and a port, as in 192.0.2.1:2223";
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
    std::string reason;
    if (!Resolve(settings, own, reason)) {
      error = {"control", own.control_host + ":" + std::to_string(own.control_port), reason};
      return nullptr;
    }
    auto server = std::make_unique<RtpengineServer>(settings, own, books_, observer, logger);
    if (!server->Start(reason)) {
      error = {"", settings.addresses.front(), reason};
      return nullptr;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    opened_.push_back(server->context());
    return server;
  }

  /// So that a host's first call finds those alive that are there.
  void AwaitServers() override {
    const NgTime now = NgTime::clock::now();
    std::vector<std::weak_ptr<RtpengineContext>> opened;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      opened.swap(opened_);
    }
    for (const std::weak_ptr<RtpengineContext>& one : opened) {
      const auto context = one.lock();
      if (context == nullptr) continue;
      if (context->AwaitAnswer(now + milliseconds(context->settings().request_timeout_ms / 2))) continue;
      context->Log(WARN_LOG_LEVEL, context->Name() + " does not answer; it takes sessions when it does");
    }
  }

  std::vector<SettingError> Check(const MediaServerSettings& settings) override {
    RtpengineSettings ignored;
    return ReadSettings(settings, ignored);
  }

 private:
  const std::shared_ptr<RtpengineBooks> books_ = std::make_shared<RtpengineBooks>();
  std::mutex mutex_;
  std::vector<std::weak_ptr<RtpengineContext>> opened_;  // guarded by mutex_; and not yet waited for
};

}  // namespace

std::unique_ptr<MediaServerDriver> MakeRtpengineDriver() {
  return std::make_unique<RtpengineDriver>();
}

}  // namespace kelvaro::jsr309
