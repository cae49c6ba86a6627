#pragma once

#include <switch.h>

#include <boost/functional/hash.hpp>
#include <boost/optional.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <boost/unordered_map.hpp>
#include <boost/uuid/uuid.hpp>
#include <cstddef>
#include <list>
#include <string>
#include <vector>

#include "brief_guard.h"
#include "kelvaro/jsr309/joinable.h"
#include "media_server_lost_listener.h"

namespace kelvaro::jsr309 {
class MediaSession;
class NetworkConnection;
}  // namespace kelvaro::jsr309

namespace kvx_media_server {

using MediaSessionSharedPtr = boost::shared_ptr<kelvaro::jsr309::MediaSession>;
using NetworkConnectionSharedPtr = boost::shared_ptr<kelvaro::jsr309::NetworkConnection>;
using MyMediaServerLostListenerSharedPtr = boost::shared_ptr<MyMediaServerLostListener>;

/// The legs of one call share a media session on the media server, yet each leg only knows itself. This registry says
/// which media sessions live, which legs hold a network connection in each, and who is bridged to whom.
///
/// A media session is named by the uuid of its lost listener, a leg by the uuid text of its switch session ("FS uuid",
/// compared exactly). A session's entry lasts until its last leg is unregistered or migrated away.
///
/// Any thread may call. Every operation holds the table's lock, except that unregistering a leg gives it back while the
/// control library is called. Lock order: FSMediaSession::mutex_, then the one that keeps legs in place
/// (leg_lookup.h), then the table's, then a node's. Nothing throws on a missing key: it is reported by the result and a
/// log line. What is returned stays valid after the call.
class MediaSessionTable {
 public:
  class NetworkConnectionNode;
  using NetworkConnectionNodeSharedPtr = boost::shared_ptr<NetworkConnectionNode>;

  /// The record of one media session.
  struct FSMediaSession {
    FSMediaSession(const MediaSessionSharedPtr& session, const MyMediaServerLostListenerSharedPtr& listener);

    MediaSessionSharedPtr ms;
    MyMediaServerLostListenerSharedPtr ms_listener;
    std::list<NetworkConnectionNodeSharedPtr> nodelist;  // in order of registration; guarded by the table's mutex_
    kelvaro::jsr309::Direction direct;
    std::string mediaserverip;  // upper case, empty while unknown; guarded by the table's mutex_
    /// Serialises bridging and destruction of the legs of this session. Never taken by the table. Block on the own
    /// session's only, and only while holding no other session's; a partner's is to be tried.
    boost::recursive_mutex mutex_;
  };
  using FSMediaSessionSharedPtr = boost::shared_ptr<FSMediaSession>;

  MediaSessionTable();
  MediaSessionTable(const MediaSessionTable&) = delete;
  MediaSessionTable& operator=(const MediaSessionTable&) = delete;

  using Held = BriefGuard<boost::recursive_mutex>;
  /// Holds the table for several operations in a row, which take it again. Others see all of them or none, and the
  /// table changes cores once instead of once for each.
  [[nodiscard]] Held Hold() { return Held(mutex_); }

  /// False when the listener's uuid is registered already; the first entry stays.
  bool RegisterMediaSession(const MediaSessionSharedPtr& ms, const MyMediaServerLostListenerSharedPtr& listener);
  /// Makes the leg's node and sets it up as the connection's RTP-timeout listener. False when the session is unknown or
  /// already holds this leg.
  bool RegisterNetworkConnection(const boost::uuids::uuid& msuuid, const NetworkConnectionSharedPtr& nc,
                                 const std::string& fs_uuid);
  /// Takes the leg out of the session and the node off its connection; closes nothing. False only when the session is
  /// unknown.
  bool UnregisterNetworkConnection(const boost::uuids::uuid& msuuid, const std::string& fs_uuid);
  /// Does nothing; always true.
  bool UnregisterNetworkConnection(const boost::uuids::uuid& msuuid, const NetworkConnectionSharedPtr& nc);
  /// Moves a leg, its connection imported, into another session. A failure changes nothing.
  bool MigrateNetworkConnection(const boost::uuids::uuid& from, const boost::uuids::uuid& to,
                                const std::string& fs_uuid);

