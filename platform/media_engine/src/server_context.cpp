#include "server_context.h"

#include <algorithm>
#include <utility>

#include "endpoint_route.h"

namespace media_engine {

ServerContext::ServerContext(std::shared_ptr<const Clock> clock, std::shared_ptr<const int> engine,
                             SocketAddress address, std::string public_address, std::shared_ptr<PortPool> ports,
                             LogSink log)
    : clock_(std::move(clock)),
      ntp_(clock_->Now(), std::chrono::system_clock::now()),
      engine_(std::move(engine)),
      address_(address),
      public_address_(std::move(public_address)),
      ports_(std::move(ports)),
      log_(log ? std::make_shared<const LogSink>(std::move(log)) : nullptr) {}

void ServerContext::Log(LogLevel level, const std::string& text) {
  std::shared_ptr<const LogSink> sink;
  {
    std::lock_guard<std::mutex> lock(log_mutex_);
    if (!log_) return;
    sink = log_;
    ++writing_;
  }
  (*sink)(level, text);
  std::lock_guard<std::mutex> lock(log_mutex_);
  if (--writing_ == 0) log_idle_.notify_all();
}

void ServerContext::CloseLog(TimePoint deadline) {
  std::shared_ptr<const LogSink> last;  // its destructor is the owner's code: not under the lock
  std::unique_lock<std::mutex> lock(log_mutex_);
  last.swap(log_);
  log_idle_.wait_until(lock, deadline, [this] { return writing_ == 0; });
}

void ServerContext::AddEmigrant(const std::shared_ptr<EndpointRoute>& endpoint) {
  std::lock_guard<std::mutex> lock(emigrants_mutex_);
  const auto ended = [](const std::weak_ptr<EndpointRoute>& one) {
    const std::shared_ptr<EndpointRoute> route = one.lock();
    return !route || route->closed();
  };
  emigrants_.erase(std::remove_if(emigrants_.begin(), emigrants_.end(), ended), emigrants_.end());
  emigrants_.push_back(endpoint);
}

std::vector<std::shared_ptr<EndpointRoute>> ServerContext::TakeEmigrants() {
  std::vector<std::weak_ptr<EndpointRoute>> taken;
  {
    std::lock_guard<std::mutex> lock(emigrants_mutex_);
    taken.swap(emigrants_);
  }
  std::vector<std::shared_ptr<EndpointRoute>> alive;
  for (const std::weak_ptr<EndpointRoute>& one : taken) {
    if (std::shared_ptr<EndpointRoute> route = one.lock()) alive.push_back(std::move(route));
  }
  return alive;
}

}  // namespace media_engine
