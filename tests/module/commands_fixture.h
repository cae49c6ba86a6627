#pragma once

#include <fstream>
#include <string>

#include "commands.h"
#include "module/frame_fixture.h"

namespace module_test {

// Typed as an operator reads them; nothing here is put together from parts.
constexpr char kStatsHelp[] =
    "SYNTAX:\n"
    "--------------------------------------------------------------------------------\n"
    "kvrms_stats usage\n"
    "            usage    <all|<ip <address>>|<mac <address>>>\n"
    "\n"
    "kvrms_stats duration\n"
    "            duration <all|<ip <address>>|<mac <address>>>\n"
    "--------------------------------------------------------------------------------\n";
constexpr char kStatsXmlHelp[] =
    "SYNTAX:\n"
    "--------------------------------------------------------------------------------\n"
    "kvrms_stats_xml usage\n"
    "                usage    <all|<ip <address>>|<mac <address>>>\n"
    "\n"
    "kvrms_stats_xml duration\n"
    "                duration <all|<ip <address>>|<mac <address>>>\n"
    "--------------------------------------------------------------------------------\n";
constexpr char kHardwareHelp[] =
    "SYNTAX:\n"
    "--------------------------------------------------------------------------------\n"
    "kvrms_list_hardware <all|<ip <address>>|<mac <address>>>\n"
    "\n"
    "--------------------------------------------------------------------------------\n";
constexpr char kHardwareXmlHelp[] =
    "SYNTAX:\n"
    "--------------------------------------------------------------------------------\n"
    "kvrms_list_hardware_xml <all|<ip <address>>|<mac <address>>>\n"
    "\n"
    "--------------------------------------------------------------------------------\n";
constexpr char kControlHelp[] =
    "SYNTAX:\n"
    "--------------------------------------------------------------------------------\n"
    "kvrms_control service up <all|<ip <address>>|<mac <address>>>\n"
    "                      down <all|<ip <address>>|<mac <address>>>\n"
    "\n"
    "kvrms_control session term all\n"
    "--------------------------------------------------------------------------------\n";
constexpr char kControlXmlHelp[] =
    "SYNTAX:\n"
    "--------------------------------------------------------------------------------\n"
    "kvrms_control_xml service up <all|<ip <address>>|<mac <address>>>\n"
    "                          down <all|<ip <address>>|<mac <address>>>\n"
    "\n"
    "kvrms_control_xml session term all\n"
    "--------------------------------------------------------------------------------\n";
constexpr char kXmlDeclaration[] = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>";
constexpr char kReportError[] = "Report Error! Check your system!\n";

/// The commands of the loaded module, on two media servers for 8 sessions each.
class CommandFrame : public ModuleFrame {
 protected:
  explicit CommandFrame(const test_support::ScriptedOptions& options = TwoServers()) : ModuleFrame(options) {}

  static test_support::ScriptedOptions Servers(size_t count) {
    test_support::ScriptedOptions options;
    options.servers = count;
    options.capacity = 8;
    return options;
  }
  static test_support::ScriptedOptions TwoServers() { return Servers(2); }

  void SetUp() override {
    ConfigureAndLoad();
    log_.Clear();
  }
  /// Puts another statistics filter in place of the usual one.
  static void Filter(const std::string& text) {
    std::ofstream file(STATSFILTER, std::ios::binary);
    file << text;
    ASSERT_TRUE(file.flush());
  }
  static std::string Run(switch_api_function_t function, const char* words) {
    CommandOutput output;
    EXPECT_EQ(function(words, nullptr, output.Stream()), SWITCH_STATUS_SUCCESS);
    return output.Text();
  }
  static std::string Stats(const char* words) { return Run(kvrms_stats_function, words); }
  static std::string StatsXml(const char* words) { return Run(kvrms_stats_xml_function, words); }
  static std::string Hardware(const char* words) { return Run(kvrms_listhw_function, words); }
  static std::string HardwareXml(const char* words) { return Run(kvrms_listhw_xml_function, words); }
  static std::string Control(const char* words) { return Run(kvrms_control_function, words); }
  static std::string ControlXml(const char* words) { return Run(kvrms_control_xml_function, words); }
};

}  // namespace module_test
