#include <string>

#include "kelvaro/jsr309/network_connection.h"
#include "leg_lookup.h"
#include "locked_session.h"
#include "mod_kelvaro_media_server.h"

using boost::uuids::uuid;
using kelvaro::jsr309::Direction;
using kelvaro::jsr309::JoinableWeakPtr;
using kvx_media_server::find_media_session_uuid;
using kvx_media_server::hold_legs;
using kvx_media_server::lock_media_session_of;
using kvx_media_server::LockedSession;
using kvx_media_server::NetworkConnectionNodeSharedPtr;
using kvx_media_server::NetworkConnectionSharedPtr;
using kvx_media_server::OwnMediaSession;
using kvx_media_server::uuid_to_text;

namespace {

/// The two legs of a bridge: A, on which it was asked for, and B, its partner.
struct Pair {
  std::string fsuuid;
  std::string reffsuuid;
  uuid ms_uuid;  ///< A's media session
  uuid refuuid;  ///< B's, before any migration
  NetworkConnectionNodeSharedPtr node_a, node_b;
  NetworkConnectionSharedPtr connection_a, connection_b;
};

/// What is left to do once no record's mutex is held any more: cleaning up takes those of both legs, one by one.
struct Outcome {
  switch_status_t status;
  std::string leg_to_clean_up;  ///< empty: none
};

Outcome succeeded() {
  return {SWITCH_STATUS_SUCCESS, ""};
}
Outcome failed() {
  return {SWITCH_STATUS_FALSE, ""};
}
Outcome failed_and_clean_up(const std::string& fs_uuid) {
  return {SWITCH_STATUS_FALSE, fs_uuid};
}

/// The uuid of the own leg's media session; none, after a message for each that is not, unless both legs are known.
boost::optional<uuid> both_legs_known(const std::string& fsuuid, const std::string& reffsuuid) {
  const boost::optional<uuid> own_known = find_media_session_uuid(fsuuid);
  const bool partner_known = find_media_session_uuid(reffsuuid).has_value();
  if (!own_known) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "Unexpected session fsuuid. It does't exist. %s\n",
                      fsuuid.c_str());
  }
  if (!partner_known) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "Unexpected session reffsuuid. It does't exist. %s\n",
                      reffsuuid.c_str());
  }
  return partner_known ? own_known : boost::none;
}

void log_join_mode(int joinmode) {
  switch (joinmode) {
    case kelvaro::jsr309::kDuplex:
      KVX_MS_LOG(SWITCH_LOG_DEBUG, "Join now, join mode is kDuplex.");
      break;
    case kelvaro::jsr309::kReceive:
      KVX_MS_LOG(SWITCH_LOG_DEBUG, "Join now, join mode is kReceive.");
      break;
    case kelvaro::jsr309::kSend:
      KVX_MS_LOG(SWITCH_LOG_DEBUG, "Join now, join mode is kSend.");
      break;
    case kelvaro::jsr309::kDisable:
      KVX_MS_LOG(SWITCH_LOG_DEBUG, "Join now, join mode is kDisable.");
      break;
    default:
      break;
  }
}

NetworkConnectionSharedPtr connection_of(const NetworkConnectionNodeSharedPtr& node) {
  return node ? node->GetNetworkConnection() : NetworkConnectionSharedPtr();
}

/// Moves leg B into leg A's media session. The pair's connections and B's old session uuid stay as they were: the join
/// is made through the handle that B had.
Outcome migrate_partner(const Pair& pair) {
  const auto record = mod_globals->GetMSTable()->GetFSMediaSession(pair.refuuid);
  if (!record) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR,
                      "Could not find media session uuid from fs uuid %s from FS table. Channel bridge failed",
                      pair.reffsuuid.c_str());
    return failed_and_clean_up(pair.reffsuuid);
  }
  // B's thread may hold its own record and wait for A's: never wait for B's while holding A's.
  const boost::unique_lock<boost::recursive_mutex> lock((*record)->mutex_, boost::try_to_lock);
  if (!lock) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Transfer migration failed, tranferee is busy");
    return failed();
  }

  const auto held = kvx_media_server::hold_legs_to_move_one();
  if (!mod_globals->GetMSTable()->MigrateNetworkConnection(pair.refuuid, pair.ms_uuid, pair.reffsuuid)) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "ERROR - Unable to migrate Network Connection.");
    return failed_and_clean_up(pair.fsuuid);
  }
  kvx_media_server::forget_fs_uuid(pair.reffsuuid);
  if (!mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(pair.reffsuuid, pair.ms_uuid)) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "ERROR - Unable to fill in FSUUID - MSUUID table.");
    return failed_and_clean_up(pair.fsuuid);
  }
  KVX_MS_LOG(SWITCH_LOG_DEBUG, "Network Connection migration completed");
  return succeeded();
}

