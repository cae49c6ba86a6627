#include "media_server_lost_listener.h"

#include <boost/uuid/nil_generator.hpp>
#include <string>
#include <vector>

#include "hangup.h"
#include "media_session_table.h"
#include "module_log.h"

namespace kvx_media_server {

MyMediaServerLostListener::MyMediaServerLostListener(MediaSessionTable& table)
    : table_(table), myuuid_(boost::uuids::nil_uuid()) {}

MyMediaServerLostListener::~MyMediaServerLostListener() {
  KVX_MS_LOG(SWITCH_LOG_DEBUG, "MyMediaServerLostListener::~MyMediaServerLostListener");
}

void MyMediaServerLostListener::EnableListener() {
  enabled_ = true;
}

void MyMediaServerLostListener::DisableListener() {
  enabled_ = false;
}

bool MyMediaServerLostListener::IsListenerEnabled() const {
  return enabled_;
}

void MyMediaServerLostListener::OnEvent(const kelvaro::jsr309::MediaServerLostEvent&, bool& out_delete_listener) {
  KVX_MS_LOG(SWITCH_LOG_DEBUG, "Media Server connection down. Hanging up all calls.");
  std::vector<std::string> myUuidList;
  if (!table_.ListMediaSessionAllFSUuid(myUuidList, myuuid_)) {
    KVX_MS_LOG(SWITCH_LOG_DEBUG, "Failed to retrieve media session fs_uuid list.");
    return;
  }
  if (myUuidList.empty()) {
    KVX_MS_LOG(SWITCH_LOG_NOTICE, "Media Session table is empty. No calls to hang up.");
    return;
  }
  KVX_MS_LOG(SWITCH_LOG_DEBUG, "********* Begin of switch_channel_hangup() *********");
  for (const std::string& fs_uuid : myUuidList) hang_up(fs_uuid);
  DisableListener();
  out_delete_listener = true;
  KVX_MS_LOG(SWITCH_LOG_DEBUG, "********** End of switch_channel_hangup() **********");
}

void MyMediaServerLostListener::SetUuid(const boost::uuids::uuid& media_session_uuid) {
  myuuid_ = media_session_uuid;
}

const boost::uuids::uuid& MyMediaServerLostListener::GetUuid() const {
  return myuuid_;
}

}  // namespace kvx_media_server
