#pragma once

#include <boost/optional.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <boost/uuid/uuid.hpp>
#include <mutex>
#include <string>
#include <vector>

#include "media_session_table.h"

// Every callback starts from a leg's FS uuid and has to come to its media session and connection, over two tables that
// other threads change meanwhile. The two ways there are written once, here: to the connection alone, for the callbacks
// that only talk to it, and to the session's record with its mutex held, for those that change who is where.

namespace kvx_media_server {

/// What a callback writes, at ERROR, when a step of the way fails: printf formats that are given the FS uuid and, but
/// for the first, the media-session uuid.
struct LegLookupMessages {
  const char* unknown_leg;
  const char* no_media_session;
  const char* no_connection;
};

/// The text for a missing media session is the same for all callbacks.
extern const char* const kNoMediaSessionMessage;

struct Leg {
  std::string fs_uuid;
  boost::uuids::uuid ms_uuid;
  NetworkConnectionSharedPtr connection;
};

/// The uuid of the leg's media session; none when the leg is unknown. A leg that is being moved is known all the while.
boost::optional<boost::uuids::uuid> find_media_session_uuid(const std::string& fs_uuid);

/// The leg's media session and connection. None, after the message, when the leg is not found; an unknown leg and a
/// missing connection also have the leg's objects cleaned up, a missing media session leaves nothing to clean.
boost::optional<Leg> find_leg(const std::string& fs_uuid, const LegLookupMessages& messages);

/// A leg's media session with the mutex of its record held.
struct OwnMediaSession {
  boost::uuids::uuid ms_uuid;      ///< nil when the leg is unknown
  FSMediaSessionSharedPtr record;  ///< empty when the session is gone, or the leg unknown
  boost::unique_lock<boost::recursive_mutex> lock;
};

/// Blocks until the record is free; the caller holds no other record's mutex. While this waits, a bridge of the leg's
/// partner may move the leg into another session: what is returned is the session that the leg is in once the lock is
/// held, and it stays there as long as the lock does. Who has just looked the leg up says where it was.
OwnMediaSession lock_media_session_of(const std::string& fs_uuid,
                                      const boost::optional<boost::uuids::uuid>& last_seen_in = boost::none);

/// Keeps every leg in its place. A leg that moves stands in the one table under its new session and in the other still
/// under its old one for a moment: who moves a leg holds all legs until both agree, and the look-ups above hold them so
/// that they never see that moment. Taken under a record's mutex, never the other way round.
///
/// Every callback looks legs up, and hardly any moves one. So the lock is many: who looks takes that of its thread, and
/// meets others there as seldom as there are threads enough; who moves takes all of them.
std::unique_lock<std::mutex> hold_legs();
std::vector<std::unique_lock<std::mutex>> hold_legs_to_move_one();

/// The connection that the leg holds in that media session; empty when there is none.
NetworkConnectionSharedPtr find_connection(const boost::uuids::uuid& ms_uuid, const std::string& fs_uuid);

/// Takes the leg out of the table of FS uuids, if it is there.
void forget_fs_uuid(const std::string& fs_uuid);

}  // namespace kvx_media_server
