// The module as the switch has it: a shared library, loaded and unloaded by the switch's own loader. It is another copy
// of the module than the one linked into this program, with globals of its own.

#include <filesystem>

#include "module/frame_fixture.h"

namespace module_test {

namespace {

constexpr char kName[] = "mod_kelvaro_media_server";

std::string execute(const char* command, const char* words) {
  CommandOutput output;
  switch_api_execute(command, words, nullptr, output.Stream());
  return output.Text();
}

}  // namespace

class SwitchLoader : public ModuleFrame {
 protected:
  SwitchLoader() : ModuleFrame(Options()) {}
  ~SwitchLoader() override {
    if (Exists()) Unload();
  }
  static test_support::ScriptedOptions Options() {
    test_support::ScriptedOptions options;
    options.audio_codecs = every_codec();
    return options;
  }
  switch_status_t LoadModule() {
    const char* error = nullptr;
    const switch_status_t status = switch_loadable_module_load_module(nullptr, kName, SWITCH_TRUE, &error);
    error_ = switch_str_nil(error);
    return status;
  }
  switch_status_t Unload() {
    const char* error = nullptr;
    const switch_status_t status = switch_loadable_module_unload_module(nullptr, kName, SWITCH_FALSE, &error);
    error_ = switch_str_nil(error);
    return status;
  }
  static bool Exists() { return switch_loadable_module_exists(kName) == SWITCH_STATUS_SUCCESS; }

  std::string error_;
};

TEST_F(SwitchLoader, LoadsUnloadsAndLoadsAgain) {
  Configure();
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(LoadModule(), SWITCH_STATUS_SUCCESS) << error_;
    EXPECT_TRUE(Exists());
    EXPECT_EQ(execute("ms_count_show", ""), "Totally 0 MSs now!\n");
    EXPECT_THAT(execute("kvrms_list_hardware", "all"), testing::HasSubstr("127.0.1.1,127.0.2.1"));
    ASSERT_EQ(Unload(), SWITCH_STATUS_SUCCESS) << error_;
    EXPECT_FALSE(Exists());
    EXPECT_EQ(execute("ms_count_show", ""), "INVALID COMMAND!\n");
  }
}

TEST_F(SwitchLoader, OffersTheCodecsThatTheConfigurationNames) {
  Configure();
  ASSERT_EQ(LoadModule(), SWITCH_STATUS_SUCCESS) << error_;
  const switch_codec_implementation_t* codecs[SWITCH_MAX_CODECS * 4] = {};
  const int count = switch_loadable_module_get_codecs(codecs, SWITCH_MAX_CODECS * 4);
  EXPECT_EQ(count, 6 + 6 + 3 * 4 + 4 + 1 + 3 + 4 + 5 + 2 + 2 + 12);
  for (int i = 0; i < count; ++i) EXPECT_STREQ(codecs[i]->modname, kName);
}

TEST_F(SwitchLoader, RefusesTheModuleWithoutItsConfiguration) {
  EXPECT_NE(LoadModule(), SWITCH_STATUS_SUCCESS);
  EXPECT_FALSE(Exists());
  EXPECT_NE(error_, "");
}

TEST_F(SwitchLoader, RefusesTheModuleWhenTheControlLibrarysFileIsMalformed) {
  const ConfigurationFile file("jsr309.xml", "<jsr309>\n<media>\n");
  Configure({{"config", file.Path()}});
  EXPECT_NE(LoadModule(), SWITCH_STATUS_SUCCESS);
  EXPECT_FALSE(Exists());
  EXPECT_EQ(execute("ms_count_show", ""), "INVALID COMMAND!\n");
  Configure();
  EXPECT_EQ(LoadModule(), SWITCH_STATUS_SUCCESS) << error_;
}

TEST_F(SwitchLoader, RefusesTheModuleWhenTheControlLibraryDoesNotStart) {
  const ConfigurationFile file("jsr309.xml", control_library_configuration(every_codec(), ""));
  Configure({{"config", file.Path()}});
  EXPECT_NE(LoadModule(), SWITCH_STATUS_SUCCESS);
  EXPECT_FALSE(Exists());
  EXPECT_EQ(execute("kvrms_stats", "usage"), "INVALID COMMAND!\n");
  const switch_codec_implementation_t* codecs[SWITCH_MAX_CODECS] = {};
  EXPECT_EQ(switch_loadable_module_get_codecs(codecs, SWITCH_MAX_CODECS), 0);
}

}  // namespace module_test
