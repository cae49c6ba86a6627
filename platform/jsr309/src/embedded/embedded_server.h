/// One configured media server that lives in this process.
#pragma once

#include "embedded/embedded_context.h"
#include "kelvaro/jsr309/driver.h"
#include "media_engine/engine.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace kelvaro::jsr309 {

/// The driver's own settings of a server.
struct EmbeddedSettings {
  std::chrono::milliseconds heartbeat{2000};
  /// Longer than packets are under way, and than a far end takes to hear of the end.
  std::chrono::milliseconds port_quarantine{2000};
  /// A dozen packets at a thousand legs, and far less than any jitter buffer holds.
  std::chrono::microseconds coalescing{400};
};

class EmbeddedServer : public MediaServer, private media_engine::ServerEvents {
 public:
  EmbeddedServer(const MediaServerSettings& settings, MediaServerObserver& observer,
                 std::shared_ptr<GuardedLogger> logger);
  ~EmbeddedServer() override;

  /// Once, before anything else. False, with nothing left behind, when the engine refuses.
  bool Start(media_engine::Engine& engine, const EmbeddedSettings& embedded, std::string& reason);

  bool IsAlive() const override { return server_->IsAlive(); }
  std::vector<std::string> Addresses() const override { return settings_.addresses; }
  std::size_t Capacity() const override { return settings_.capacity; }
  std::shared_ptr<ServerSession> CreateSession() override;
  void Shutdown(std::chrono::milliseconds limit) override;

 private:
  friend bool StallEmbeddedServer(const std::string& address, unsigned worker, bool stalled);

  void OnServerLost() override { observer_.OnServerLost(); }
  void OnServerBack() override { observer_.OnServerBack(); }
  void WarnOfFewPorts() const;

  const MediaServerSettings settings_;
  MediaServerObserver& observer_;
  const std::shared_ptr<EmbeddedContext> context_;
  std::unique_ptr<media_engine::Server> server_;
};

/// Test aid: a worker of the running server with that first address stops serving, or goes on. False when there is no
/// such server or worker.
bool StallEmbeddedServer(const std::string& address, unsigned worker, bool stalled);

}  // namespace kelvaro::jsr309
