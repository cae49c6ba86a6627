#include "console_switch.h"

#include "build_paths.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "console/builtin_commands.h"
#include "core/session.h"

namespace console_test {
namespace {

using kvx_switch::CallerData;
using kvx_switch::LegProgram;

constexpr std::chrono::seconds kPatience{10};

std::mutex cause_mutex;
std::string last_cause;  // guarded by cause_mutex

class WaitingLeg : public LegProgram {
 public:
  void Run(switch_core_session_t* session) override {
    kvx_switch::ServeUntil(session, std::chrono::steady_clock::now() + std::chrono::minutes(1), [] { return false; });
    const std::lock_guard<std::mutex> lock(cause_mutex);
    last_cause = switch_channel_cause2str(switch_channel_get_cause(switch_core_session_get_channel(session)));
  }
};

void replace(char*& text, const std::string& value) {
  std::free(text);
  text = strdup(value.c_str());
}

void write_file(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path) << text;
}

}  // namespace

ConsoleSwitch::ConsoleSwitch() = default;
ConsoleSwitch::~ConsoleSwitch() = default;

void ConsoleSwitch::SetUp() {
  WriteConfiguration("switch.conf",
                     "<configuration name=\"switch.conf\"><settings><param name=\"max-sessions\" value=\"77\"/>"
                     "<param name=\"sessions-per-second\" value=\"55\"/>"
                     "</settings></configuration>");
  WriteConfiguration("modules.conf", "<configuration name=\"modules.conf\"><modules/></configuration>");
  WriteEventSocketConfiguration({{"listen-port", "0"}, {"password", "kelvaro"}});
  replace(SWITCH_GLOBAL_dirs.conf_dir, (directory_.Path() / "conf").string());
  replace(SWITCH_GLOBAL_dirs.mod_dir, KVX_BUILD_DIR "/tests/switch/mod");
  switch_core_set_globals();
  const char* error = nullptr;
  ASSERT_EQ(switch_core_init(0, SWITCH_FALSE, &error), SWITCH_STATUS_SUCCESS) << error;
  kvx_switch::RegisterBuiltinCommands();
}

void ConsoleSwitch::TearDown() {
  switch_core_destroy();
}

void ConsoleSwitch::WriteConfiguration(const std::string& name, const std::string& text) {
  write_file(ConfigurationPath(name), text);
}

void ConsoleSwitch::WriteEventSocketConfiguration(const std::map<std::string, std::string>& parameters) {
  std::string text = "<configuration name=\"event_socket.conf\">\n<settings>\n";
  for (const auto& [name, value] : parameters) {
    text += "<param name=\"" + name + "\" value=\"" + value + "\"/>\n";
  }
  WriteConfiguration("event_socket.conf", text + "</settings>\n</configuration>\n");
}

std::string ConsoleSwitch::ConfigurationPath(const std::string& name) const {
  return (directory_.Path() / "conf" / "autoload_configs" / (name + ".xml")).string();
}

std::string ConsoleSwitch::Run(const std::string& command, const std::string& arguments) {
  switch_stream_handle_t stream;
  SWITCH_STANDARD_STREAM(stream);
  const switch_status_t status =
      switch_api_execute(command.c_str(), arguments.empty() ? nullptr : arguments.c_str(), nullptr, &stream);
  std::string text = static_cast<const char*>(stream.data);
  std::free(stream.data);
  EXPECT_EQ(status, SWITCH_STATUS_SUCCESS) << command << " " << arguments;
  return text;
}

std::string ConsoleSwitch::AddLeg(switch_call_direction_t direction, const std::string& name,
                                  const std::string& partner) {
  switch_core_session_t* session = kvx_switch::RequestSession(direction, name);
  if (session == nullptr) return "";
  const std::string uuid = switch_core_session_get_uuid(session);
  CallerData caller;
  caller.caller_id_name = "Anna, \"A\"";
  caller.caller_id_number = "1000";
  caller.destination_number = "2000";
  kvx_switch::SetCallerData(session, caller);
  if (!partner.empty()) {
    switch_channel_set_variable(switch_core_session_get_channel(session), "signal_bond", partner.c_str());
  }
  EXPECT_EQ(kvx_switch::LaunchSession(session, std::make_shared<WaitingLeg>()), SWITCH_STATUS_SUCCESS);
  return uuid;
}

bool ConsoleSwitch::WaitForNoLegs() {
  return kvx_switch::WaitForNoSessions(std::chrono::duration_cast<std::chrono::milliseconds>(kPatience));
}

std::string ConsoleSwitch::CauseOfEndedLeg() {
  if (!WaitForNoLegs()) return "still up";
  const std::lock_guard<std::mutex> lock(cause_mutex);
  return last_cause;
}

}  // namespace console_test
