#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "console_switch.h"
#include "core/media_server.h"

namespace {

using console_test::ConsoleSwitch;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class ConsoleModuleCommands : public ConsoleSwitch {};

TEST_F(ConsoleModuleCommands, LoadBringsAModuleInAndUnloadTakesItOut) {
  EXPECT_EQ(Run("load", "mod_console_sample"), "+OK module loaded\n");
  EXPECT_EQ(Run("console_sample", "text"), "sample text\n");
  EXPECT_THAT(Run("show", "modules"), AllOf(StartsWith("name,filename\nmod_console_sample,"),
                                            EndsWith("/mod_console_sample.so\n\n1 total.\n")));
  EXPECT_EQ(Run("show", "codecs"), "type,name,ikey\ncodec,Sample codec,mod_console_sample\n\n1 total.\n");
  EXPECT_THAT(Run("show", "api"), HasSubstr("\nconsole_sample,say sample,[<words>],mod_console_sample\n"));
  EXPECT_THAT(Run("status"), HasSubstr("\nmedia server available\n"));

  EXPECT_EQ(Run("unload", "mod_console_sample"), "+OK module unloaded\n");
  EXPECT_EQ(Run("show", "modules"), "\n0 total.\n");
  EXPECT_EQ(Run("show", "codecs"), "\n0 total.\n");
  EXPECT_THAT(Run("status"), HasSubstr("\nmedia server not available\n"));
}

TEST_F(ConsoleModuleCommands, LoadTellsWhyItRefuses) {
  EXPECT_THAT(Run("load", "mod_that_is_not_there"), AllOf(StartsWith("-ERR ["), HasSubstr("mod_that_is_not_there"),
                                                          HasSubstr("No such file"), EndsWith("]\n")));
  Run("load", "mod_console_sample");
  EXPECT_EQ(Run("load", "mod_console_sample"), "-ERR [Module mod_console_sample is already loaded]\n");
}

TEST_F(ConsoleModuleCommands, LoadTakesModulesFromTheModuleDirectoryOnly) {
  EXPECT_EQ(Run("load", "/tmp/mod_console_sample.so"), "-ERR \"/tmp/mod_console_sample.so\" is no module name\n");
  EXPECT_EQ(Run("reload", "../mod_console_sample"), "-ERR \"../mod_console_sample\" is no module name\n");
}

TEST_F(ConsoleModuleCommands, UnloadTellsThatAModuleIsNotLoaded) {
  EXPECT_EQ(Run("unload", "mod_console_sample"), "-ERR module \"mod_console_sample\" is not loaded\n");
}

TEST_F(ConsoleModuleCommands, UnloadRefusesWhileCallsUseTheModuleAndCountsThem) {
  Run("load", "mod_console_sample");
  switch_media_server_interface_t* media_server = kvx_switch::AcquireMediaServer();
  ASSERT_NE(media_server, nullptr);
  const std::string refusal = "-ERR [Module mod_console_sample cannot be unloaded: the media server sample is in use]";
  EXPECT_EQ(Run("unload", "mod_console_sample"), refusal + "\n");
  AddLeg();
  EXPECT_EQ(Run("unload", "mod_console_sample"), refusal + "; 1 session is up\n");
  AddLeg();
  EXPECT_EQ(Run("reload", "mod_console_sample"), refusal + "; 2 sessions are up\n");
  EXPECT_EQ(Run("console_sample"), "sample \n");

  kvx_switch::ReleaseMediaServer(media_server);
  EXPECT_EQ(Run("unload", "mod_console_sample"), "+OK module unloaded\n");
}

TEST_F(ConsoleModuleCommands, ReloadLoadsAgainOrForTheFirstTime) {
  EXPECT_EQ(Run("reload", "mod_console_sample"), "+OK module loaded\n");
  EXPECT_EQ(Run("reload", "mod_console_sample"), "+OK module reloaded\n");
  EXPECT_EQ(Run("console_sample"), "sample \n");
}

TEST_F(ConsoleModuleCommands, ReloadTellsThatTheModuleIsGoneWhenItDoesNotLoadAgain) {
  const std::filesystem::path modules = directory_.Path() / "mod";
  std::filesystem::create_directory(modules);
  const std::filesystem::path module = modules / "mod_console_sample.so";
  std::filesystem::copy(std::filesystem::path(SWITCH_GLOBAL_dirs.mod_dir) / "mod_console_sample.so", module);
  std::free(SWITCH_GLOBAL_dirs.mod_dir);
  SWITCH_GLOBAL_dirs.mod_dir = strdup(modules.c_str());
  ASSERT_EQ(Run("load", "mod_console_sample"), "+OK module loaded\n");
  std::filesystem::remove(module);
  EXPECT_THAT(Run("reload", "mod_console_sample"),
              AllOf(StartsWith("-ERR ["), EndsWith("]; the module was unloaded and is not loaded now\n")));
  EXPECT_EQ(Run("show", "modules"), "\n0 total.\n");
}

TEST_F(ConsoleModuleCommands, WantOneModule) {
  for (const char* command : {"load", "unload", "reload"}) {
    const std::string usage = std::string("-USAGE: ") + command + " <module>\n";
    EXPECT_EQ(Run(command), usage);
    EXPECT_EQ(Run(command, "a b"), usage);
  }
}

TEST_F(ConsoleModuleCommands, CompletionOffersLoadedModules) {
  Run("load", "mod_console_sample");
  EXPECT_EQ(Run("console_complete", "unload mod_c"), "mod_console_sample\nwrite=5:mod_console_sample \n");
}

}  // namespace
