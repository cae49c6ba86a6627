#pragma once

#include <switch.h>

namespace kvx_switch {

/// Registers the commands below under the names without "_command", with their completions. Commands that are there
/// from an earlier call stay as they are.
void RegisterBuiltinCommands();

// API functions, to be called by the core's executor. `cmd` is what follows the command's name, or null. Each answers
// wrong use with "-USAGE: <name> <syntax>", a failure with "-ERR <reason>", success with its output or "+OK ...", and
// returns SUCCESS, since its answer says it all.

switch_status_t status_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t version_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t uptime_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t help_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t show_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t hupall_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t uuid_kill_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t uuid_exists_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t uuid_getvar_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t uuid_setvar_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t uuid_dump_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t uuid_transfer_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t uuid_hold_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t originate_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t load_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t unload_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t reload_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t reloadxml_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t loglevel_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t shutdown_command(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream);
switch_status_t console_complete_command(const char* cmd, switch_core_session_t* session,
                                         switch_stream_handle_t* stream);

// Syntaxes, as "show api", "help" and the -USAGE answers give them.
inline constexpr char kUptimeSyntax[] = "[us|ms|s|m|h|d]";
inline constexpr char kHelpSyntax[] = "[<command>]";
inline constexpr char kShowSyntax[] = "calls|channels|codecs|api|modules [count] [as json|xml]";
inline constexpr char kHupallSyntax[] = "[<cause>]";
inline constexpr char kUuidKillSyntax[] = "<uuid> [<cause>]";
inline constexpr char kUuidExistsSyntax[] = "<uuid>";
inline constexpr char kUuidGetvarSyntax[] = "<uuid> <variable>";
inline constexpr char kUuidSetvarSyntax[] = "<uuid> <variable> [<value>]";
inline constexpr char kUuidDumpSyntax[] = "<uuid> [plain|json]";
inline constexpr char kUuidTransferSyntax[] = "<uuid> [-bleg|-both] <extension> [<dialplan>] [<context>]";
inline constexpr char kUuidHoldSyntax[] = "[off|toggle] <uuid>";
inline constexpr char kOriginateSyntax[] =
    "<call url> <extension>|&<application>(<args>) [<dialplan>] [<context>] [<cid_name>] [<cid_num>] [<timeout>]";
inline constexpr char kModuleSyntax[] = "<module>";
inline constexpr char kLoglevelSyntax[] = "[console|alert|crit|err|warning|notice|info|debug|0-7]";
inline constexpr char kConsoleCompleteSyntax[] = "<line>";

}  // namespace kvx_switch
