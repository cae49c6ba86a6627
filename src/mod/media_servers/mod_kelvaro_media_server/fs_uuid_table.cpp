#include "fs_uuid_table.h"

#include <boost/thread/lock_guard.hpp>
#include <boost/uuid/nil_generator.hpp>

#include "module_log.h"

namespace kvx_media_server {

namespace {
constexpr std::size_t kInitialBuckets = 11;
using Guard = boost::lock_guard<boost::recursive_mutex>;
}  // namespace

FSUuidTable::FSUuidTable() : fsuuidtable_(kInitialBuckets) {}

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
