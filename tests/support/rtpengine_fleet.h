#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "support/rtpengine_daemon.h"
#include "support/switch_process_configuration.h"

namespace test_support {

/// Several rtpengine daemons, each on a loopback address of its own, as the media servers of a switch.
class RtpengineFleet {
 public:
  /// Starts them; as "nobody" where this process is root's.
  explicit RtpengineFleet(std::size_t daemons);

  RtpengineDaemon& At(std::size_t daemon) { return *daemons_.at(daemon); }
  /// Makes them the only media servers of jsr309.xml. heartbeat_ms: of each.
  void PutInto(ConfigurationCopy& configuration, unsigned heartbeat_ms) const;

 private:
  std::vector<std::unique_ptr<RtpengineDaemon>> daemons_;
};

}  // namespace test_support
