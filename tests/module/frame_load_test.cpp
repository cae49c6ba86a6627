#include "build_paths.h"

#include <boost/property_tree/xml_parser.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "codecs.h"
#include "commands.h"
#include "kelvaro_media_server_logger.h"
#include "module/call_hooks.h"
#include "module/frame_fixture.h"

SWITCH_BEGIN_EXTERN_C
extern switch_loadable_module_function_table_t mod_kelvaro_media_server_module_interface;
SWITCH_MODULE_LOAD_FUNCTION(mod_kelvaro_media_server_load);
SWITCH_MODULE_SHUTDOWN_FUNCTION(mod_kelvaro_media_server_shutdown);
SWITCH_END_EXTERN_C

namespace kvx_switch {
// The public structure of a module has no place for an extension's interfaces; the switch keeps them beside it.
switch_media_server_interface_t* FirstMediaServer(switch_loadable_module_interface_t* interface);
}  // namespace kvx_switch

namespace module_test {

namespace {

using test_support::error_line;
using test_support::ScriptedOperation;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kStatsSyntax[] = "<usage|duration> <all|<ip <address>>|<mac <address>>>";
constexpr char kControlSyntax[] = "<service <up|down>>|<session term> <all|<ip <address>>|<mac <address>>>";
constexpr char kHardwareSyntax[] = "<all|<ip <address>>|<mac <address>>>";

struct Command {
  std::string name, description, syntax;
  switch_api_function_t function;
  bool operator==(const Command& other) const {
    return name == other.name && description == other.description && syntax == other.syntax &&
           function == other.function;
  }
};

std::vector<Command> commands_of(const switch_loadable_module_interface_t* module) {
  std::vector<Command> commands;
  for (const auto* api : api_interfaces(module)) {
    commands.push_back({api->interface_name, api->desc, api->syntax, api->function});
  }
  return commands;
}

std::vector<std::string> codecs_of(const switch_loadable_module_interface_t* module) {
  std::vector<std::string> names;
  for (const auto* codec = module->codec_interface; codec != nullptr; codec = codec->next) {
    names.push_back(codec->interface_name);
  }
  return names;
}

std::string completions(const std::string& line, const std::string& last_word) {
  CommandOutput output;
  switch_console_complete(line.c_str(), last_word.c_str(), nullptr, output.Stream(), nullptr);
  return output.Text();
}

}  // namespace

class ModuleLoad : public ModuleFrame {
 protected:
  ModuleLoad() : ModuleFrame(Options()) {}
  static test_support::ScriptedOptions Options() {
    test_support::ScriptedOptions options;
    options.audio_codecs = codec_list({{"PCMA", "", ""}, {"PCMU", "", ""}});
    return options;
  }
};

TEST_F(ModuleLoad, RegistersEightCommandsInOrder) {
  ConfigureAndLoad();
  EXPECT_THAT(
      commands_of(module_->Interface()),
      ElementsAre(
          Command{"kvrms_stats", "Kelvaro Media Server Statistics Report", kStatsSyntax, kvrms_stats_function},
          Command{"kvrms_stats_xml", "Kelvaro Media Server Statistics Report", kStatsSyntax, kvrms_stats_xml_function},
          Command{"ms_count_show", "Kelvaro Media Server Statistics Report", kStatsSyntax, ms_count_show_function},
          Command{"kvrms_control", "Kelvaro Media Server Control Command", kControlSyntax, kvrms_control_function},
          Command{"kvrms_control_xml", "Kelvaro Media Server Control Command", kControlSyntax,
                  kvrms_control_xml_function},
          Command{"kvrms_list_hardware", "Kelvaro Media Server List Hardware Command", kHardwareSyntax,
                  kvrms_listhw_function},
          Command{"kvrms_list_hardware_xml", "Kelvaro Media Server List Hardware Command", kHardwareSyntax,
                  kvrms_listhw_xml_function},
          Command{"kvrms_rtcp_stats", "Kelvaro Media Server RTCP Statistics Command", "<all|<uuid>>",
                  kvrms_rtcp_stats_function}));
}

TEST(ModuleTable, HasLoadAndShutdownAndNothingThatRuns) {
  EXPECT_EQ(mod_kelvaro_media_server_module_interface.switch_api_version, SWITCH_API_VERSION);
  EXPECT_EQ(mod_kelvaro_media_server_module_interface.load, mod_kelvaro_media_server_load);
  EXPECT_EQ(mod_kelvaro_media_server_module_interface.shutdown, mod_kelvaro_media_server_shutdown);
  EXPECT_EQ(mod_kelvaro_media_server_module_interface.runtime, nullptr);
  EXPECT_EQ(mod_kelvaro_media_server_module_interface.flags, static_cast<switch_module_flag_t>(SMODF_NONE));
}

TEST_F(ModuleLoad, RegistersEachCompletionRightAfterItsCommands) {
  std::vector<std::string> steps;
  const WhileHooked interfaces(call_hooks().interface_made, [&steps](switch_module_interface_name_t kind) {
    if (kind == SWITCH_API_INTERFACE) steps.push_back("command");
  });
  const WhileHooked completions(call_hooks().completion, [&steps](const std::string& text) { steps.push_back(text); });
  ConfigureAndLoad();
  EXPECT_THAT(steps, ElementsAre("command", "command", "add kvrms_stats usage", "add kvrms_stats duration", "command",
                                 "command", "command", "add kvrms_control service ::[up:down",
                                 "add kvrms_control session term", "command", "command", "command"));
}

TEST_F(ModuleLoad, RegistersCodecsAndInterfaceBeforeTheLibraryStartsAndCommandsAfter) {
  std::vector<std::string> steps;
  const WhileHooked interfaces(call_hooks().interface_made, [&](switch_module_interface_name_t kind) {
    const bool started = !servers_.Calls(ScriptedOperation::kOpen).empty();
    EXPECT_EQ(mod_globals != nullptr, started);
    const std::string step = (started ? "after: " : "before: ") + std::to_string(kind);
    if (steps.empty() || steps.back() != step) steps.push_back(step);
  });
  ConfigureAndLoad();
  EXPECT_THAT(steps, ElementsAre("before: " + std::to_string(SWITCH_CODEC_INTERFACE),
                                 "before: " + std::to_string(SWITCH_MEDIA_SERVER_INTERFACE),
                                 "after: " + std::to_string(SWITCH_API_INTERFACE)));
}

TEST_F(ModuleLoad, RegistersCompletions) {
  ConfigureAndLoad();
  EXPECT_THAT(completions("kvrms_stats ", ""),
              testing::AllOf(testing::HasSubstr("usage"), testing::HasSubstr("duration")));
  EXPECT_THAT(completions("kvrms_control ", ""),
              testing::AllOf(testing::HasSubstr("service"), testing::HasSubstr("session")));
  EXPECT_THAT(completions("kvrms_control service ", ""),
              testing::AllOf(testing::HasSubstr("up"), testing::HasSubstr("down")));
  EXPECT_THAT(completions("kvrms_control session ", ""), testing::HasSubstr("term"));
}

TEST_F(ModuleLoad, RegistersTheMediaServerInterface) {
  ConfigureAndLoad();
  EXPECT_STREQ(module_->Interface()->module_name, "mod_kelvaro_media_server");
  const switch_media_server_interface_t* media_server = kvx_switch::FirstMediaServer(module_->Interface());
  ASSERT_NE(media_server, nullptr);
  EXPECT_STREQ(media_server->interface_name, "kelvaro_media_server");
  EXPECT_EQ(media_server->create, channel_create);
  EXPECT_EQ(media_server->destroy, channel_destroy);
  EXPECT_EQ(media_server->replace, nullptr);
  EXPECT_EQ(media_server->get_media, channel_get_media);
  EXPECT_EQ(media_server->bridge, channel_bridge);
  EXPECT_EQ(media_server->unbridge, channel_unbridge);
  EXPECT_EQ(media_server->set_media, channel_set_media);
  EXPECT_EQ(media_server->is_available, media_server_is_available);
  EXPECT_EQ(media_server->next, nullptr);
}

TEST_F(ModuleLoad, RegistersTheConfiguredCodecs) {
  ConfigureAndLoad();
  EXPECT_THAT(codecs_of(module_->Interface()), ElementsAre("Kelvaro PCMU", "Kelvaro PCMA"));
}

TEST_F(ModuleLoad, MakesTheSingletonWithEverythingInIt) {
  ConfigureAndLoad();
  ASSERT_NE(mod_globals, nullptr);
  EXPECT_TRUE(mod_globals->GetMSCtrlFtry());
  EXPECT_TRUE(mod_globals->GetMSTable());
  EXPECT_TRUE(mod_globals->GetFSUuidTable());
  EXPECT_NE(dynamic_cast<kvx_media_server::KvrMediaServerLogger*>(mod_globals->GetLogger().get()), nullptr);
  const boost::uuids::uuid drawn = mod_globals->GetUuidGen()();
  EXPECT_EQ(drawn.version(), boost::uuids::uuid::version_random_number_based);
}

TEST_F(ModuleLoad, WithoutItsConfigurationIsRefused) {
  Load();
  EXPECT_EQ(module_->Status(), SWITCH_STATUS_TERM);
  EXPECT_EQ(module_->Interface(), nullptr);
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(error_line("Open of kelvaro_media_server.conf failed\n")));
}

