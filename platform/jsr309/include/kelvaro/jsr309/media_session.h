/// The place on a media server where the endpoints of one call meet.
///
/// Endpoints can be joined only within one session; the legs of a call therefore share one. A call that is transferred
/// brings an endpoint from another session, which ImportNetworkConnection adopts.
///
/// Life: the session ends with its handle. Its endpoints then end and their listeners and the session's own are
/// dropped; connections that still exist return false from every operation.
///
/// Ownership: made by MSControlFactory::CreateMediaSession, deleted by the application, before or after the factory.
///
/// Threads: all operations may be called from any thread at the same time. CreateNetworkConnection waits for the server
/// (request_timeout_ms at most); nothing else here waits, the destructor included.
#pragma once

#include "kelvaro/jsr309/media_server_lost_listener.h"
#include "kelvaro/jsr309/network_connection.h"

#include <boost/shared_ptr.hpp>

namespace kelvaro::jsr309 {

class MediaSession : public MediaServerLostNotifierInterface {
 public:
  /// A new endpoint in this session; the caller deletes it. The text is put before the log records that speak of the
  /// connection; null lets the library number it. Null when the session has lost its server or the server refuses.
  virtual NetworkConnection* CreateNetworkConnection(const char* log_id) = 0;
  /// A further handle, owned by the caller, on the endpoint of the given connection, which moves into this session with
  /// its ports, remote address, statistics and listener; joins with endpoints left behind are dissolved. The endpoint
  /// stays on its server, which may be another than this session's. Null when the connection is closed, either side has
  /// lost its server, the two servers have different drivers, or another thread is importing the same endpoint.
  virtual NetworkConnection* ImportNetworkConnection(NetworkConnectionSharedPtr connection) = 0;
};

using MediaSessionSharedPtr = boost::shared_ptr<MediaSession>;

}  // namespace kelvaro::jsr309
