#include "media_session_table.h"

#include <algorithm>
#include <boost/make_shared.hpp>

#include "kelvaro/jsr309/media_session.h"
#include "kelvaro/jsr309/network_connection.h"
#include "module_log.h"
#include "network_connection_node.h"

namespace kvx_media_server {

namespace {

constexpr std::size_t kInitialBuckets = 11;
constexpr float kEntriesPerBucket = 0.25;  // so few that a new one seldom has to look at another's memory
constexpr char kNoSession[] = "Media session not registered in Media Session table";
constexpr char kNoNodes[] = "Network Connection Node list empty!";

using Guard = MediaSessionTable::Held;

}  // namespace

MediaSessionTable::FSMediaSession::FSMediaSession(const MediaSessionSharedPtr& session,
                                                  const MyMediaServerLostListenerSharedPtr& listener)
    : ms(session), ms_listener(listener), direct(kelvaro::jsr309::kDuplex) {}

MediaSessionTable::MediaSessionTable() : msvector_(kInitialBuckets) {
  msvector_.max_load_factor(kEntriesPerBucket);
}

MediaSessionTable::NodeList::iterator MediaSessionTable::FindNode(NodeList& nodes, const std::string& fs_uuid) {
  NodeList::iterator node = nodes.begin();
  while (node != nodes.end() && !(*node)->IsOf(fs_uuid)) ++node;
  return node;
}

bool MediaSessionTable::RegisterMediaSession(const MediaSessionSharedPtr& ms,
                                             const MyMediaServerLostListenerSharedPtr& listener) {
  Guard guard(mutex_);
  const boost::uuids::uuid& msuuid = listener->GetUuid();
  const bool is_new = msvector_.emplace(msuuid, boost::make_shared<FSMediaSession>(ms, listener)).second;
  if (!is_new) KVX_MS_LOG(SWITCH_LOG_DEBUG, "Media session already registered in table!");
  return is_new;
}

bool MediaSessionTable::RegisterNetworkConnection(const boost::uuids::uuid& msuuid,
                                                  const NetworkConnectionSharedPtr& nc, const std::string& fs_uuid) {
  Guard guard(mutex_);
  const FSMediaSessionMap::iterator entry = msvector_.find(msuuid);
  if (entry == msvector_.end()) {
    KVX_MS_LOG(SWITCH_LOG_DEBUG, "Media session not registered in table, but Network Connection needs to be added!");
    return false;
  }
  NodeList& nodes = entry->second->nodelist;
  if (FindNode(nodes, fs_uuid) != nodes.end()) {
    KVX_MS_LOG(SWITCH_LOG_DEBUG, "Network Connection FS UUID already in the list!");
    return false;
  }
  const NetworkConnectionNodeSharedPtr node = boost::make_shared<NetworkConnectionNode>(nc, fs_uuid);
  // A connection that takes no listener still carries the call; it only goes without the RTP timeout.
  if (nc) nc->AddListener(node);
  nodes.push_back(node);
  return true;
}

bool MediaSessionTable::UnregisterNetworkConnection(const boost::uuids::uuid& msuuid, const std::string& fs_uuid) {
  FSMediaSessionSharedPtr session;  // outlives the entry's erasure
  NetworkConnectionNodeSharedPtr node;
  NetworkConnectionSharedPtr nc;
  {
    Guard guard(mutex_);
    const FSMediaSessionMap::iterator entry = msvector_.find(msuuid);
    if (entry == msvector_.end()) {
      KVX_MS_LOG(SWITCH_LOG_DEBUG, "Media session not registered in table, no need to delete Network Connection!");
      return false;
    }
    session = entry->second;
    if (session->nodelist.empty()) {
      KVX_MS_LOG(SWITCH_LOG_DEBUG, "Network Connection Node list empty, nothing to delete!");
      EraseEntry(entry, fs_uuid);
    }
    const NodeList::iterator found = FindNode(session->nodelist, fs_uuid);
    if (found != session->nodelist.end()) {
      node = *found;
      nc = node->GetNetworkConnection();
    }
  }
  // Outside the lock: an event that is being handled may want the table.
  if (nc) nc->RemoveListener();
  DropNode(session, node, msuuid, fs_uuid);
  KVX_MS_LOG(SWITCH_LOG_DEBUG, "Network Connection FS UUID deleted!");
  KVX_MS_LOG(SWITCH_LOG_DEBUG, "After unregister, the node list is still NOT empty!");
  return true;
}

// The list may have changed while the lock was away: the node is looked for by identity, and the entry goes only if the
// session has nobody left.
void MediaSessionTable::DropNode(const FSMediaSessionSharedPtr& session, const NetworkConnectionNodeSharedPtr& node,
                                 const boost::uuids::uuid& msuuid, const std::string& fs_uuid) {
  Guard guard(mutex_);
  if (node) session->nodelist.remove(node);
  if (!session->nodelist.empty()) return;
  KVX_MS_LOG(SWITCH_LOG_DEBUG, "After unregister, the node list is empty!");
  const FSMediaSessionMap::iterator entry = msvector_.find(msuuid);
  if (entry != msvector_.end() && entry->second == session) EraseEntry(entry, fs_uuid);
}

void MediaSessionTable::EraseEntry(FSMediaSessionMap::iterator entry, const std::string& fs_uuid) {
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG,
                    "Erasing Media Session (fsuuid=%s; msuuid=%s) from media sessions Table\n", fs_uuid.c_str(),
                    uuid_to_text(entry->first).c_str());
  msvector_.erase(entry);
  KVX_MS_LOG(SWITCH_LOG_DEBUG, "Media Session Erased!");
}

