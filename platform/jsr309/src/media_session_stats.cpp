#include "kelvaro/jsr309/media_session_stats.h"

#include "address_text.h"

namespace kelvaro::jsr309 {
namespace {

// A key that is no MAC address is kept in upper case as it is, so that it can be found again.
std::string MacKey(const char* mac) {
  return NormalisedMac(mac).value_or(UpperCase(mac));
}

}  // namespace

void MediaSessionStats::IncreaseMediaSessionCount() {
  ++current_mediasession_count_;
  max_mediasession_count_computer_.AddData(current_mediasession_count_);
}

void MediaSessionStats::DecreaseMediaSessionCount() {
  if (current_mediasession_count_ > 0) --current_mediasession_count_;
}

void MediaSessionStats::AddNewMediaSessionDuration(const Duration& duration) {
  min_max_avg_mediasession_duration_computer_.AddData(duration);
}

const MediaSessionStats* MediaSessionStatsMap::GetOneStatsByIP(const char* ip) const {
  return GetOneStatsByMAC(GetMacByIP(ip));
}

const MediaSessionStats* MediaSessionStatsMap::GetOneStatsByMAC(const char* mac) const {
  if (mac == nullptr) return nullptr;
  const auto found = statsmap_.find(MacKey(mac));
  return found == statsmap_.end() ? nullptr : &found->second;
}

const char* MediaSessionStatsMap::GetMacByIP(const char* ip) const {
  if (ip == nullptr) return nullptr;
  for (const auto& [mac, address] : macipmap_) {
    if (SameIp(address, ip)) return mac.c_str();
  }
  return nullptr;
}

void MediaSessionStatsMap::GetIPByMac(std::list<std::string>* out, const char* mac) const {
  if (out == nullptr || mac == nullptr) return;
  const auto [first, last] = macipmap_.equal_range(MacKey(mac));
  for (auto entry = first; entry != last; ++entry) out->push_back(entry->second);
}

bool MediaSessionStatsMap::AddOneStatsItem(const char* mac, size_t capacity) {
  if (mac == nullptr) return false;
  return statsmap_.emplace(MacKey(mac), MediaSessionStats(capacity)).second;
}

void MediaSessionStatsMap::SetOneStatsItem(const char* mac, const MediaSessionStats& stats) {
  if (mac != nullptr) statsmap_[MacKey(mac)] = stats;
}

bool MediaSessionStatsMap::AddMacIPPair(const char* mac, const char* ip) {
  if (mac == nullptr || ip == nullptr) return false;
  macipmap_.emplace(MacKey(mac), UpperCase(ip));
  return true;
}

}  // namespace kelvaro::jsr309