  /// The number of media sessions (not of legs, despite the name).
  std::size_t CountMediaSessionAllFSUuid();
  /// The lists append to `out`. The first two are false when the session is unknown or holds no leg.
  bool ListMediaSessionAllFSUuid(std::vector<std::string>& out, const boost::uuids::uuid& msuuid);
  bool ListMediaSessionAllNetworkConnections(std::vector<NetworkConnectionSharedPtr>& out,
                                             const boost::uuids::uuid& msuuid);
  /// False only for a null address, which is compared as text.
  bool ListAllMatchingMSUuid(std::vector<boost::uuids::uuid>& out, const char* ipaddr);
  bool ListAllMSUuid(std::vector<boost::uuids::uuid>& out);
  /// Drops the table's references; nothing is closed.
  bool EraseAllMSUuid();

  boost::optional<MediaSessionSharedPtr> GetMediaSession(const boost::uuids::uuid& msuuid);
  boost::optional<FSMediaSessionSharedPtr> GetFSMediaSession(const boost::uuids::uuid& msuuid);
  void SetMediaSessionIPAddress(const boost::uuids::uuid& msuuid, const char* ipaddr);
  boost::optional<NetworkConnectionSharedPtr> GetNetworkConnection(const boost::uuids::uuid& msuuid,
                                                                   const std::string& fs_uuid);
  /// Empty when not found.
  NetworkConnectionNodeSharedPtr GetNetworkConnectionNode(const boost::uuids::uuid& msuuid, const std::string& fs_uuid);

  /// Whether GetFSMediaSession finds the session, and what GetNetworkConnection finds, in one look.
  struct LegPlace {
    bool is_session_known = false;
    NetworkConnectionSharedPtr connection;  ///< empty when the session does not hold the leg
  };
  LegPlace FindLeg(const boost::uuids::uuid& msuuid, const std::string& fs_uuid);

  /// One side of a bridged pair; the caller sets and resets both.
  bool SetPeerNetworkConnectionNode(const boost::uuids::uuid& msuuid, const std::string& fs_uuid,
                                    const NetworkConnectionNodeSharedPtr& peer);
  bool ResetPeerNetworkConnectionNode(const boost::uuids::uuid& msuuid, const std::string& fs_uuid);
  bool ResetPeerNetworkConnectionNode(const boost::uuids::uuid& msuuid, const NetworkConnectionNodeSharedPtr& node);
  /// Empty when there is no peer, or when the peer no longer holds its connection.
  NetworkConnectionNodeSharedPtr GetPeerNetworkConnectionNode(const boost::uuids::uuid& msuuid,
                                                              const std::string& fs_uuid);

 private:
  using FSMediaSessionMap =
      boost::unordered_map<boost::uuids::uuid, FSMediaSessionSharedPtr, boost::hash<boost::uuids::uuid>>;
  using NodeList = std::list<NetworkConnectionNodeSharedPtr>;

  // The helpers below are called with mutex_ held, DropNode apart, which takes it.
  static NodeList::iterator FindNode(NodeList& nodes, const std::string& fs_uuid);
  /// Null, with a message at the given level, when the session is unknown or holds no leg.
  NodeList* FindNodes(const boost::uuids::uuid& msuuid, switch_log_level_t level);
  const NodeList* FindNodesToHangUp(const boost::uuids::uuid& msuuid);
  static bool AdoptNode(FSMediaSession& destination, const NetworkConnectionNodeSharedPtr& node);
  void DropNode(const FSMediaSessionSharedPtr& session, const NetworkConnectionNodeSharedPtr& node,
                const boost::uuids::uuid& msuuid, const std::string& fs_uuid);
  void EraseEntry(FSMediaSessionMap::iterator entry, const std::string& fs_uuid);

  // Together on one cache line, which is what goes from core to core, and apart from everything else.
  alignas(64) FSMediaSessionMap msvector_;  // guarded by mutex_
  boost::recursive_mutex mutex_;            // guards the map and the node lists reached through it
};

using FSMediaSession = MediaSessionTable::FSMediaSession;
using FSMediaSessionSharedPtr = MediaSessionTable::FSMediaSessionSharedPtr;
using NetworkConnectionNodeSharedPtr = MediaSessionTable::NetworkConnectionNodeSharedPtr;

}  // namespace kvx_media_server
