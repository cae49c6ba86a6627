#pragma once

#include <boost/thread/recursive_mutex.hpp>
#include <boost/weak_ptr.hpp>
#include <string>

#include "kelvaro/jsr309/rtp_timeout_listener.h"
#include "media_session_table.h"

namespace kvx_media_server {

/// A leg's place in a media session: which switch session it is, which network connection it holds there, which leg it
/// is bridged to, and whether silence on its connection ends it. The node is itself the RTP-timeout listener of its
/// connection, so that an event finds its leg without a look-up.
///
/// Always on the heap and shared: by the table's list, by the control library while it listens, and by callers for the
/// length of a call. Peers refer to each other weakly. Every accessor but IsOf, which looks at
/// what never changes, takes the node's own lock, the last in the order.
class MediaSessionTable::NetworkConnectionNode : public virtual kelvaro::jsr309::RtpTimeoutListener {
 public:
  NetworkConnectionNode(const NetworkConnectionSharedPtr& nc, const std::string& fs_uuid);
  ~NetworkConnectionNode() override;

  NetworkConnectionNode(const NetworkConnectionNode&) = delete;
  NetworkConnectionNode& operator=(const NetworkConnectionNode&) = delete;

  void EnableListener() override;
  void DisableListener() override;
  bool IsListenerEnabled() const override;

  /// Hangs the leg up, once: the listener is disabled first. Called on the control library's threads.
  void OnEvent(const kelvaro::jsr309::RtpTimeoutEvent& event) override;

  std::string GetFSUuid() const;
  /// Whether GetFSUuid would say so; takes no lock, since that never changes.
  bool IsOf(const std::string& fs_uuid) const { return fs_uuid_ == fs_uuid; }
  NetworkConnectionSharedPtr GetNetworkConnection() const;
  void SetNetworkConnection(NetworkConnectionSharedPtr nc);
  void SetPeer(const NetworkConnectionNodeSharedPtr& peer);
  /// Empty when there is no peer or it is gone.
  NetworkConnectionNodeSharedPtr GetPeer() const;
  void ResetPeer();
  /// Takes this node off its connection.
  void RemoveListener();

 private:
  const std::string fs_uuid_;
  NetworkConnectionSharedPtr nc_;                    // guarded by mutex_
  boost::weak_ptr<NetworkConnectionNode> peer_ncn_;  // guarded by mutex_
  bool listener_enabled_ = true;                     // guarded by mutex_
  mutable boost::recursive_mutex mutex_;
};

}  // namespace kvx_media_server
