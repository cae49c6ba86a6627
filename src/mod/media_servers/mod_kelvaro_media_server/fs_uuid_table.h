#pragma once

#include <boost/functional/hash.hpp>
#include <boost/optional.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <boost/unordered_map.hpp>
#include <boost/uuid/uuid.hpp>
#include <string>

namespace kvx_media_server {

/// Every callback starts from a leg's FS uuid (the uuid text of its switch session) and needs the media session that
/// the leg belongs to. This table answers that; MediaSessionTable has the rest. Several legs may share a media session;
/// a leg has at most one. The nil uuid means "none" and is never stored.
///
/// Any thread may call; the lock is never held while anything outside the table is called. Two calls in a row are two
/// separate looks at the table.
class FSUuidTable {
 public:
  FSUuidTable();
  FSUuidTable(const FSUuidTable&) = delete;
  FSUuidTable& operator=(const FSUuidTable&) = delete;

  /// False when the leg is already there; the first mapping stays.
  bool RegisterMediaSessionUuid(const std::string& fs_uuid, const boost::uuids::uuid& msuuid);
  /// Always true.
  bool UnregisterMediaSession(const std::string& fs_uuid);
  bool IsFSUuidAlreadyThere(const std::string& fs_uuid);
  /// Both answers in one look: none when the leg is unknown.
  boost::optional<boost::uuids::uuid> FindMediaSessionUuid(const std::string& fs_uuid);
  /// The nil uuid when the leg is unknown.
  boost::uuids::uuid GetMediaSessionUuid(const std::string& fs_uuid);
  /// Always true.
  bool EraseAllItems();

 private:
  using FSUuidMap = boost::unordered_map<std::string, boost::uuids::uuid, boost::hash<std::string>>;

  // Together on one cache line, which is what goes from core to core, and apart from everything else.
  alignas(64) FSUuidMap fsuuidtable_;  // guarded by mutex_
  boost::recursive_mutex mutex_;
};

}  // namespace kvx_media_server
