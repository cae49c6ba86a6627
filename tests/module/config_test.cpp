// What a load reads. That a path is null no file brings about: it is set so here, and by way of a copy that fails in
// frame_failure_test.cpp.

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include "module/frame_fixture.h"
#include "module_config.h"

namespace module_test {

namespace {

using kvx_media_server::read_control_library_configuration;
using kvx_media_server::read_module_configuration;
using test_support::error_line;
using testing::ElementsAre;
using testing::IsEmpty;

}  // namespace

class ModuleConfiguration : public ModuleFrame {
 protected:
  ModuleConfiguration() { Reset(); }
  ~ModuleConfiguration() override { Reset(); }
  static void Reset() {
    KELVARO_MEDIA_SERVER_CONFIG = "";
    STATSFILTER = nullptr;
  }
  switch_status_t Read(const Params& params) {
    Configure(params);
    return Read();
  }
  switch_status_t Read() { return read_module_configuration(pool_.Get(), trace_); }

  Pool pool_;
  bool trace_ = false;
};

TEST_F(ModuleConfiguration, TakesBothPathsAndTheTraceFlag) {
  EXPECT_EQ(Read({{"config", "/a"}, {"statsfilter", "/b"}, {"enable_jsr309_trace", "true"}}), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(KELVARO_MEDIA_SERVER_CONFIG, "/a");
  EXPECT_STREQ(STATSFILTER, "/b");
  EXPECT_TRUE(trace_);
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(ModuleConfiguration, NamesAreComparedWithoutCaseAndUnknownOnesIgnored) {
  EXPECT_EQ(Read({{"CONFIG", "/a"}, {"StatsFilter", "/b"}, {"Enable_JSR309_Trace", "true"}, {"colour", "red"}}),
            SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(KELVARO_MEDIA_SERVER_CONFIG, "/a");
  EXPECT_STREQ(STATSFILTER, "/b");
  EXPECT_TRUE(trace_);
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(ModuleConfiguration, DefaultsStandWhenNothingIsSet) {
  EXPECT_EQ(Read({}), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(KELVARO_MEDIA_SERVER_CONFIG, "");
  EXPECT_EQ(STATSFILTER, nullptr);
  EXPECT_FALSE(trace_);
}

TEST_F(ModuleConfiguration, DefaultsStandWithoutSettings) {
  const ConfigurationFile file("autoload_configs/kelvaro_media_server.conf.xml",
                               "<configuration name=\"kelvaro_media_server.conf\"/>");
  EXPECT_EQ(Read(), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(KELVARO_MEDIA_SERVER_CONFIG, "");
}

TEST_F(ModuleConfiguration, LaterConfigWins) {
  EXPECT_EQ(Read({{"config", "/first"}, {"config", "/second"}}), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(KELVARO_MEDIA_SERVER_CONFIG, "/second");
}

TEST_F(ModuleConfiguration, UrlIsAPath) {
  EXPECT_EQ(Read({{"config", "http://127.0.0.1/jsr309.xml"}}), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(KELVARO_MEDIA_SERVER_CONFIG, "http://127.0.0.1/jsr309.xml");
}

TEST_F(ModuleConfiguration, RelativeOrEmptyPathFailsWithoutALine) {
  for (const char* name : {"config", "statsfilter"}) {
    for (const char* value : {"jsr309.xml", "./jsr309.xml", ""}) {
      EXPECT_EQ(Read({{name, value}}), SWITCH_STATUS_TERM) << name << " " << value;
    }
  }
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(ModuleConfiguration, BadPathFailsAtOnceWhateverFollows) {
  EXPECT_EQ(Read({{"config", "/good"}, {"statsfilter", "bad"}, {"config", "/better"}}), SWITCH_STATUS_TERM);
  EXPECT_STREQ(KELVARO_MEDIA_SERVER_CONFIG, "/good");
}

TEST_F(ModuleConfiguration, MissingAttributesReadAsEmpty) {
  const ConfigurationFile without_name("autoload_configs/kelvaro_media_server.conf.xml",
                                       "<configuration name=\"kelvaro_media_server.conf\"><settings>"
                                       "<param value=\"x\"/><param/></settings></configuration>");
  EXPECT_EQ(Read(), SWITCH_STATUS_SUCCESS);
  const ConfigurationFile without_value("autoload_configs/kelvaro_media_server.conf.xml",
                                        "<configuration name=\"kelvaro_media_server.conf\"><settings>"
                                        "<param name=\"config\"/></settings></configuration>");
  EXPECT_EQ(Read(), SWITCH_STATUS_TERM);
}

TEST_F(ModuleConfiguration, OnlyTrueTurnsTracingOn) {
  for (const char* value : {"yes", "1", "on", "", "true ", "t"}) {
    EXPECT_EQ(Read({{"enable_jsr309_trace", value}}), SWITCH_STATUS_SUCCESS);
    EXPECT_FALSE(trace_) << value;
  }
  EXPECT_EQ(Read({{"enable_jsr309_trace", "TRUE"}}), SWITCH_STATUS_SUCCESS);
  EXPECT_TRUE(trace_);
}

TEST_F(ModuleConfiguration, NothingTurnsTracingOffAgain) {
  EXPECT_EQ(Read({{"enable_jsr309_trace", "true"}, {"enable_jsr309_trace", "false"}}), SWITCH_STATUS_SUCCESS);
  EXPECT_TRUE(trace_);
}

TEST_F(ModuleConfiguration, MissingFileIsLogged) {
  EXPECT_EQ(Read(), SWITCH_STATUS_TERM);
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(error_line("Open of kelvaro_media_server.conf failed\n")));
}

TEST_F(ModuleConfiguration, MissingControlLibraryFileIsLoggedWithItsPath) {
  boost::property_tree::ptree tree;
  EXPECT_EQ(read_control_library_configuration(tree), SWITCH_STATUS_TERM);
  KELVARO_MEDIA_SERVER_CONFIG = "/no/such/file.xml";
  EXPECT_EQ(read_control_library_configuration(tree), SWITCH_STATUS_TERM);
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(error_line("Cannot find config file \n"),
                                              error_line("Cannot find config file /no/such/file.xml\n")));
}

TEST_F(ModuleConfiguration, NullControlLibraryPathIsLogged) {
  KELVARO_MEDIA_SERVER_CONFIG = nullptr;
  boost::property_tree::ptree tree;
  EXPECT_EQ(read_control_library_configuration(tree), SWITCH_STATUS_TERM);
  EXPECT_THAT(log_.ModuleLines(), ElementsAre(error_line("CANNOT find config, stop the module!\n")));
}

TEST_F(ModuleConfiguration, MalformedControlLibraryFileThrowsWithFileAndLine) {
  const ConfigurationFile file("jsr309.xml", "<jsr309>\n<media>\n</jsr309>\n");
  KELVARO_MEDIA_SERVER_CONFIG = file.Path().c_str();
  boost::property_tree::ptree tree;
  try {
    read_control_library_configuration(tree);
    FAIL() << "took a malformed file";
  } catch (const boost::property_tree::xml_parser_error& error) {
    EXPECT_EQ(error.filename(), file.Path());
    EXPECT_GT(error.line(), 0u);
  }
}

}  // namespace module_test
