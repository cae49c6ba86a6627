/// What the parts of one server share: its address, its ports, its log, its counters. Outlives the server for as long
/// as any of its endpoints or sessions is held.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "media_engine/clock.h"
#include "media_engine/log.h"
#include "ntp_time.h"
#include "port_pool.h"

namespace media_engine {

class EndpointRoute;

/// Threads: all operations from any thread.
class ServerContext {
 public:
  ServerContext(std::shared_ptr<const Clock> clock, std::shared_ptr<const int> engine, SocketAddress address,
                std::string public_address, std::shared_ptr<PortPool> ports, LogSink log);

  TimePoint Now() const { return clock_->Now(); }
  const NtpTimeline& ntp() const { return ntp_; }
  bool SameEngine(const ServerContext& other) const { return engine_ == other.engine_; }
  const SocketAddress& address() const { return address_; }
  const std::string& public_address() const { return public_address_; }
  PortPool& ports() const { return *ports_; }

  void Log(LogLevel level, const std::string& text);
  /// Nothing is logged after the return. Waits for records that are being written, until then at most, in real time.
  void CloseLog(TimePoint deadline);

  /// An endpoint of this server that has left for another worker, maybe another server's. It must end with this server
  /// all the same.
  void AddEmigrant(const std::shared_ptr<EndpointRoute>& endpoint);
  std::vector<std::shared_ptr<EndpointRoute>> TakeEmigrants();

  std::atomic<bool> lost{false};
  std::atomic<bool> shut_down{false};

 private:
  const std::shared_ptr<const Clock> clock_;
  const NtpTimeline ntp_;
  const std::shared_ptr<const int> engine_;
  const SocketAddress address_;
  const std::string public_address_;
  const std::shared_ptr<PortPool> ports_;

  std::mutex log_mutex_;
  std::condition_variable log_idle_;
  std::shared_ptr<const LogSink> log_;  // guarded by log_mutex_; null when closed
  unsigned writing_ = 0;                // guarded by log_mutex_

  std::mutex emigrants_mutex_;
  std::vector<std::weak_ptr<EndpointRoute>> emigrants_;  // guarded by emigrants_mutex_
};

}  // namespace media_engine
