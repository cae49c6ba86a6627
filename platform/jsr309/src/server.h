/// One configured media server, as the library keeps book of it.
#pragma once

#include "kelvaro/jsr309/driver.h"
#include "kelvaro/jsr309/media_session_stats.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kelvaro::jsr309 {

class Library;

/// Owned by the Library. What the driver reports is passed on to it.
class Server : public MediaServerObserver {
 public:
  Server(Library& library, MediaServerSettings settings_in, std::shared_ptr<MediaServerDriver> driver_in)
      : settings(std::move(settings_in)), driver(std::move(driver_in)), library_(library) {}

  void OnServerLost() override;
  void OnServerBack() override;

  const MediaServerSettings settings;
  const std::shared_ptr<MediaServerDriver> driver;  ///< destroyed after media_server

  // Set by Library::Open and not changed afterwards.
  std::unique_ptr<MediaServer> media_server;
  std::vector<std::string> addresses;

  /// How often it was lost; what was made in a former epoch is gone. Written under Library::mutex_, read by anyone.
  std::atomic<uint64_t> epoch{0};

  // All guarded by Library::mutex_, and on cache lines of their own: the rest is read all the time.
  alignas(64) bool lost = false;  ///< from OnServerLost to OnServerBack
  uint64_t reserved = 0;          ///< sessions that the server is being asked for
  MediaSessionStats stats;

 private:
  Library& library_;
};

}  // namespace kelvaro::jsr309
