#include "leg_lookup.h"

#include <array>
#include <atomic>
#include <cstddef>

#include "mod_kelvaro_media_server.h"

namespace kvx_media_server {

const char* const kNoMediaSessionMessage =
    "Cannot find Media Session in (fsuuid=%s; msuuid=%s) in media sessions Table\n";

namespace {

/// On a cache line of its own, or threads that take different ones would still wait for each other.
struct alignas(64) LegsLock {
  std::mutex mutex;
};

std::array<LegsLock, 32> legs_locks;

}  // namespace

std::unique_lock<std::mutex> hold_legs() {
  static std::atomic<unsigned> threads{0};
  thread_local const std::size_t own = threads++ % legs_locks.size();
  return std::unique_lock<std::mutex>(legs_locks[own].mutex);
}

std::vector<std::unique_lock<std::mutex>> hold_legs_to_move_one() {
  std::vector<std::unique_lock<std::mutex>> held;
  for (LegsLock& lock : legs_locks) held.emplace_back(lock.mutex);
  return held;
}

boost::optional<boost::uuids::uuid> find_media_session_uuid(const std::string& fs_uuid) {
  const auto held = hold_legs();
  return mod_globals->GetFSUuidTable()->FindMediaSessionUuid(fs_uuid);
}

boost::optional<Leg> find_leg(const std::string& fs_uuid, const LegLookupMessages& messages) {
  const auto& uuids = mod_globals->GetFSUuidTable();
  const auto& sessions = mod_globals->GetMSTable();

  MediaSessionTable::LegPlace place;  // ends after the lock
  auto held = hold_legs();
  const boost::optional<boost::uuids::uuid> known = uuids->FindMediaSessionUuid(fs_uuid);
  if (!known) {
    held.unlock();
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, messages.unknown_leg, fs_uuid.c_str());
    objects_cleanup(fs_uuid.c_str());
    return boost::none;
  }

  const boost::uuids::uuid ms_uuid = *known;
  place = sessions->FindLeg(ms_uuid, fs_uuid);
  if (!place.is_session_known) {
    held.unlock();
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, messages.no_media_session, fs_uuid.c_str(),
                      uuid_to_text(ms_uuid).c_str());
    return boost::none;
  }

  if (!place.connection) {
    held.unlock();
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, messages.no_connection, fs_uuid.c_str(),
                      uuid_to_text(ms_uuid).c_str());
    objects_cleanup(fs_uuid.c_str());
    return boost::none;
  }
  return Leg{fs_uuid, ms_uuid, place.connection};
}

OwnMediaSession lock_media_session_of(const std::string& fs_uuid,
                                      const boost::optional<boost::uuids::uuid>& last_seen_in) {
  const auto& uuids = mod_globals->GetFSUuidTable();
  for (boost::optional<boost::uuids::uuid> believed = last_seen_in;; believed = boost::none) {
    OwnMediaSession own;
    {
      const auto held = hold_legs();
      own.ms_uuid = believed ? *believed : uuids->GetMediaSessionUuid(fs_uuid);
      if (own.ms_uuid.is_nil()) return own;
      own.record = mod_globals->GetMSTable()->GetFSMediaSession(own.ms_uuid).get_value_or(own.record);
      if (!own.record) {
        if (believed && uuids->GetMediaSessionUuid(fs_uuid) != own.ms_uuid) continue;
        return own;
      }
    }
    own.lock = boost::unique_lock<boost::recursive_mutex>(own.record->mutex_);
    if (uuids->GetMediaSessionUuid(fs_uuid) == own.ms_uuid) return own;
  }
}

NetworkConnectionSharedPtr find_connection(const boost::uuids::uuid& ms_uuid, const std::string& fs_uuid) {
  return mod_globals->GetMSTable()->GetNetworkConnection(ms_uuid, fs_uuid).get_value_or(NetworkConnectionSharedPtr());
}

void forget_fs_uuid(const std::string& fs_uuid) {
  mod_globals->GetFSUuidTable()->UnregisterMediaSession(fs_uuid);
}

}  // namespace kvx_media_server
