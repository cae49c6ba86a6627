#include "embedded/embedded_driver.h"

#include "embedded/embedded_server.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace kelvaro::jsr309 {
namespace {

/// A setting that is a length of time.
struct TimeSetting {
  const char* element;
  const char* unit;
  unsigned shortest, longest;
  void (*take)(EmbeddedSettings&, unsigned);
};

constexpr TimeSetting kTimeSettings[] = {
    {"heartbeat_ms", "milliseconds", 20, 600000,
     [](EmbeddedSettings& to, unsigned value) { to.heartbeat = std::chrono::milliseconds(value); }},
    {"port_quarantine_ms", "milliseconds", 0, 600000,
     [](EmbeddedSettings& to, unsigned value) { to.port_quarantine = std::chrono::milliseconds(value); }},
    {"coalescing_us", "microseconds", 0, 5000,
     [](EmbeddedSettings& to, unsigned value) { to.coalescing = std::chrono::microseconds(value); }},
};

bool Parse(const std::string& text, const TimeSetting& setting, EmbeddedSettings& settings) {
  if (text.empty() || text.size() > 6 || text.find_first_not_of("0123456789") != std::string::npos) return false;
  const unsigned number = static_cast<unsigned>(std::stoul(text));
  setting.take(settings, number);
  return number >= setting.shortest && number <= setting.longest;
}

std::vector<SettingError> ReadDriverSettings(const MediaServerSettings& settings, EmbeddedSettings& embedded) {
  std::vector<SettingError> errors;
  for (const auto& [element, value] : settings.driver_settings) {
    const auto* const found =
        std::find_if(std::begin(kTimeSettings), std::end(kTimeSettings),
                     [&name = element](const TimeSetting& setting) { return name == setting.element; });
    if (found == std::end(kTimeSettings)) {
      errors.push_back({element, value, "not known to the embedded media server"});
    } else if (!Parse(value, *found, embedded)) {
      errors.push_back({element, value,
                        std::string("not a number of ") + found->unit + " from " + std::to_string(found->shortest) +
                            " to " + std::to_string(found->longest)});
    }
  }
  return errors;
}

/// What is right for other drivers and is not for this one; with `bind`, also whether the first address is ours.
std::vector<SettingError> CheckServerSettings(const MediaServerSettings& settings, bool bind) {
  std::vector<SettingError> errors;
  for (const std::string& address : settings.addresses) {
    const bool bound = bind && &address == &settings.addresses.front();
    const media_engine::Outcome outcome = media_engine::CheckServerAddress(address, bound);
    if (!outcome) errors.push_back({"address", address, outcome.reason});
  }
  // A range that is upside down is the library's to name.
  const int range = settings.rtp_port_max - settings.rtp_port_min;
  if (settings.rtp_port_min % 2 != 0 && range > 0 && range < 2) {
    errors.push_back({"rtp_port_min", std::to_string(settings.rtp_port_min),
                      "no even port with the odd one above it up to rtp_port_max, which is " +
                          std::to_string(settings.rtp_port_max)});
  }
  return errors;
}

/// Its servers share one engine, so that endpoints can be imported from one into another.
class EmbeddedDriver : public MediaServerDriver {
 public:
  explicit EmbeddedDriver(std::shared_ptr<const media_engine::Clock> clock) : engine_(std::move(clock)) {}

  std::unique_ptr<MediaServer> Open(const MediaServerSettings& settings, MediaServerObserver& observer,
                                    const std::shared_ptr<GuardedLogger>& logger, SettingError& error) override {
    EmbeddedSettings embedded;
    std::vector<SettingError> errors = ReadDriverSettings(settings, embedded);
    if (errors.empty()) errors = CheckServerSettings(settings, true);
    if (!errors.empty()) {
      error = std::move(errors.front());
      return nullptr;
    }
    auto server = std::make_unique<EmbeddedServer>(settings, observer, logger);
    std::string reason;
    if (server->Start(engine_, embedded, reason)) return server;
    error = {"", settings.addresses.front(), reason};
    return nullptr;
  }

  std::vector<SettingError> Check(const MediaServerSettings& settings) override {
    EmbeddedSettings ignored;
    std::vector<SettingError> errors = ReadDriverSettings(settings, ignored);
    for (SettingError& error : CheckServerSettings(settings, false)) errors.push_back(std::move(error));
    return errors;
  }

 private:
  media_engine::Engine engine_;
};

}  // namespace

std::unique_ptr<MediaServerDriver> MakeEmbeddedDriver(std::shared_ptr<const media_engine::Clock> clock) {
  return std::make_unique<EmbeddedDriver>(std::move(clock));
}

}  // namespace kelvaro::jsr309