bool MediaSessionTable::UnregisterNetworkConnection(const boost::uuids::uuid&, const NetworkConnectionSharedPtr&) {
  return true;
}

bool MediaSessionTable::MigrateNetworkConnection(const boost::uuids::uuid& from, const boost::uuids::uuid& to,
                                                 const std::string& fs_uuid) {
  FSMediaSessionSharedPtr emptied;  // ends after the lock
  Guard guard(mutex_);
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG,
                    "Migrating Network connection %s from Media Session %s to media sessions %s\n", fs_uuid.c_str(),
                    uuid_to_text(from).c_str(), uuid_to_text(to).c_str());
  const FSMediaSessionMap::iterator source = msvector_.find(from);
  if (source == msvector_.end()) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Media session not registered in table, failed to migrate Network Connection!");
    return false;
  }
  NodeList& source_nodes = source->second->nodelist;
  if (source_nodes.empty()) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Network Connection Node list empty, failed to migrate Network Connection!");
    return false;
  }
  const NodeList::iterator node = FindNode(source_nodes, fs_uuid);
  if (node == source_nodes.end()) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Source Network Connection Node not found, failed to migrate Network Connection!");
    return false;
  }
  const FSMediaSessionMap::iterator destination = msvector_.find(to);
  if (destination == msvector_.end()) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Media session not registered in table, failed to migrate Network Connection!");
    return false;
  }
  if (!AdoptNode(*destination->second, *node)) return false;
  source_nodes.erase(node);
  if (source_nodes.empty()) {
    emptied = source->second;
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "Erasing Media Session in %s from media sessions Table\n",
                      uuid_to_text(from).c_str());
    msvector_.erase(source);
    KVX_MS_LOG(SWITCH_LOG_DEBUG, "Media Session Erased!");
  }
  return true;
}

// The node keeps its peer and its listener flag, and stays the endpoint's listener, which came along with the import.
bool MediaSessionTable::AdoptNode(FSMediaSession& destination, const NetworkConnectionNodeSharedPtr& node) {
  if (FindNode(destination.nodelist, node->GetFSUuid()) != destination.nodelist.end()) {
    KVX_MS_LOG(SWITCH_LOG_ERROR,
               "Network Connection FS UUID already in the list, failed to migrate Network Connection!");
    return false;
  }
  const NetworkConnectionSharedPtr imported(destination.ms->ImportNetworkConnection(node->GetNetworkConnection()));
  if (!imported) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "ERROR - Unable to import Network Connection.");
    return false;
  }
  node->SetNetworkConnection(imported);
  destination.nodelist.push_back(node);
  return true;
}

std::size_t MediaSessionTable::CountMediaSessionAllFSUuid() {
  Guard guard(mutex_);
  return msvector_.size();
}

