/// A media session: its endpoints, its listeners, its end.
#pragma once

#include "kelvaro/jsr309/driver.h"
#include "kelvaro/jsr309/media_server_lost_listener.h"
#include "library.h"

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvaro::jsr309 {

class Endpoint;

/// Threads: all operations from any thread. Life: from the placement until End; the object itself as long as somebody
/// refers to it.
class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(std::shared_ptr<Library> library, Server& server, std::shared_ptr<ServerSession> peer,
          Clock::TimePoint started);

  /// With a handle counted; null when the session has ended or lost its server, or the server refuses.
  std::shared_ptr<Endpoint> CreateEndpoint(const char* log_id);
  /// Moves an endpoint into this session, unless it is there already. Does not wait.
  bool ImportEndpoint(const std::shared_ptr<Endpoint>& endpoint);

  bool AddListener(const MediaServerLostListenerSharedPtr& listener);
  bool RemoveListener(const MediaServerLostListenerSharedPtr& listener);
  /// Tells the listeners of the loss, on the event thread. False when there was nobody to tell.
  bool DeliverLost();

  /// Ends the session and its endpoints and drops all listeners. Does not wait. Ending again does nothing.
  void End();

  /// Whether anything of the session lives on that server. Guard: Library::mutex_ held by the caller.
  bool UsesServer(const Server& server) const;

  const std::shared_ptr<Library> library;
  Server& server;
  const uint32_t number;
  const std::string log_id;
  const Clock::TimePoint started;

  // All guarded by Library::mutex_.
  bool ended = false;
  bool lost = false;                                   ///< for good
  std::optional<std::list<Session*>::iterator> place;  ///< in the library's list, while it is in it
  std::vector<std::shared_ptr<Endpoint>> endpoints;
  std::vector<MediaServerLostListenerSharedPtr> listeners;

 private:
  /// Removes a listener from the list into removed. Guard: Library::mutex_ held by the caller.
  bool TakeListener(const MediaServerLostListenerSharedPtr& listener, MediaServerLostListenerSharedPtr& removed);

  const std::shared_ptr<ServerSession> peer_;
};

}  // namespace kelvaro::jsr309