TEST_F(ModuleLoad, WithRelativePathIsRefusedSilently) {
  Configure({{"config", "jsr309.xml"}});
  Load();
  EXPECT_EQ(module_->Status(), SWITCH_STATUS_TERM);
  EXPECT_EQ(module_->Interface(), nullptr);
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(ModuleLoad, WithoutControlLibraryFileIsRefused) {
  Configure({});
  Load();
  EXPECT_EQ(module_->Status(), SWITCH_STATUS_TERM);
  EXPECT_EQ(module_->Interface(), nullptr);
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(error_line("Cannot find config file \n")));
}

TEST_F(ModuleLoad, WithoutSettingsTakesTheDefaultsAndFindsNoControlLibraryFile) {
  const ConfigurationFile file("autoload_configs/kelvaro_media_server.conf.xml",
                               "<configuration name=\"kelvaro_media_server.conf\"/>");
  Load();
  EXPECT_EQ(module_->Status(), SWITCH_STATUS_TERM);
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(error_line("Cannot find config file \n")));
}

TEST_F(ModuleLoad, LinesCarryTheModulesFileFunctionAndLine) {
  Load();
  const std::vector<test_support::LogLine> lines = log_.ModuleLines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].file, "module_config.cpp");
  EXPECT_EQ(lines[0].function, "read_module_configuration");
  EXPECT_GT(lines[0].line, 0u);
  EXPECT_EQ(lines[0].channel, SWITCH_CHANNEL_ID_LOG);
}

