#pragma once

#include <atomic>
#include <boost/uuid/uuid.hpp>

#include "kelvaro/jsr309/media_server_lost_listener.h"

namespace kvx_media_server {

class MediaSessionTable;

/// A media server that goes away takes the media of all its calls with it. One such listener watches over one media
/// session: when the control library reports the server of that session lost, every leg in the session is hung up, and
/// the legs then leave the tables by their normal way out.
///
/// Owned by the session's record in the MediaSessionTable and by the control library while it is registered there. The
/// table must outlive every event. Events come on the control library's threads, with no lock of the module held.
class MyMediaServerLostListener : public virtual kelvaro::jsr309::MediaServerLostListener {
 public:
  explicit MyMediaServerLostListener(MediaSessionTable& table);
  ~MyMediaServerLostListener() override;

  MyMediaServerLostListener(const MyMediaServerLostListener&) = delete;
  MyMediaServerLostListener& operator=(const MyMediaServerLostListener&) = delete;

  void EnableListener() override;
  void DisableListener() override;
  bool IsListenerEnabled() const override;

  /// Sets out_delete_listener to true once a round of hang-ups has run; otherwise leaves it as it is.
  void OnEvent(const kelvaro::jsr309::MediaServerLostEvent& event, bool& out_delete_listener) override;

  /// To be set before the listener is registered anywhere; never changed afterwards.
  void SetUuid(const boost::uuids::uuid& media_session_uuid);
  const boost::uuids::uuid& GetUuid() const;

 private:
  std::atomic<bool> enabled_{true};
  MediaSessionTable& table_;
  boost::uuids::uuid myuuid_;
};

}  // namespace kvx_media_server
