// Loads that fail late, and those failures that no configuration brings about:
//
// - The path of the control library's file is null only when the pool could not copy it: the copy fails here.
// - The global tables are missing only when their logger does not initialise, which the module's own always does:
//   another logger takes its place here. (That there is no memory for them is not tried: `new` throws, which leaves the
//   load as any exception does.)
//
// Elsewhere: a media session that is listed without legs (listeners_test.cpp), a pair of codecs with a member missing
// and the codec numbers that are never registered (codec_registration_test.cpp), a command line that cannot be copied
// (control_memory_test.cpp).

#include <unistd.h>

#include "module/call_hooks.h"
#include "module/frame_fixture.h"
#include "support/process_inspection.h"

namespace module_test {

namespace {

using test_support::error_line;
using test_support::ScriptedOperation;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> codecs_of(const switch_loadable_module_interface_t* module) {
  std::vector<std::string> names;
  for (const auto* codec = module->codec_interface; codec != nullptr; codec = codec->next) {
    names.push_back(codec->interface_name);
  }
  return names;
}

}  // namespace

class FailedLoad : public ModuleFrame {
 protected:
  explicit FailedLoad(const test_support::ScriptedOptions& options = Options()) : ModuleFrame(options) {}
  static test_support::ScriptedOptions Options() {
    test_support::ScriptedOptions options;
    options.servers = 2;
    options.audio_codecs = codec_list({{"PCMU", "", ""}});
    return options;
  }
  void ExpectNothingStarted() {
    EXPECT_EQ(mod_globals, nullptr);
    EXPECT_EQ(media_server_is_available(), SWITCH_FALSE);
    // Codecs are registered before, commands after.
    EXPECT_THAT(codecs_of(module_->Interface()), ElementsAre("Kelvaro PCMU"));
    EXPECT_THAT(api_interfaces(module_->Interface()), IsEmpty());
  }
  /// A thread that was joined may be listed a moment longer.
  static void ExpectHoldings(const test_support::ProcessHoldings& before) {
    test_support::wait_until(std::chrono::seconds(5),
                             [&] { return test_support::inspect_process(getpid()) == before; });
    const test_support::ProcessHoldings now = test_support::inspect_process(getpid());
    EXPECT_EQ(now, before) << describe_difference(before, now);
  }
};

TEST_F(FailedLoad, PathThatCannotBeCopiedIsNoPath) {
  Configure();
  {
    const WhileTrue full(call_hooks().pool_is_full);
    Load();
  }
  EXPECT_EQ(module_->Status(), SWITCH_STATUS_TERM);
  EXPECT_EQ(module_->Interface(), nullptr);
  EXPECT_EQ(KELVARO_MEDIA_SERVER_CONFIG, nullptr);
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(error_line("CANNOT find config, stop the module!\n")));
}

TEST_F(FailedLoad, LoggerThatDoesNotInitialiseLeavesNoTablesAndNoLibrary) {
  Configure();
  {
    const WhileTrue fails(call_hooks().logger_fails);
    Load();
  }
  EXPECT_EQ(module_->Status(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(error_line("ERROR - Unable to create global tables!\n")));
  EXPECT_THAT(servers_.Operations(), IsEmpty());
  ExpectNothingStarted();
  ConfigureAndLoad();
  EXPECT_EQ(media_server_is_available(), SWITCH_TRUE);
}

TEST_F(FailedLoad, LibraryThatDoesNotStartIsGoneAgain) {
  const ConfigurationFile file(
      "jsr309.xml", control_library_configuration(codec_list({{"PCMU", "", ""}}),
                                                  "<media_server><driver>unheard_of</driver></media_server>"));
  Configure({{"config", file.Path()}});
  Load();
  EXPECT_EQ(module_->Status(), SWITCH_STATUS_FALSE);
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(error_line("ERROR - Unable to initialize MSControlFactory.\n")));
  ExpectNothingStarted();
}

TEST_F(FailedLoad, ServersThatOpenedBeforeAnotherDidNotAreShutDown) {
  Configure();
  servers_.FailOpen(1);
  const test_support::ProcessHoldings before = test_support::inspect_process(getpid());
  Load();
  EXPECT_EQ(module_->Status(), SWITCH_STATUS_FALSE);
  EXPECT_TRUE(log_.Has(error_line("ERROR - Unable to initialize MSControlFactory.\n")));
  EXPECT_EQ(servers_.Calls(ScriptedOperation::kOpen).size(), 2u);
  EXPECT_EQ(servers_.Calls(ScriptedOperation::kShutdown).size(), 1u);
  ExpectNothingStarted();
  ExpectHoldings(before);
}

/// With a media server in this process, which has threads and sockets of its own.
class FrameOverEmbeddedServer : public FailedLoad {
 protected:
  static constexpr char kServer[] =
      "<media_server><driver>embedded</driver><mac>02:00:00:00:01:01</mac><address>127.0.0.1</address>"
      "<capacity>10</capacity></media_server>";
};

TEST_F(FrameOverEmbeddedServer, FailedLoadLeavesNoThreadAndNoDescriptor) {
  const ConfigurationFile file(
      "jsr309.xml",
      control_library_configuration(codec_list({{"PCMU", "", ""}}),
                                    std::string(kServer) + "<media_server><driver>unheard_of</driver></media_server>"));
  Configure({{"config", file.Path()}});
  const test_support::ProcessHoldings before = test_support::inspect_process(getpid());
  Load();
  EXPECT_EQ(module_->Status(), SWITCH_STATUS_FALSE);
  ExpectNothingStarted();
  ExpectHoldings(before);
}

TEST_F(FrameOverEmbeddedServer, LoadAndShutdownLeaveNothingEither) {
  const test_support::ProcessHoldings before = test_support::inspect_process(getpid());
  const ConfigurationFile file("jsr309.xml", control_library_configuration(codec_list({{"PCMU", "", ""}}), kServer));
  Configure({{"config", file.Path()}});
  Load();
  ASSERT_EQ(module_->Status(), SWITCH_STATUS_SUCCESS);
  Leg leg;
  AddCall({&leg});
  EXPECT_GT(test_support::inspect_process(getpid()).threads, before.threads);
  EXPECT_EQ(module_->ShutDown(), SWITCH_STATUS_SUCCESS);
  ExpectHoldings(before);
}

}  // namespace module_test