TEST_F(ModuleLoad, MalformedControlLibraryFileLeavesTheLoadAsAnException) {
  const ConfigurationFile file("jsr309.xml", "<jsr309><media></jsr309>");
  Configure({{"config", file.Path()}});
  EXPECT_THROW(Load(), boost::property_tree::xml_parser_error);
  EXPECT_EQ(mod_globals, nullptr);
}

TEST_F(ModuleLoad, AfterAFailedOneSucceeds) {
  Load();
  EXPECT_EQ(module_->Status(), SWITCH_STATUS_TERM);
  ConfigureAndLoad();
  EXPECT_EQ(media_server_is_available(), SWITCH_TRUE);
}

TEST_F(ModuleLoad, TraceFlagReachesTheLogger) {
  Configure({{"config", servers_.config_path()}, {"enable_jsr309_trace", "TRUE"}});
  Load();
  ASSERT_EQ(module_->Status(), SWITCH_STATUS_SUCCESS);
  log_.Clear();
  mod_globals->GetLogger()->Log(kelvaro::TRACE_LOG_LEVEL, "traced", "library.cpp", 1);
  const std::vector<test_support::LogLine> lines = log_.LinesOf({"library.cpp"});
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, SWITCH_LOG_INFO);
}

TEST_F(ModuleLoad, StartsFromDefaultsEachTime) {
  ConfigureAndLoad();
  EXPECT_NE(STATSFILTER, nullptr);
  EXPECT_EQ(get_codec_from_id(0)->to_load, 1);
  module_.reset();
  Configure({});
  Load();
  EXPECT_EQ(module_->Status(), SWITCH_STATUS_TERM);
  EXPECT_STREQ(KELVARO_MEDIA_SERVER_CONFIG, "");
  EXPECT_EQ(STATSFILTER, nullptr);
  EXPECT_EQ(get_codec_from_id(0)->to_load, 0);
}

TEST_F(ModuleLoad, UuidsAreDrawnByManyThreadsWithoutRepeating) {
  ConfigureAndLoad();
  constexpr int kThreads = 8, kEach = 2000;
  std::vector<std::vector<boost::uuids::uuid>> drawn(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&drawn, i] {
      for (int n = 0; n < kEach; ++n) drawn[i].push_back(mod_globals->DrawUuid());
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<boost::uuids::uuid> all;
  for (const auto& some : drawn) all.insert(some.begin(), some.end());
  EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kEach));
}

TEST(ModGlobal, IsOneAndConfiguredAnewByEveryCall) {
  test_support::LogCapture log;
  kvx_media_server::ModGlobal* const first = kvx_media_server::ModGlobal::Instance(false);
  ASSERT_NE(first, nullptr);
  const auto factory = first->GetMSCtrlFtry();
  const auto sessions = first->GetMSTable();
  const auto legs = first->GetFSUuidTable();
  legs->RegisterMediaSessionUuid("leg", first->DrawUuid());
  EXPECT_EQ(kvx_media_server::ModGlobal::Instance(true), first);
  EXPECT_NE(first->GetMSCtrlFtry(), factory);
  EXPECT_NE(first->GetMSTable(), sessions);
  EXPECT_NE(first->GetFSUuidTable(), legs);
  EXPECT_FALSE(first->GetFSUuidTable()->IsFSUuidAlreadyThere("leg"));
  first->GetLogger()->Log(kelvaro::DEBUG_LOG_LEVEL, "traced now", "library.cpp", 1);
  const std::vector<test_support::LogLine> lines = log.LinesOf({"library.cpp"});
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, SWITCH_LOG_INFO);
  EXPECT_FALSE(first->GetMSCtrlFtry()->IsMediaServerAvailable()) << "the factory is initialised by the load alone";
  kvx_media_server::ModGlobal::Destroy();
}

TEST(ModuleSources, AreAllListedInTheMakefileOfASwitchTree) {
  const std::filesystem::path directory =
      std::filesystem::path(KVX_SOURCE_DIR) / "src/mod/media_servers/mod_kelvaro_media_server";
  std::set<std::string> there, listed;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    if (entry.path().extension() == ".cpp") there.insert(entry.path().filename());
  }
  std::ifstream makefile(directory / "Makefile.am");
  for (std::string word; makefile >> word;) {
    if (std::filesystem::path(word).extension() == ".cpp") listed.insert(word);
  }
  EXPECT_FALSE(there.empty());
  EXPECT_EQ(listed, there);
}

}  // namespace module_test