/// A leg whose media nobody receives may fall silent; a timeout must not end it.
void enable_listeners_by(Direction direct, const Pair& pair) {
  const bool listen_to_a = direct == kelvaro::jsr309::kDuplex || direct == kelvaro::jsr309::kReceive;
  const bool listen_to_b = direct == kelvaro::jsr309::kDuplex || direct == kelvaro::jsr309::kSend;
  listen_to_a ? pair.node_a->EnableListener() : pair.node_a->DisableListener();
  listen_to_b ? pair.node_b->EnableListener() : pair.node_b->DisableListener();
}

/// Finds B's session and both legs' connections, A's session being held.
Outcome find_connections(Pair& pair) {
  const auto& sessions = mod_globals->GetMSTable();
  bool partner_is_somewhere = false;
  {
    const auto held = hold_legs();  // another bridge may be moving B
    pair.refuuid = mod_globals->GetFSUuidTable()->GetMediaSessionUuid(pair.reffsuuid);
    const auto held_sessions = sessions->Hold();
    partner_is_somewhere = sessions->GetMediaSession(pair.refuuid).has_value();
    if (partner_is_somewhere) {
      pair.node_a = sessions->GetNetworkConnectionNode(pair.ms_uuid, pair.fsuuid);
      pair.node_b = sessions->GetNetworkConnectionNode(pair.refuuid, pair.reffsuuid);
    }
  }
  if (!partner_is_somewhere) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, kvx_media_server::kNoMediaSessionMessage,
                      pair.fsuuid.c_str(), uuid_to_text(pair.refuuid).c_str());
    return failed();
  }

  pair.connection_a = connection_of(pair.node_a);
  pair.connection_b = connection_of(pair.node_b);
  if (!pair.connection_a || !pair.connection_b) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Failed to find network connections!");
    return failed_and_clean_up(pair.fsuuid);
  }
  return succeeded();
}

/// The bridge itself, under the mutex of leg A's record.
Outcome join_legs(const std::string& fsuuid, const uuid& ms_uuid, const std::string& reffsuuid, Direction direct) {
  const OwnMediaSession own = lock_media_session_of(fsuuid, ms_uuid);
  if (!own.record) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR,
                      "Could not find media session uuid from fs uuid %s from FS table. Channel bridge failed",
                      fsuuid.c_str());
    return failed_and_clean_up(fsuuid);
  }

  Pair pair = {fsuuid, reffsuuid, own.ms_uuid, {}, {}, {}, {}, {}};
  const Outcome search = find_connections(pair);
  if (search.status != SWITCH_STATUS_SUCCESS) return search;
  if (pair.ms_uuid != pair.refuuid) {
    const Outcome migration = migrate_partner(pair);
    if (migration.status != SWITCH_STATUS_SUCCESS) return migration;
  }
  if (!pair.connection_a->Join(direct, JoinableWeakPtr(pair.connection_b))) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Unable to join Network Connection A to Network Connection B");
    return failed_and_clean_up(fsuuid);
  }

  enable_listeners_by(direct, pair);
  {
    const auto& sessions = mod_globals->GetMSTable();
    const auto held = sessions->Hold();
    sessions->SetPeerNetworkConnectionNode(pair.ms_uuid, fsuuid, pair.node_b);
    sessions->SetPeerNetworkConnectionNode(pair.refuuid, reffsuuid, pair.node_a);
  }
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "Successfully joining uuid(%s) to uuid(%s)!\n",
                    fsuuid.c_str(), reffsuuid.c_str());
  return succeeded();
}

