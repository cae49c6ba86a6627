#pragma once

#include <boost/property_tree/ptree.hpp>
#include <boost/shared_ptr.hpp>
#include <list>
#include <string>

#include "kelvaro/jsr309/jsr309_stats.h"
#include "kelvaro/jsr309/ms_control_factory.h"

namespace kvx_media_server {

/// The control library counts; operators want to read some of the counts, under names of their own, for one media
/// server, for each, or for all together. An agent serves one such request: it takes the request and the statistics
/// filter file, which says what is shown where and under which name, and makes a tree of values out of the library's
/// statistics.
///
/// Construct, Init, and, when that was true, FetchReport once. A stack object of one thread. The tree library's
/// exceptions leave it: a filter file that cannot be read or parsed, or that has no "statsconfig" root.
class MSStatsReportAgent {
 public:
  explicit MSStatsReportAgent(boost::shared_ptr<kelvaro::jsr309::MSControlFactory>& factory);

  MSStatsReportAgent(const MSStatsReportAgent&) = delete;
  MSStatsReportAgent& operator=(const MSStatsReportAgent&) = delete;

  /// application: "usage", "duration" or "hardware"; scope: null or "" for the sum, "all", "ip" or "mac"; scope_value:
  /// the address for the last two. Words in any case. False for anything else and without a filter file's path.
  bool Init(const char* application, const char* scope, const char* scope_value, const char* statsconfig_path);

  /// Puts "stats.<application>.summary" or "stats.<application>.modules" into the tree. False when the library has no
  /// statistics or does not know the server asked for.
  bool FetchReport(boost::property_tree::ptree& report, bool IsXML) const;
  /// The second half of FetchReport, for statistics already at hand.
  bool MakeReport(boost::property_tree::ptree& report, const kelvaro::jsr309::JSR309Stats& stats, bool IsXML) const;

 private:
  using Stats = kelvaro::jsr309::MediaSessionStats;
  using StatsMap = kelvaro::jsr309::MediaSessionStatsMap;

  bool FetchAll(boost::property_tree::ptree& report, const StatsMap& servers, bool IsXML) const;
  std::string FormatTimeDurationToString(const boost::posix_time::time_duration& duration) const;
  std::string GetStatsItemString(const Stats* msstat, const char* itemname) const;
  bool FillSingleReport(boost::property_tree::ptree& report, bool IsSumRpt, const Stats* msstat, const char* ip,
                        const char* mac, unsigned int ms_index, bool IsXML) const;
  void FillItems(boost::property_tree::ptree& report, const std::string& path, const Stats* msstat, bool IsXML) const;

  const boost::shared_ptr<kelvaro::jsr309::MSControlFactory> ctrlftry_;
  boost::property_tree::ptree report_filter_;
  std::string application_;  // lower case
  std::string scope_;        // lower case; "" for the sum
  std::string scope_value_;  // upper case; "" unless scope_ is "ip" or "mac"
};

}  // namespace kvx_media_server
