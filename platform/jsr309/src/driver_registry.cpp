#include "driver_registry.h"

#include "embedded/embedded_driver.h"
#include "rtpengine/rtpengine_driver.h"

#include <map>
#include <mutex>

namespace kelvaro::jsr309 {
namespace {

class DriverRegistry {
 public:
  static DriverRegistry& Instance() {
    static DriverRegistry registry;
    return registry;
  }

  bool Add(const std::string& name, MediaServerDriverMaker make) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return !name.empty() && make && makers_.emplace(name, std::move(make)).second;
  }

  bool Remove(const std::string& name) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return name != kEmbeddedDriver && name != kRtpengineDriver && makers_.erase(name) == 1;
  }

  MediaServerDriverMaker Find(const std::string& name) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = makers_.find(name);
    return found == makers_.end() ? MediaServerDriverMaker() : found->second;
  }

 private:
  DriverRegistry() {
    makers_.emplace(kEmbeddedDriver, [] { return MakeEmbeddedDriver(); });
    makers_.emplace(kRtpengineDriver, [] { return MakeRtpengineDriver(); });
  }

  std::mutex mutex_;
  std::map<std::string, MediaServerDriverMaker> makers_;  // guarded by mutex_
};

}  // namespace

bool RegisterMediaServerDriver(const std::string& name, MediaServerDriverMaker make) {
  return DriverRegistry::Instance().Add(name, std::move(make));
}

bool UnregisterMediaServerDriver(const std::string& name) {
  return DriverRegistry::Instance().Remove(name);
}

bool IsKnownMediaServerDriver(const std::string& name) {
  return static_cast<bool>(DriverRegistry::Instance().Find(name));
}

std::shared_ptr<MediaServerDriver> MakeMediaServerDriver(const std::string& name) {
  const MediaServerDriverMaker make = DriverRegistry::Instance().Find(name);
  return make ? std::shared_ptr<MediaServerDriver>(make()) : nullptr;
}

}  // namespace kelvaro::jsr309