/// The unbridging itself, under the mutex of the leg's record. A leg without a peer counts as unbridged.
switch_status_t unjoin_leg(const std::string& fsuuid, const uuid& ms_uuid) {
  const auto& sessions = mod_globals->GetMSTable();
  NetworkConnectionNodeSharedPtr node, peer;
  NetworkConnectionSharedPtr connection;
  {
    const auto held = sessions->Hold();
    node = sessions->GetNetworkConnectionNode(ms_uuid, fsuuid);
    connection = connection_of(node);
    if (connection) peer = sessions->GetPeerNetworkConnectionNode(ms_uuid, fsuuid);
  }
  if (!connection) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "Cannot find NetworkConnection with uuid=%s\n",
                      fsuuid.c_str());
    return SWITCH_STATUS_FALSE;
  }
  const NetworkConnectionSharedPtr peer_connection = connection_of(peer);
  if (!peer_connection) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "Cannot find peer for NetworkConnection with uuid=%s\n",
                      fsuuid.c_str());
    return SWITCH_STATUS_SUCCESS;
  }

  node->DisableListener();
  peer->DisableListener();
  if (!connection->Unjoin(JoinableWeakPtr(peer_connection))) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "ERROR - Unable to unjoin Network Connection A to Network Connection B.");
  }
  {
    const auto held = sessions->Hold();
    sessions->ResetPeerNetworkConnectionNode(ms_uuid, node);
    sessions->ResetPeerNetworkConnectionNode(ms_uuid, peer);
  }
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "Successfully unjoined uuid(%s)!\n", fsuuid.c_str());
  return SWITCH_STATUS_SUCCESS;
}

}  // namespace

switch_status_t channel_bridge(switch_media_connection_t* mc, RTPDirection joinmode) {
  switch_assert(mc != NULL);
  switch_core_session_t* session = static_cast<switch_core_session_t*>(mc->private_info);

  LockedSession partner = kvx_media_server::partner_of(session);
  if (!partner) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Cannot find the session to bridge with!");
    return SWITCH_STATUS_FALSE;
  }
  const std::string fsuuid = switch_core_session_get_uuid(session);
  const std::string reffsuuid = switch_core_session_get_uuid(partner.get());
  partner.reset();

  const boost::optional<uuid> ms_uuid = both_legs_known(fsuuid, reffsuuid);
  if (!ms_uuid) {
    objects_cleanup(fsuuid.c_str());
    return SWITCH_STATUS_FALSE;
  }

  // The switch's directions count as the library's, number by number; so INACTIVE joins with audio and without video.
  log_join_mode(joinmode);
  const Outcome outcome = join_legs(fsuuid, *ms_uuid, reffsuuid, static_cast<Direction>(joinmode));
  if (!outcome.leg_to_clean_up.empty()) objects_cleanup(outcome.leg_to_clean_up.c_str());
  return outcome.status;
}

switch_status_t channel_unbridge(switch_media_connection_t* mc) {
  switch_assert(mc != NULL);
  switch_core_session_t* session = static_cast<switch_core_session_t*>(mc->private_info);
  if (!session) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Cannot get session pointer in channel_unbridge()!");
    return SWITCH_STATUS_FALSE;
  }
  const char* fsuuid = switch_core_session_get_uuid(session);
  const boost::optional<uuid> ms_uuid = find_media_session_uuid(fsuuid);
  if (!ms_uuid) {
    KVX_MS_LOG(SWITCH_LOG_DEBUG, "FS UUID was no longer found in FS UUID table, nothing to unbridge");
    return SWITCH_STATUS_SUCCESS;
  }

  const OwnMediaSession own = lock_media_session_of(fsuuid, ms_uuid);
  if (own.ms_uuid.is_nil()) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR,
                      "Could not find media session uuid from fs uuid %s from FS table. Channel unbridge failed!",
                      fsuuid);
    return SWITCH_STATUS_FALSE;
  }
  if (!own.record) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR,
                      "Could not find media session uuid from fs uuid %s from FS table. Channel unbridge failed",
                      fsuuid);
    return SWITCH_STATUS_SUCCESS;
  }
  return unjoin_leg(fsuuid, own.ms_uuid);
}
