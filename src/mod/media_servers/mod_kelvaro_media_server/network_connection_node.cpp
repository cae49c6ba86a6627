#include "network_connection_node.h"

#include "brief_guard.h"
#include "hangup.h"
#include "kelvaro/jsr309/network_connection.h"
#include "module_log.h"

namespace kvx_media_server {

namespace {
using Guard = BriefGuard<boost::recursive_mutex>;
}  // namespace

MediaSessionTable::NetworkConnectionNode::NetworkConnectionNode(const NetworkConnectionSharedPtr& nc,
                                                                const std::string& fs_uuid)
    : fs_uuid_(fs_uuid), nc_(nc) {}

MediaSessionTable::NetworkConnectionNode::~NetworkConnectionNode() = default;

void MediaSessionTable::NetworkConnectionNode::EnableListener() {
  Guard guard(mutex_);
  listener_enabled_ = true;
}

void MediaSessionTable::NetworkConnectionNode::DisableListener() {
  Guard guard(mutex_);
  listener_enabled_ = false;
}

bool MediaSessionTable::NetworkConnectionNode::IsListenerEnabled() const {
  Guard guard(mutex_);
  return listener_enabled_;
}

// The node's lock spans the handler, so that a bridge cannot enable the listener between the question and the hang-up.
void MediaSessionTable::NetworkConnectionNode::OnEvent(const kelvaro::jsr309::RtpTimeoutEvent&) {
  Guard guard(mutex_);
  const LockedSession session = locate_session(fs_uuid_.c_str());
  if (!session) {
    KVX_MS_LOG(SWITCH_LOG_DEBUG, "Unable to locate the session, ignoring RTP timeout. ");
    return;
  }
  if (IsListenerEnabled()) {
    DisableListener();
    KVX_MS_LOG(SWITCH_LOG_DEBUG, "Rtp Timeout. Hanging up the call leg.");
    hang_up(session);
  }
}

std::string MediaSessionTable::NetworkConnectionNode::GetFSUuid() const {
  Guard guard(mutex_);
  return fs_uuid_;
}

NetworkConnectionSharedPtr MediaSessionTable::NetworkConnectionNode::GetNetworkConnection() const {
  Guard guard(mutex_);
  return nc_;
}

// By value and swapped: the former connection ends with the argument, after the lock has been given back.
void MediaSessionTable::NetworkConnectionNode::SetNetworkConnection(NetworkConnectionSharedPtr nc) {
  Guard guard(mutex_);
  nc_.swap(nc);
}

void MediaSessionTable::NetworkConnectionNode::SetPeer(const NetworkConnectionNodeSharedPtr& peer) {
  Guard guard(mutex_);
  peer_ncn_ = peer;
}

NetworkConnectionNodeSharedPtr MediaSessionTable::NetworkConnectionNode::GetPeer() const {
  Guard guard(mutex_);
  return peer_ncn_.lock();
}

void MediaSessionTable::NetworkConnectionNode::ResetPeer() {
  Guard guard(mutex_);
  peer_ncn_.reset();
}

void MediaSessionTable::NetworkConnectionNode::RemoveListener() {
  Guard guard(mutex_);
  if (nc_) nc_->RemoveListener();
}

}  // namespace kvx_media_server
