#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/replace.hpp>
#include <boost/property_tree/ptree.hpp>

#include "commands.h"
#include "hangup.h"
#include "mod_kelvaro_media_server.h"
#include "msstatsreportagent.h"

namespace {

using boost::algorithm::iequals;
using boost::property_tree::ptree;
using boost::uuids::uuid;

constexpr switch_interval_time_t kBetweenHangups = 50;  // microseconds
constexpr std::size_t kLongestAddress = 49;

struct ControlRequest {
  bool session_term = false;  ///< else: service
  bool up = false;            ///< service only
  std::string scope;          ///< "", "all", "ip" or "mac"
  std::string address;        ///< upper case, ":" between the bytes of a MAC address
};

bool parse_action(char** argv, switch_stream_handle_t* stream, ControlRequest& request) {
  if (iequals(argv[0], "session")) {
    request.session_term = true;
    return iequals(argv[1], "term");
  }
  if (iequals(argv[0], "service")) {
    request.up = iequals(argv[1], "up");
    return request.up || iequals(argv[1], "down");
  }
  stream->write_function(stream, "application \"%s\" not supported!", argv[0]);
  return false;
}

bool parse_selector(int argc, char** argv, ControlRequest& request) {
  if (argc <= 2) return true;
  request.scope = boost::algorithm::to_lower_copy(std::string(argv[2]));
  if (request.scope == "all") return true;
  if ((request.scope != "ip" && request.scope != "mac") || argc < 4) return false;
  request.address = boost::algorithm::to_upper_copy(std::string(argv[3]));
  if (request.address.size() > kLongestAddress) return false;
  boost::algorithm::replace_all(request.address, "-", ":");
  return true;
}

void terminate_all_sessions(switch_stream_handle_t* stream) {
  std::vector<uuid> media_sessions;
  mod_globals->GetMSTable()->ListAllMSUuid(media_sessions);
  if (!media_sessions.empty()) {
    HangupAllMSCalls(media_sessions);
    stream->write_function(stream, "Hung up all %d calls!", static_cast<int>(media_sessions.size()));
  }
  mod_globals->GetMSTable()->EraseAllMSUuid();
  mod_globals->GetFSUuidTable()->EraseAllItems();
}

/// The legs leave the tables by themselves.
void terminate_sessions_on(const std::string& ip, switch_stream_handle_t* stream) {
  std::vector<uuid> media_sessions;
  mod_globals->GetMSTable()->ListAllMatchingMSUuid(media_sessions, ip.c_str());
  if (media_sessions.empty()) return;
  HangupAllMSCalls(media_sessions);
  stream->write_function(stream, "Hung up %d calls related to IP address %s!", static_cast<int>(media_sessions.size()),
                         ip.c_str());
}

void set_service_status(const std::string& ip, bool up, switch_stream_handle_t* stream) {
  mod_globals->GetMSCtrlFtry()->SetMediaServerStatus(ip.c_str(), up);
  stream->write_function(stream, "Media Server %s is put %s service!", ip.c_str(), up ? "into" : "out of");
}

/// A server is named by its first address.
void control_server(const ptree& server, const ControlRequest& request, switch_stream_handle_t* stream) {
  for (const ptree::value_type& column : server) {
    if (!iequals(column.first, "IP")) continue;
    const std::string& addresses = column.second.data();
    const std::string ip = addresses.substr(0, addresses.find(','));
    if (request.session_term) {
      terminate_sessions_on(ip, stream);
    } else {
      set_service_status(ip, request.up, stream);
    }
    return;
  }
}

}  // namespace

bool mod_media_server_exec_control_cmd(int argc, char** argv, switch_stream_handle_t* stream) {
  ControlRequest request;
  if (!parse_action(argv, stream, request) || !parse_selector(argc, argv, request)) return false;

  kvx_media_server::MSStatsReportAgent agent(mod_globals->GetMSCtrlFtry());
  const bool every_server = request.scope.empty() || request.scope == "all";
  if (every_server && request.session_term) {
    terminate_all_sessions(stream);
    return true;
  }
  const char* scope = every_server ? "all" : request.scope.c_str();
  const char* address = every_server ? nullptr : request.address.c_str();
  if (!agent.Init("hardware", scope, address, STATSFILTER)) return false;
  ptree tree;
  if (!agent.FetchReport(tree, false)) {
    stream->write_function(stream, "Report Error! Check your system!\n");
    return false;
  }
  const auto servers = tree.get_child_optional("stats.hardware.modules");
  if (!servers) return true;  // none has an address
  for (const ptree::value_type& server : *servers) control_server(server.second, request, stream);
  return true;
}

void HangupAllMSCalls(std::vector<uuid>& msuuids) {
  KVX_MS_LOG(SWITCH_LOG_NOTICE, "Hanging up all calls");
  std::vector<std::string> legs;
  for (const uuid& msuuid : msuuids) mod_globals->GetMSTable()->ListMediaSessionAllFSUuid(legs, msuuid);
  if (legs.empty()) return;
  KVX_MS_LOG(SWITCH_LOG_DEBUG, "********* Begin of switch_channel_hangup() *********");
  for (const std::string& fs_uuid : legs) {
    if (kvx_media_server::hang_up(fs_uuid)) switch_sleep(kBetweenHangups);
  }
  KVX_MS_LOG(SWITCH_LOG_DEBUG, "********** End of switch_channel_hangup() **********");
}
