#include "console/builtin_commands.h"

#include <cstring>
#include <string>

#include "console/show_tables.h"
#include "core/builtin_api.h"
#include "core/session.h"

namespace kvx_switch {
namespace {

struct BuiltinCommand {
  const char* name;
  const char* description;
  switch_api_function_t function;
  const char* syntax;
};

constexpr BuiltinCommand kCommands[] = {
    {"status", "show how the switch is", &status_command, ""},
    {"version", "show the version", &version_command, ""},
    {"uptime", "show how long the switch has been up", &uptime_command, kUptimeSyntax},
    {"help", "list the commands, or explain one", &help_command, kHelpSyntax},
    {"show", "list what is up or loaded", &show_command, kShowSyntax},
    {"hupall", "hang up all calls", &hupall_command, kHupallSyntax},
    {"uuid_kill", "hang up one leg", &uuid_kill_command, kUuidKillSyntax},
    {"uuid_exists", "tell whether there is such a leg", &uuid_exists_command, kUuidExistsSyntax},
    {"uuid_getvar", "show a channel variable of a leg", &uuid_getvar_command, kUuidGetvarSyntax},
    {"uuid_setvar", "set a channel variable of a leg, or remove it", &uuid_setvar_command, kUuidSetvarSyntax},
    {"uuid_dump", "show what is known of a leg", &uuid_dump_command, kUuidDumpSyntax},
    {"uuid_transfer", "send a leg to an extension", &uuid_transfer_command, kUuidTransferSyntax},
    {"uuid_hold", "put a leg's phone on hold, or take it back", &uuid_hold_command, kUuidHoldSyntax},
    {"originate", "call a phone, and route it when it answers", &originate_command, kOriginateSyntax},
    {"load", "load a module", &load_command, kModuleSyntax},
    {"unload", "unload a module that no call uses", &unload_command, kModuleSyntax},
    {"reload", "unload a module and load it again", &reload_command, kModuleSyntax},
    {"reloadxml", "read the configuration files again", &reloadxml_command, ""},
    {"loglevel", "show or set the log level", &loglevel_command, kLoglevelSyntax},
    {"shutdown", "hang up all calls and end the switch", &shutdown_command, ""},
    {"console_complete", "offer words for the end of a line", &console_complete_command, kConsoleCompleteSyntax},
};

constexpr const char* kCompletions[] = {
    "add status",
    "add version",
    "add uptime ::[us:ms:s:m:h:d",
    "add help",
    "add show ::[calls:channels:codecs:api:modules",
    "add hupall",
    "add uuid_kill ::kvx_uuids",
    "add show ::[calls:channels:codecs:api:modules ::[count:as",
    "add show ::[calls:channels:codecs:api:modules as ::[json:xml",
    "add uuid_exists ::kvx_uuids",
    "add uuid_getvar ::kvx_uuids",
    "add uuid_setvar ::kvx_uuids",
    "add uuid_dump ::kvx_uuids ::[plain:json",
    "add uuid_transfer ::kvx_uuids",
    "add uuid_transfer ::kvx_uuids ::[-bleg:-both",
    "add uuid_hold ::kvx_uuids",
    "add uuid_hold ::[off:toggle ::kvx_uuids",
    "add originate",
    "add load",
    "add unload ::kvx_modules",
    "add reload ::kvx_modules",
    "add reloadxml",
    "add loglevel ::[console:alert:crit:err:warning:notice:info:debug",
    "add shutdown",
};

bool is_builtin(const char* name) {
  switch_api_interface_t* api = switch_loadable_module_get_api_interface(name);
  const bool builtin = api != nullptr && std::strcmp(api->parent->module_name, "kvx_switch") == 0;
  UNPROTECT_INTERFACE(api);
  return builtin;
}

bool begins_with(const std::string& text, const char* start) {
  return start == nullptr || text.compare(0, std::strlen(start), start) == 0;
}

switch_status_t found_or_not(const switch_console_callback_match_t* matches) {
  return matches != nullptr ? SWITCH_STATUS_SUCCESS : SWITCH_STATUS_FALSE;
}

switch_status_t complete_uuid(const char*, const char* last_word, switch_console_callback_match_t** matches) {
  for (const SessionInfo& leg : ListSessions()) {
    if (begins_with(leg.uuid, last_word)) switch_console_push_match(matches, leg.uuid.c_str());
  }
  return found_or_not(*matches);
}

switch_status_t complete_module(const char*, const char* last_word, switch_console_callback_match_t** matches) {
  for (const auto& row : modules_table().rows) {
    if (begins_with(row.front(), last_word)) switch_console_push_match(matches, row.front().c_str());
  }
  return found_or_not(*matches);
}

}  // namespace

void RegisterBuiltinCommands() {
  if (is_builtin(kCommands[0].name)) return;
  for (const BuiltinCommand& command : kCommands) {
    RegisterBuiltinApi(command.name, command.description, command.function, command.syntax);
  }
  switch_console_add_complete_func("::kvx_uuids", &complete_uuid);
  switch_console_add_complete_func("::kvx_modules", &complete_module);
  for (const char* completion : kCompletions) switch_console_set_complete(completion);
}

}  // namespace kvx_switch
