#include "msstatsreportagent.h"

#include <strings.h>

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <cstdint>
#include <cstdio>
#include <initializer_list>

namespace kvx_media_server {

namespace {

using boost::algorithm::is_any_of;
using boost::algorithm::to_lower_copy;
using boost::algorithm::to_upper_copy;
using boost::algorithm::trim_right_copy_if;
using boost::property_tree::ptree;

bool is_empty(const char* text) {
  return text == nullptr || *text == '\0';
}

bool is_one_of(const char* word, std::initializer_list<const char*> words) {
  for (const char* candidate : words) {
    if (strcasecmp(word, candidate) == 0) return true;
  }
  return false;
}

/// Every server has room for some sessions; one that was configured without counts as not used at all.
std::string percentage(uint64_t count, uint64_t capacity) {
  return std::to_string(capacity == 0 ? 0 : count * 100 / capacity) + "%";
}

std::string addresses_of(const kelvaro::jsr309::MediaSessionStatsMap& servers, const std::string& mac) {
  std::list<std::string> addresses;
  servers.GetIPByMac(&addresses, mac.c_str());
  return boost::algorithm::join(addresses, ",");
}

}  // namespace

MSStatsReportAgent::MSStatsReportAgent(boost::shared_ptr<kelvaro::jsr309::MSControlFactory>& factory)
    : ctrlftry_(factory) {}

bool MSStatsReportAgent::Init(const char* application, const char* scope, const char* scope_value,
                              const char* statsconfig_path) {
  if (is_empty(application) || !is_one_of(application, {"usage", "duration", "hardware"})) return false;
  if (is_empty(statsconfig_path)) return false;
  if (scope == nullptr) scope = "";
  if (!is_one_of(scope, {"", "ip", "mac", "all"})) return false;
  const bool one_server = is_one_of(scope, {"ip", "mac"});
  if (one_server && is_empty(scope_value)) return false;
  application_ = to_lower_copy(std::string(application));
  scope_ = to_lower_copy(std::string(scope));
  scope_value_ = one_server ? to_upper_copy(std::string(scope_value)) : std::string();
  boost::property_tree::read_xml(statsconfig_path, report_filter_);
  return true;
}

bool MSStatsReportAgent::FetchReport(ptree& report, bool IsXML) const {
  kelvaro::jsr309::JSR309Stats stats;
  return ctrlftry_->GetStats(stats) && MakeReport(report, stats, IsXML);
}

bool MSStatsReportAgent::MakeReport(ptree& report, const kelvaro::jsr309::JSR309Stats& stats, bool IsXML) const {
  const StatsMap& servers = stats.GetMediaSessionStatsPerMediaServer();
  const char* address = scope_value_.c_str();
  if (scope_ == "ip") {
    return FillSingleReport(report, false, servers.GetOneStatsByIP(address), address, servers.GetMacByIP(address), 0,
                            IsXML);
  }
  if (scope_ == "mac") {
    const std::string ip = addresses_of(servers, scope_value_);
    if (ip.empty()) return false;
    return FillSingleReport(report, false, servers.GetOneStatsByMAC(address), ip.c_str(), address, 0, IsXML);
  }
  if (scope_.empty()) {
    const Stats sum = stats.GetMediaSessionStats();
    return FillSingleReport(report, true, &sum, nullptr, nullptr, 0, IsXML);
  }
  return scope_ == "all" && FetchAll(report, servers, IsXML);
}

// In the order of the MAC addresses. A server without an address is passed over and takes no number.
bool MSStatsReportAgent::FetchAll(ptree& report, const StatsMap& servers, bool IsXML) const {
  unsigned int index = 1;
  for (const StatsMap::MSStatsMap::value_type& server : servers.GetAllStatsMap()) {
    const std::string ip = addresses_of(servers, server.first);
    if (ip.empty()) continue;
    FillSingleReport(report, false, &server.second, ip.c_str(), server.first.c_str(), index, IsXML);
    ++index;
  }
  return true;
}

std::string MSStatsReportAgent::FormatTimeDurationToString(const boost::posix_time::time_duration& duration) const {
  char text[20];
  std::snprintf(text, sizeof(text), "%02ld:%02ld:%02ld", static_cast<long>(duration.hours()),
                static_cast<long>(duration.minutes()), static_cast<long>(duration.seconds()));
  return text;
}

std::string MSStatsReportAgent::GetStatsItemString(const Stats* msstat, const char* itemname) const {
  if (itemname == nullptr) return "";
  const std::string item = to_lower_copy(std::string(itemname));
  const uint64_t capacity = msstat->GetMediaSessionCapacity();
  if (item == "active_calls") return std::to_string(msstat->GetCurrentMediaSessionCount());
  if (item == "max_calls") return std::to_string(msstat->GetMaxMediaSessionCount());
  if (item == "min_duration") return FormatTimeDurationToString(msstat->GetMinMediaSessionDuration());
  if (item == "max_duration") return FormatTimeDurationToString(msstat->GetMaxMediaSessionDuration());
  if (item == "avg_duration") return FormatTimeDurationToString(msstat->GetAvgMediaSessionDuration());
  if (item == "active_calls_percentage") return percentage(msstat->GetCurrentMediaSessionCount(), capacity);
  if (item == "max_calls_percentage") return percentage(msstat->GetMaxMediaSessionCount(), capacity);
  return "";
}

bool MSStatsReportAgent::FillSingleReport(ptree& report, bool IsSumRpt, const Stats* msstat, const char* ip,
                                          const char* mac, unsigned int ms_index, bool IsXML) const {
  if (msstat == nullptr || (!IsSumRpt && (ip == nullptr || mac == nullptr))) return false;
  std::string path = "stats." + application_ + ".";
  if (IsSumRpt) {
    path += "summary.";
  } else {
    path += "modules.module" + (ms_index == 0 ? std::string() : std::to_string(ms_index)) + ".";
    report.put(path + "IP", ip);
    report.put(path + "MAC", mac);
    report.put(path + "Status", msstat->IsInService() ? "IS" : "OOS");
  }
  FillItems(report, path, msstat, IsXML);
  return true;
}

// An item is looked up by its name, so that of two items of one name the first one speaks for both. Points in a view
// name make a path of it; the tree cannot hold a path that ends in one.
void MSStatsReportAgent::FillItems(ptree& report, const std::string& path, const Stats* msstat, bool IsXML) const {
  const char* viewname = IsXML ? "xmlviewname" : "viewname";
  const ptree& items = report_filter_.get_child("statsconfig");
  for (const ptree::value_type& entry : items) {
    const std::string& name = entry.first;
    const ptree& item = items.find(name)->second;
    const std::string view = trim_right_copy_if(item.get(viewname, std::string()), is_any_of("."));
    const std::string application = item.get("application", std::string());
    if (view.empty() || application != application_) continue;
    report.put(path + view, GetStatsItemString(msstat, name.c_str()));
  }
}

}  // namespace kvx_media_server