bool MediaSessionTable::ListMediaSessionAllFSUuid(std::vector<std::string>& out, const boost::uuids::uuid& msuuid) {
  Guard guard(mutex_);
  KVX_MS_LOG(SWITCH_LOG_DEBUG, "Looking for Media Session...");
  const NodeList* nodes = FindNodesToHangUp(msuuid);
  if (nodes == nullptr) return false;
  for (const NetworkConnectionNodeSharedPtr& node : *nodes) out.push_back(node->GetFSUuid());
  return true;
}

bool MediaSessionTable::ListMediaSessionAllNetworkConnections(std::vector<NetworkConnectionSharedPtr>& out,
                                                              const boost::uuids::uuid& msuuid) {
  Guard guard(mutex_);
  const NodeList* nodes = FindNodesToHangUp(msuuid);
  if (nodes == nullptr) return false;
  for (const NetworkConnectionNodeSharedPtr& node : *nodes) out.push_back(node->GetNetworkConnection());
  return true;
}

const MediaSessionTable::NodeList* MediaSessionTable::FindNodesToHangUp(const boost::uuids::uuid& msuuid) {
  const FSMediaSessionMap::iterator entry = msvector_.find(msuuid);
  if (entry == msvector_.end()) {
    KVX_MS_LOG(SWITCH_LOG_DEBUG, "Media session not registered in table, no channels to hang up!");
    return nullptr;
  }
  if (entry->second->nodelist.empty()) {
    KVX_MS_LOG(SWITCH_LOG_DEBUG, "Network Connection Node list empty, no channels to hang up!");
    return nullptr;
  }
  return &entry->second->nodelist;
}

bool MediaSessionTable::ListAllMatchingMSUuid(std::vector<boost::uuids::uuid>& out, const char* ipaddr) {
  if (ipaddr == nullptr) return false;
  Guard guard(mutex_);
  for (const FSMediaSessionMap::value_type& entry : msvector_) {
    if (entry.second->mediaserverip == ipaddr) out.push_back(entry.first);
  }
  return true;
}

bool MediaSessionTable::ListAllMSUuid(std::vector<boost::uuids::uuid>& out) {
  Guard guard(mutex_);
  for (const FSMediaSessionMap::value_type& entry : msvector_) out.push_back(entry.first);
  return true;
}

// One after the other: a session that ends says so next to its own line.
bool MediaSessionTable::EraseAllMSUuid() {
  Guard guard(mutex_);
  std::vector<boost::uuids::uuid> msuuids;
  ListAllMSUuid(msuuids);
  for (const boost::uuids::uuid& msuuid : msuuids) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "Erasing Media Session %s from media sessions Table\n",
                      uuid_to_text(msuuid).c_str());
    msvector_.erase(msuuid);
  }
  return true;
}

boost::optional<MediaSessionSharedPtr> MediaSessionTable::GetMediaSession(const boost::uuids::uuid& msuuid) {
  Guard guard(mutex_);
  const FSMediaSessionMap::iterator entry = msvector_.find(msuuid);
  if (entry == msvector_.end()) {
    KVX_MS_LOG(SWITCH_LOG_DEBUG, kNoSession);
    return boost::none;
  }
  return entry->second->ms;
}

boost::optional<FSMediaSessionSharedPtr> MediaSessionTable::GetFSMediaSession(const boost::uuids::uuid& msuuid) {
  Guard guard(mutex_);
  const FSMediaSessionMap::iterator entry = msvector_.find(msuuid);
  if (entry == msvector_.end()) {
    KVX_MS_LOG(SWITCH_LOG_DEBUG, kNoSession);
    return boost::none;
  }
  return entry->second;
}

void MediaSessionTable::SetMediaSessionIPAddress(const boost::uuids::uuid& msuuid, const char* ipaddr) {
  Guard guard(mutex_);
  const boost::optional<FSMediaSessionSharedPtr> session = GetFSMediaSession(msuuid);
  if (session) (*session)->mediaserverip = switch_str_nil(ipaddr);
}

MediaSessionTable::NodeList* MediaSessionTable::FindNodes(const boost::uuids::uuid& msuuid, switch_log_level_t level) {
  const FSMediaSessionMap::iterator entry = msvector_.find(msuuid);
  if (entry == msvector_.end()) {
    KVX_MS_LOG(level, kNoSession);
    return nullptr;
  }
  if (entry->second->nodelist.empty()) {
    KVX_MS_LOG(level, kNoNodes);
    return nullptr;
  }
  return &entry->second->nodelist;
}

