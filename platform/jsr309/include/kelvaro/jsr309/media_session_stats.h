/// How much one media server, or all of them together, are used.
///
/// An operator who plans capacity asks how many calls there are now, how many there ever were at once, and how long
/// they last. MediaSessionStats answers for one server; MediaSessionStatsMap holds the answers of all of them and the
/// addresses under which operators name them.
///
/// Values, copied out of the library by MSControlFactory::GetStats. Threads: no locking, one thread at a time.
#pragma once

#include "kelvaro/statistic_computers.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>

namespace kelvaro::jsr309 {

class MediaSessionStats {
 public:
  using Duration = boost::posix_time::time_duration;

  MediaSessionStats() = default;
  explicit MediaSessionStats(size_t capacity) : mediasession_capacity_(capacity) {}

  bool IsInService() const { return node_in_service_; }
  void PutInService() { node_in_service_ = true; }
  void PutOutOfService() { node_in_service_ = false; }

  /// How many sessions the server can hold.
  uint64_t GetMediaSessionCapacity() const { return mediasession_capacity_; }
  void SetMediaSessionCapacity(uint64_t capacity) { mediasession_capacity_ = capacity; }

  void IncreaseMediaSessionCount();
  /// Stays at 0 when it is there.
  void DecreaseMediaSessionCount();
  uint64_t GetCurrentMediaSessionCount() const { return current_mediasession_count_; }
  /// The highest count there was; 0 before the first session.
  uint64_t GetMaxMediaSessionCount() const { return max_mediasession_count_computer_.GetMax().value_or(0); }

  /// Counts a session that has ended. Durations are kept to the microsecond; they are zero before the first.
  void AddNewMediaSessionDuration(const Duration& duration);
  Duration GetMinMediaSessionDuration() const { return OrZero(min_max_avg_mediasession_duration_computer_.GetMin()); }
  Duration GetMaxMediaSessionDuration() const { return OrZero(min_max_avg_mediasession_duration_computer_.GetMax()); }
  Duration GetAvgMediaSessionDuration() const { return OrZero(min_max_avg_mediasession_duration_computer_.GetAvg()); }

 private:
  static Duration OrZero(const std::optional<Duration>& duration) { return duration ? *duration : Duration(); }

  bool node_in_service_ = true;
  uint64_t current_mediasession_count_ = 0;
  uint64_t mediasession_capacity_ = 0;
  MaxComputer<unsigned long> max_mediasession_count_computer_;
  MinMaxAvgComputer<Duration> min_max_avg_mediasession_duration_computer_;
};

/// The servers by MAC address (upper case, ":" between the bytes) and their IP addresses (upper case, in the configured
/// order). Look-ups take a MAC in any case with ":" or "-", and an IP address in any of its spellings, brackets
/// included. Returned pointers live until the map is changed.
class MediaSessionStatsMap {
 public:
  using MSStatsMap = std::map<std::string, MediaSessionStats>;
  using MSMacIPMap = std::multimap<std::string, std::string>;

  const MSStatsMap& GetAllStatsMap() const { return statsmap_; }
  const MSMacIPMap& GetMacIPMap() const { return macipmap_; }
  bool IsMapEmpty() const { return statsmap_.empty(); }

  /// Null for null and for what is not known.
  const MediaSessionStats* GetOneStatsByIP(const char* ip) const;
  const MediaSessionStats* GetOneStatsByMAC(const char* mac) const;
  const char* GetMacByIP(const char* ip) const;
  /// Appends every address of the server to the list; nothing for a MAC that is not known.
  void GetIPByMac(std::list<std::string>* out, const char* mac) const;

  /// Adds a server without sessions. False when it is there already or the MAC is null.
  bool AddOneStatsItem(const char* mac, size_t capacity);
  /// Adds a server with the figures given, in place of former ones.
  void SetOneStatsItem(const char* mac, const MediaSessionStats& stats);
  /// Adds an address to a server. False for a null argument.
  bool AddMacIPPair(const char* mac, const char* ip);

 private:
  MSStatsMap statsmap_;
  MSMacIPMap macipmap_;
};

}  // namespace kelvaro::jsr309
