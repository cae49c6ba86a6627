#include "commands.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/tokenizer.hpp>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <sstream>

#include "mod_kelvaro_media_server.h"

#define KVX_RULE "--------------------------------------------------------------------------------\n"
#define KVX_SELECTOR "<all|<ip <address>>|<mac <address>>>"

namespace {

constexpr char kStatsDescription[] = "Kelvaro Media Server Statistics Report";
constexpr char kControlDescription[] = "Kelvaro Media Server Control Command";
constexpr char kHardwareDescription[] = "Kelvaro Media Server List Hardware Command";
constexpr char kRtcpStatsDescription[] = "Kelvaro Media Server RTCP Statistics Command";

constexpr char kStatsSyntax[] = "<usage|duration> " KVX_SELECTOR;
constexpr char kControlSyntax[] = "<service <up|down>>|<session term> " KVX_SELECTOR;
constexpr char kHardwareSyntax[] = KVX_SELECTOR;
constexpr char kRtcpStatsSyntax[] = "<all|<uuid>>";

constexpr char kStatsHelp[] = "SYNTAX:\n" KVX_RULE
                              "kvrms_stats usage\n"
                              "            usage    " KVX_SELECTOR
                              "\n\n"
                              "kvrms_stats duration\n"
                              "            duration " KVX_SELECTOR "\n" KVX_RULE;
constexpr char kStatsXmlHelp[] = "SYNTAX:\n" KVX_RULE
                                 "kvrms_stats_xml usage\n"
                                 "                usage    " KVX_SELECTOR
                                 "\n\n"
                                 "kvrms_stats_xml duration\n"
                                 "                duration " KVX_SELECTOR "\n" KVX_RULE;
constexpr char kControlHelp[] = "SYNTAX:\n" KVX_RULE "kvrms_control service up " KVX_SELECTOR
                                "\n"
                                "                      down " KVX_SELECTOR
                                "\n\n"
                                "kvrms_control session term all\n" KVX_RULE;
constexpr char kControlXmlHelp[] = "SYNTAX:\n" KVX_RULE "kvrms_control_xml service up " KVX_SELECTOR
                                   "\n"
                                   "                          down " KVX_SELECTOR
                                   "\n\n"
                                   "kvrms_control_xml session term all\n" KVX_RULE;
constexpr char kHardwareHelp[] = "SYNTAX:\n" KVX_RULE "kvrms_list_hardware " KVX_SELECTOR "\n\n" KVX_RULE;
constexpr char kHardwareXmlHelp[] = "SYNTAX:\n" KVX_RULE "kvrms_list_hardware_xml " KVX_SELECTOR "\n\n" KVX_RULE;

constexpr unsigned int kMaxWords = 500;

/// The border of every command: an exception becomes a log line and a failed command. Most come from the tree library
/// and name the file, or the path in the tree, that is at fault.
template <typename Body>
bool run_command(const char* command, Body body) {
  try {
    return body();
  } catch (const std::exception& error) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s failed: %s (statistics filter: %s)\n", command,
                      error.what(), STATSFILTER == nullptr ? "none" : STATSFILTER);
  } catch (...) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s failed: unknown exception\n", command);
  }
  return false;
}

switch_status_t run_report(const char* command, const char* help, const char* cmd, const char* prefix, bool xml_format,
                           switch_stream_handle_t* stream) {
  if (!run_command(command, [&] { return kvrms_generic_function(cmd, prefix, xml_format, stream); })) {
    stream->write_function(stream, "%s", help);
  }
  return SWITCH_STATUS_SUCCESS;
}

bool exec_control_words(char* line, switch_stream_handle_t* stream) {
  char* argv[kMaxWords] = {};
  const unsigned int argc = switch_separate_string(line, ' ', argv, kMaxWords);
  if (argc < 2 || argv[0] == nullptr) return false;
  return mod_media_server_exec_control_cmd(static_cast<int>(argc), argv, stream);
}

switch_status_t run_control(const char* command, const char* help, const char* cmd, switch_stream_handle_t* stream) {
  if (zstr(cmd)) {
    stream->write_function(stream, "%s", help);
    return SWITCH_STATUS_SUCCESS;
  }
  const std::unique_ptr<char, decltype(&std::free)> line(strdup(cmd), &std::free);
  if (!line) return SWITCH_STATUS_MEMERR;
  if (!run_command(command, [&] { return exec_control_words(line.get(), stream); })) {
    stream->write_function(stream, "%s", help);
  }
  return SWITCH_STATUS_SUCCESS;
}

}  // namespace

