#include "fs_uuid_table.h"

#include <boost/uuid/nil_generator.hpp>

#include "brief_guard.h"
#include "module_log.h"

namespace kvx_media_server {

namespace {
constexpr std::size_t kInitialBuckets = 11;
constexpr float kEntriesPerBucket = 0.25;  // so few that a new one seldom has to look at another's memory
using Guard = BriefGuard<boost::recursive_mutex>;

/// A text's hash, made before the lock is taken: that takes longer than all the rest of a look.
class MadeHash {
 public:
  explicit MadeHash(const std::string& text) : hash_(boost::hash<std::string>()(text)) {}
  std::size_t operator()(const std::string&) const { return hash_; }

 private:
  const std::size_t hash_;
};

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
  const MadeHash hash(fs_uuid);
  FSUuidMap::node_type erased;  // ends after the lock
  Guard guard(mutex_);
  const FSUuidMap::const_iterator found = fsuuidtable_.find(fs_uuid, hash, fsuuidtable_.key_eq());
  if (found != fsuuidtable_.end()) erased = fsuuidtable_.extract(found);
  return true;
}

bool FSUuidTable::IsFSUuidAlreadyThere(const std::string& fs_uuid) {
  return FindMediaSessionUuid(fs_uuid).has_value();
}

boost::uuids::uuid FSUuidTable::GetMediaSessionUuid(const std::string& fs_uuid) {
  return FindMediaSessionUuid(fs_uuid).get_value_or(boost::uuids::nil_uuid());
}

boost::optional<boost::uuids::uuid> FSUuidTable::FindMediaSessionUuid(const std::string& fs_uuid) {
  const MadeHash hash(fs_uuid);
  Guard guard(mutex_);
  const FSUuidMap::const_iterator found = fsuuidtable_.find(fs_uuid, hash, fsuuidtable_.key_eq());
  if (found == fsuuidtable_.end()) return boost::none;
  return found->second;
}

bool FSUuidTable::EraseAllItems() {
  Guard guard(mutex_);
  fsuuidtable_.clear();
  return true;
}

}  // namespace kvx_media_server
