#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <switch.h>

#include <switch_media_server.h>

#include "core/builtin_api.h"
#include "core/interface_list.h"
#include "core/media_server.h"
#include "core_fixture.h"
#include "support/event_capture.h"
#include "support/process_child.h"

namespace {

using core_test::CoreSwitch;
using core_test::RunningCore;
using test_support::EventCapture;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

using Modules = RunningCore;

struct Outcome {
  switch_status_t status;
  std::string error;
};

Outcome load(const std::string& name) {
  const char* error = nullptr;
  const switch_status_t status = switch_loadable_module_load_module(nullptr, name.c_str(), SWITCH_TRUE, &error);
  return {status, switch_str_nil(error)};
}

Outcome unload(const std::string& name, switch_bool_t force = SWITCH_FALSE) {
  const char* error = nullptr;
  const switch_status_t status = switch_loadable_module_unload_module(nullptr, name.c_str(), force, &error);
  return {status, switch_str_nil(error)};
}

std::vector<std::string> loaded() {
  std::vector<std::string> names;
  const auto add = [](void* list, const char* name) {
    static_cast<std::vector<std::string>*>(list)->push_back(name);
    return 0;
  };
  switch_loadable_module_enumerate_loaded(add, &names);
  return names;
}

int completions(const char* line, const char* word) {
  return switch_console_complete(line, word, nullptr, nullptr, nullptr);
}

TEST_F(Modules, LoadBringsInterfacesAndUnloadTakesThemAway) {
  EXPECT_EQ(load("mod_core_good").status, SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_loadable_module_exists("mod_core_good"), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(loaded(), ElementsAre("mod_core_good"));
  EXPECT_EQ(Execute("core_echo", "words"), "words|no session\n");
  EXPECT_TRUE(kvx_switch::MediaServerAvailable());
  EXPECT_EQ(completions("core_echo ", ""), 2);

  EXPECT_EQ(unload("mod_core_good").status, SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(switch_core_get_variable("mod_core_good_shut_down"), "yes");
  EXPECT_EQ(switch_loadable_module_exists("mod_core_good"), SWITCH_STATUS_FALSE);
  EXPECT_THAT(loaded(), ElementsAre());
  EXPECT_EQ(Execute("core_echo"), "INVALID COMMAND!\n");
  EXPECT_FALSE(kvx_switch::MediaServerAvailable());
  EXPECT_EQ(completions("core_echo ", ""), 0);
}

TEST_F(Modules, LoadUnloadLoadAgainWorks) {
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(load("mod_core_good").status, SWITCH_STATUS_SUCCESS);
    EXPECT_EQ(Execute("core_echo", "x"), "x|no session\n");
    ASSERT_EQ(unload("mod_core_good").status, SWITCH_STATUS_SUCCESS);
  }
}

TEST_F(Modules, FunctionsLeftBehindAreRemoved) {
  load("mod_core_good");
  unload("mod_core_good");
  EXPECT_TRUE(log().Has(test_support::warning_line(
      "Module mod_core_good left 3 event, log or completion functions bound; they were removed\n")));
  // Were they still bound, this would call code that is gone.
  EventCapture capture(SWITCH_EVENT_MESSAGE);
  switch_event_t* event = nullptr;
  switch_event_create(&event, SWITCH_EVENT_MESSAGE);
  switch_event_fire(&event);
  EXPECT_EQ(capture.WaitFor(1).size(), 1u);
}

TEST_F(Modules, SuffixAndDirectoryMayBeGiven) {
  const char* error = nullptr;
  EXPECT_EQ(switch_loadable_module_load_module(SWITCH_GLOBAL_dirs.mod_dir, "mod_core_good.so", SWITCH_FALSE, &error),
            SWITCH_STATUS_SUCCESS)
      << error;
  EXPECT_EQ(unload("mod_core_good").status, SWITCH_STATUS_SUCCESS);
  const std::string path = std::string(SWITCH_GLOBAL_dirs.mod_dir) + "/mod_core_good.so";
  EXPECT_EQ(load(path).status, SWITCH_STATUS_SUCCESS);
}

TEST_F(Modules, IsLoadedOnce) {
  load("mod_core_good");
  const Outcome again = load("mod_core_good");
  EXPECT_EQ(again.status, SWITCH_STATUS_FALSE);
  EXPECT_EQ(again.error, "Module mod_core_good is already loaded");
}

TEST_F(Modules, ARefusedLoadLeavesNothing) {
  const Outcome outcome = load("mod_core_refuses");
  EXPECT_EQ(outcome.status, SWITCH_STATUS_GENERR);
  EXPECT_EQ(outcome.error, "Module mod_core_refuses was refused: its load function returned SWITCH_STATUS_TERM");
  EXPECT_EQ(switch_loadable_module_exists("mod_core_refuses"), SWITCH_STATUS_FALSE);
  EXPECT_EQ(Execute("core_refused"), "INVALID COMMAND!\n");
  EXPECT_EQ(completions("core_refused ", ""), 0);
  EXPECT_TRUE(log().Has({SWITCH_LOG_CRIT, outcome.error + "\n", "", "", 0, {}}));
}

TEST_F(Modules, AnExceptionThatLeavesTheLoadRefusesTheModule) {
  EXPECT_EQ(load("mod_core_throws").error,
            "Module mod_core_throws was refused: an exception left its load function: settings.xml(7): expected >");
  EXPECT_EQ(load("mod_core_throws_odd").error,
            "Module mod_core_throws_odd was refused: an exception left its load function: (of unknown type)");
  EXPECT_THAT(loaded(), ElementsAre());
}

TEST_F(Modules, WhatIsNoModuleOfThisSwitchIsRefusedWithTheReason) {
  const std::string mod_dir = SWITCH_GLOBAL_dirs.mod_dir;
  EXPECT_EQ(load("mod_core_old").error, "Module mod_core_old was refused: " + mod_dir +
                                            "/mod_core_old.so: made for version 4 of the API, this switch has 5");
  EXPECT_EQ(load("mod_core_no_table").error, "Module mod_core_no_table was refused: " + mod_dir +
                                                 "/mod_core_no_table.so: no symbol mod_core_no_table_module_interface");
  EXPECT_EQ(load("mod_core_no_interface").error,
            "Module mod_core_no_interface was refused: its load function made no module interface");
  EXPECT_THAT(load("mod_core_absent").error, HasSubstr("mod_core_absent.so: cannot open shared object file"));
  EXPECT_EQ(load("").error, "no module is named");
}

TEST_F(Modules, WhatIsNotLoadedIsNotUnloaded) {
  EXPECT_EQ(unload("mod_core_good").error, "Module mod_core_good cannot be unloaded: it is not loaded");
  EXPECT_EQ(unload("kvx_switch").error, "Module kvx_switch cannot be unloaded: it is not loaded");
}

TEST_F(Modules, AModuleThatAskedToStayStays) {
  EXPECT_EQ(load("mod_core_stays").status, SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(unload("mod_core_stays").error, "Module mod_core_stays cannot be unloaded: it asked not to be unloaded");
  EXPECT_EQ(switch_loadable_module_exists("mod_core_stays"), SWITCH_STATUS_SUCCESS);
}

TEST_F(Modules, IsNotUnloadedWhileItsMediaServerIsInUse) {
  load("mod_core_good");
  switch_media_server_interface_t* media_server = kvx_switch::AcquireMediaServer();
  ASSERT_NE(media_server, nullptr);
  EXPECT_EQ(unload("mod_core_good").error, "Module mod_core_good cannot be unloaded: the media server good is in use");
  EXPECT_EQ(Execute("core_echo", "still"), "still|no session\n");
  kvx_switch::ReleaseMediaServer(media_server);
  EXPECT_EQ(unload("mod_core_good").status, SWITCH_STATUS_SUCCESS);
}

TEST_F(Modules, IsNotUnloadedWhileItsCodecOrCommandIsInUse) {
  load("mod_core_good");
  switch_codec_t codec;
  ASSERT_EQ(switch_core_codec_init(&codec, "ONE", nullptr, nullptr, 0, 0, 0, 0, nullptr, nullptr),
            SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(unload("mod_core_good").error, "Module mod_core_good cannot be unloaded: the codec Good one is in use");
  switch_core_codec_destroy(&codec);
  switch_api_interface_t* api = switch_loadable_module_get_api_interface("CORE_ECHO");
  ASSERT_NE(api, nullptr);
  EXPECT_EQ(unload("mod_core_good").error, "Module mod_core_good cannot be unloaded: the command core_echo is running");
  UNPROTECT_INTERFACE(api);
  EXPECT_EQ(unload("mod_core_good").status, SWITCH_STATUS_SUCCESS);
}

TEST_F(Modules, AnExceptionThatLeavesTheShutdownIsLogged) {
  load("mod_core_shutdown_throws");
  EXPECT_EQ(unload("mod_core_shutdown_throws").status, SWITCH_STATUS_SUCCESS);
  EXPECT_TRUE(log().Has(
      test_support::error_line("An exception left the shutdown of module mod_core_shutdown_throws: cannot stop\n")));
}

TEST_F(Modules, RuntimeIsCalledUntilItIsDone) {
  load("mod_core_runtime");
  EXPECT_TRUE(test_support::wait_until(std::chrono::seconds(5), [] {
    const char* calls = switch_core_get_variable("mod_core_runtime_calls");
    return calls && !strcmp(calls, "3");
  }));
  EXPECT_EQ(unload("mod_core_runtime").status, SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(switch_core_get_variable("mod_core_runtime_calls"), "3");
}

TEST_F(Modules, EventsTellOfEachInterface) {
  EventCapture loads(SWITCH_EVENT_MODULE_LOAD);
  EventCapture unloads(SWITCH_EVENT_MODULE_UNLOAD);
  load("mod_core_good");
  const auto events = loads.All();
  ASSERT_EQ(events.size(), 6u);
  EXPECT_THAT(
      events[0].HeadersFrom("type"),
      ElementsAre(std::make_pair("type", "api"), std::make_pair("name", "core_echo"),
                  std::make_pair("module", "mod_core_good"), testing::Pair("filename", EndsWith("/mod_core_good.so"))));
  EXPECT_EQ(events[3].Header("type"), "codec");
  EXPECT_EQ(events[5].Header("type"), "media_server");
  EXPECT_EQ(events[5].Header("name"), "good");
  unload("mod_core_good");
  EXPECT_EQ(unloads.WaitFor(6).size(), 6u);
}

TEST_F(Modules, ListsAreOrderedByName) {
  load("mod_core_good");
  kvx_switch::RegisterBuiltinApi("core_first", "built in", nullptr, "");
  std::vector<std::string> apis;
  for (const auto& api : kvx_switch::ListApis()) apis.push_back(api.name + "/" + api.module);
  EXPECT_THAT(apis, ElementsAre("core_echo/mod_core_good", "core_first/kvx_switch", "core_throw/mod_core_good",
                                "core_throw_odd/mod_core_good"));
  std::vector<std::string> codecs;
  for (const auto& codec : kvx_switch::ListCodecs()) codecs.push_back(codec.name + "/" + codec.module);
  EXPECT_THAT(codecs, ElementsAre("Good one/mod_core_good", "Good two/mod_core_good"));
}

TEST_F(Modules, KindsThatAreNotServedGiveNullAndAWarning) {
  switch_memory_pool_t* pool = nullptr;
  switch_core_new_memory_pool(&pool);
  auto* interface = switch_loadable_module_create_module_interface(pool, "test");
  EXPECT_STREQ(interface->module_name, "test");
  EXPECT_EQ(switch_loadable_module_create_interface(interface, SWITCH_TIMER_INTERFACE), nullptr);
  EXPECT_TRUE(log().Has(test_support::warning_line("test: interfaces of kind 1 are not served\n")));
  switch_core_destroy_memory_pool(&pool);
}

TEST_F(Modules, InterfacesAreAppendedWithTheirLocks) {
  switch_memory_pool_t* pool = nullptr;
  switch_core_new_memory_pool(&pool);
  auto* interface = switch_loadable_module_create_module_interface(pool, "test");
  auto* first = static_cast<switch_codec_interface_t*>(
      switch_loadable_module_create_interface(interface, SWITCH_CODEC_INTERFACE));
  auto* second = static_cast<switch_codec_interface_t*>(
      switch_loadable_module_create_interface(interface, SWITCH_CODEC_INTERFACE));
  EXPECT_EQ(interface->codec_interface, first);
  EXPECT_EQ(first->next, second);
  EXPECT_EQ(second->next, nullptr);
  EXPECT_NE(first->rwlock, nullptr);
  EXPECT_NE(first->reflock, nullptr);
  EXPECT_EQ(first->parent, interface);
  switch_core_destroy_memory_pool(&pool);
}

class Autoload : public CoreSwitch {
 protected:
  void WriteModules(const std::string& loads) {
    Write("autoload_configs/modules.conf.xml",
          "<configuration name='modules.conf'><modules>" + loads + "</modules></configuration>");
  }
};

TEST_F(Autoload, LoadsWhatModulesConfLists) {
  WriteModules("<load module='mod_core_throws'/><load module='mod_core_good'/><load module='mod_core_stays'/>");
  Start();
  EXPECT_EQ(switch_loadable_module_init(SWITCH_TRUE), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(loaded(), ElementsAre("mod_core_good", "mod_core_stays"));
}

TEST_F(Autoload, StopsAtACriticalModuleThatFails) {
  WriteModules("<load module='mod_core_throws' critical='true'/><load module='mod_core_good'/>");
  Start();
  EXPECT_EQ(switch_loadable_module_init(SWITCH_TRUE), SWITCH_STATUS_GENERR);
  EXPECT_THAT(loaded(), ElementsAre());
  EXPECT_TRUE(
      log().Has({SWITCH_LOG_CRIT, "The switch does not start without module mod_core_throws\n", "", "", 0, {}}));
}

TEST_F(Autoload, NamesWhatMakesNoSenseInItsFile) {
  WriteModules("\n<load module='mod_core_good' critical='very'/>\n<load module='mod_core_good'/>\n<load modul='x'/>");
  Start();
  EXPECT_EQ(switch_loadable_module_init(SWITCH_TRUE), SWITCH_STATUS_SUCCESS);
  const std::string path = PathOf("autoload_configs/modules.conf.xml");
  for (const char* line :
       {":2: \"critical\" is \"very\", not \"true\" or \"false\"; taken as false\n",
        ":3: \"mod_core_good\" stands here again; ignored\n",
        ":4: a <load> has no attribute \"modul\", which is \"x\"; ignored\n", ":4: a <load> needs \"module\"\n"}) {
    EXPECT_TRUE(log().Has(test_support::warning_line(path + line))) << line;
  }
}

TEST_F(Autoload, LoadsNothingWhenNotAsked) {
  Start();
  EXPECT_EQ(switch_loadable_module_init(SWITCH_FALSE), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_loadable_module_init(SWITCH_TRUE), SWITCH_STATUS_FALSE) << "there is no modules.conf.xml";
}

}  // namespace