boost::optional<NetworkConnectionSharedPtr> MediaSessionTable::GetNetworkConnection(const boost::uuids::uuid& msuuid,
                                                                                    const std::string& fs_uuid) {
  Guard guard(mutex_);
  const NetworkConnectionNodeSharedPtr node = GetNetworkConnectionNode(msuuid, fs_uuid);
  if (!node) return boost::none;
  return node->GetNetworkConnection();
}

NetworkConnectionNodeSharedPtr MediaSessionTable::GetNetworkConnectionNode(const boost::uuids::uuid& msuuid,
                                                                           const std::string& fs_uuid) {
  Guard guard(mutex_);
  NodeList* nodes = FindNodes(msuuid, SWITCH_LOG_DEBUG);
  if (nodes == nullptr) return NetworkConnectionNodeSharedPtr();
  const NodeList::iterator node = FindNode(*nodes, fs_uuid);
  return node == nodes->end() ? NetworkConnectionNodeSharedPtr() : *node;
}

MediaSessionTable::LegPlace MediaSessionTable::FindLeg(const boost::uuids::uuid& msuuid, const std::string& fs_uuid) {
  LegPlace place;
  Guard guard(mutex_);
  const FSMediaSessionMap::iterator entry = msvector_.find(msuuid);
  if (entry == msvector_.end()) {
    KVX_MS_LOG(SWITCH_LOG_DEBUG, kNoSession);
    return place;
  }
  place.is_session_known = true;
  NodeList& nodes = entry->second->nodelist;
  if (nodes.empty()) KVX_MS_LOG(SWITCH_LOG_DEBUG, kNoNodes);
  const NodeList::iterator node = FindNode(nodes, fs_uuid);
  if (node != nodes.end()) place.connection = (*node)->GetNetworkConnection();
  return place;
}

bool MediaSessionTable::SetPeerNetworkConnectionNode(const boost::uuids::uuid& msuuid, const std::string& fs_uuid,
                                                     const NetworkConnectionNodeSharedPtr& peer) {
  Guard guard(mutex_);
  const NetworkConnectionNodeSharedPtr node = GetNetworkConnectionNode(msuuid, fs_uuid);
  if (!node) return false;
  node->SetPeer(peer);
  return true;
}

bool MediaSessionTable::ResetPeerNetworkConnectionNode(const boost::uuids::uuid& msuuid, const std::string& fs_uuid) {
  Guard guard(mutex_);
  NodeList* nodes = FindNodes(msuuid, SWITCH_LOG_ERROR);
  if (nodes == nullptr) return false;
  const NodeList::iterator node = FindNode(*nodes, fs_uuid);
  if (node == nodes->end()) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Failed to reset peer! No such FS UUID");
    return false;
  }
  (*node)->ResetPeer();
  return true;
}

bool MediaSessionTable::ResetPeerNetworkConnectionNode(const boost::uuids::uuid& msuuid,
                                                       const NetworkConnectionNodeSharedPtr& node) {
  Guard guard(mutex_);
  NodeList* nodes = FindNodes(msuuid, SWITCH_LOG_ERROR);
  if (nodes == nullptr) return false;
  if (std::find(nodes->begin(), nodes->end(), node) == nodes->end()) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Failed to reset peer! No such Network Connection Node");
    return false;
  }
  node->ResetPeer();
  return true;
}

NetworkConnectionNodeSharedPtr MediaSessionTable::GetPeerNetworkConnectionNode(const boost::uuids::uuid& msuuid,
                                                                               const std::string& fs_uuid) {
  Guard guard(mutex_);
  const NetworkConnectionNodeSharedPtr node = GetNetworkConnectionNode(msuuid, fs_uuid);
  if (!node) return NetworkConnectionNodeSharedPtr();
  const NetworkConnectionNodeSharedPtr peer = node->GetPeer();
  if (!peer) return NetworkConnectionNodeSharedPtr();
  // One use is the copy made here: the second tells that the peer still holds its connection.
  const NetworkConnectionSharedPtr nc = peer->GetNetworkConnection();
  return nc && nc.use_count() >= 2 ? peer : NetworkConnectionNodeSharedPtr();
}

}  // namespace kvx_media_server