void register_commands(switch_loadable_module_interface_t** module_interface) {
  switch_api_interface_t* api = nullptr;
  SWITCH_ADD_API(api, "kvrms_stats", kStatsDescription, kvrms_stats_function, kStatsSyntax);
  SWITCH_ADD_API(api, "kvrms_stats_xml", kStatsDescription, kvrms_stats_xml_function, kStatsSyntax);
  switch_console_set_complete("add kvrms_stats usage");
  switch_console_set_complete("add kvrms_stats duration");
  SWITCH_ADD_API(api, "ms_count_show", kStatsDescription, ms_count_show_function, kStatsSyntax);
  SWITCH_ADD_API(api, "kvrms_control", kControlDescription, kvrms_control_function, kControlSyntax);
  SWITCH_ADD_API(api, "kvrms_control_xml", kControlDescription, kvrms_control_xml_function, kControlSyntax);
  switch_console_set_complete("add kvrms_control service ::[up:down");
  switch_console_set_complete("add kvrms_control session term");
  SWITCH_ADD_API(api, "kvrms_list_hardware", kHardwareDescription, kvrms_listhw_function, kHardwareSyntax);
  SWITCH_ADD_API(api, "kvrms_list_hardware_xml", kHardwareDescription, kvrms_listhw_xml_function, kHardwareSyntax);
  SWITCH_ADD_API(api, "kvrms_rtcp_stats", kRtcpStatsDescription, kvrms_rtcp_stats_function, kRtcpStatsSyntax);
}

switch_status_t kvrms_stats_function(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  return run_report("kvrms_stats", kStatsHelp, cmd, nullptr, false, stream);
}

switch_status_t kvrms_stats_xml_function(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  return run_report("kvrms_stats_xml", kStatsXmlHelp, cmd, nullptr, true, stream);
}

switch_status_t kvrms_listhw_function(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  return run_report("kvrms_list_hardware", kHardwareHelp, cmd, "hardware", false, stream);
}

switch_status_t kvrms_listhw_xml_function(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  return run_report("kvrms_list_hardware_xml", kHardwareXmlHelp, cmd, "hardware", true, stream);
}

switch_status_t kvrms_control_function(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  return run_control("kvrms_control", kControlHelp, cmd, stream);
}

switch_status_t kvrms_control_xml_function(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  return run_control("kvrms_control_xml", kControlXmlHelp, cmd, stream);
}

switch_status_t ms_count_show_function(const char*, switch_core_session_t*, switch_stream_handle_t* stream) {
  run_command("ms_count_show", [stream] {
    const int count = static_cast<int>(mod_globals->GetMSTable()->CountMediaSessionAllFSUuid());
    stream->write_function(stream, "Totally %d MSs now!\n", count);
    return true;
  });
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t kvrms_rtcp_stats_function(const char*, switch_core_session_t*, switch_stream_handle_t*) {
  run_command("kvrms_rtcp_stats", [] {
    std::vector<boost::uuids::uuid> media_sessions;
    return mod_globals->GetMSTable()->ListAllMSUuid(media_sessions);
  });
  return SWITCH_STATUS_SUCCESS;
}

bool tokenize_arguments(const char* args, std::vector<std::string>& tokenized_args) {
  std::string line(switch_str_nil(args));
  if (line.empty()) return false;
  boost::algorithm::to_lower(line);
  const boost::tokenizer<boost::char_separator<char>> words(line, boost::char_separator<char>(" "));
  tokenized_args.insert(tokenized_args.end(), words.begin(), words.end());
  return !tokenized_args.empty();
}

bool kvrms_generic_function(const char* cmd, const char* prefix, bool xml_format, switch_stream_handle_t* stream) {
  std::vector<std::string> words;
  if (zstr(cmd) || !tokenize_arguments(cmd, words)) return false;
  if (prefix != nullptr) words.insert(words.begin(), prefix);
  std::ostringstream report;
  if (!mod_media_server_get_report(words, report, xml_format)) return false;
  stream->write_function(stream, "%s", report.str().c_str());
  return true;
}
