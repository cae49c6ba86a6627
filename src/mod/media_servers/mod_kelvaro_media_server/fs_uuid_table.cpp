#include "fs_uuid_table.h"

#include <boost/uuid/nil_generator.hpp>

#include "brief_guard.h"
#include "module_log.h"

namespace kvx_media_server {

namespace {
constexpr std::size_t kInitialBuckets = 11;
constexpr float kEntriesPerBucket = 0.25;  // so few that a new one seldom has to look at another's memory
using Guard = BriefGuard<boost::recursive_mutex>;
}  // namespace

FSUuidTable::FSUuidTable() : fsuuidtable_(kInitialBuckets) {
  fsuuidtable_.max_load_factor(kEntriesPerBucket);
}

bool FSUuidTable::RegisterMediaSessionUuid(const std::string& fs_uuid, const boost::uuids::uuid& msuuid) {
  Guard guard(mutex_);
  const bool inserted = fsuuidtable_.emplace(fs_uuid, msuuid).second;
  if (!inserted) KVX_MS_LOG(SWITCH_LOG_DEBUG, "Already registered!");
  return inserted;
}

bool FSUuidTable::UnregisterMediaSession(const std::string& fs_uuid) {
  Guard guard(mutex_);
  fsuuidtable_.erase(fs_uuid);
  return true;
}

bool FSUuidTable::IsFSUuidAlreadyThere(const std::string& fs_uuid) {
  Guard guard(mutex_);
  return fsuuidtable_.find(fs_uuid) != fsuuidtable_.end();
}

boost::uuids::uuid FSUuidTable::GetMediaSessionUuid(const std::string& fs_uuid) {
  Guard guard(mutex_);
  const FSUuidMap::const_iterator found = fsuuidtable_.find(fs_uuid);
  return found == fsuuidtable_.end() ? boost::uuids::nil_uuid() : found->second;
}

bool FSUuidTable::EraseAllItems() {
  Guard guard(mutex_);
  fsuuidtable_.clear();
  return true;
}

}  // namespace kvx_media_server
