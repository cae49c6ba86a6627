// Damaged configuration and taken ports: a line that names the place, and no half-started switch.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <ostream>

#include "support/free_ports.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::seconds;

class Configuration : public SwitchCall {
 protected:
  // Starts the switch with the damaged copy; it must end by itself, in error.
  std::string LogOfFailedStart() {
    switch_settings_.directory = directory_.Path();
    switch_settings_.conf = conf_.Path();
    switch_ = std::make_unique<test_support::SwitchProcess>(switch_settings_);
    const auto exit = switch_->WaitForExit(seconds(30));
    EXPECT_TRUE(exit.has_value()) << "the switch runs with a configuration that it cannot read";
    EXPECT_GT(exit.value_or(test_support::ChildExit{}).code, 0) << exit.value_or(test_support::ChildExit{}).ToString();
    return switch_->Log();
  }

  // Damages a file on its line `line`, where `tag` is, in a way that no XML parser takes.
  void Damage(const std::string& file, const std::string& tag) { conf_.Replace(file, tag, "<<" + tag); }

  static bool NamesLine(const std::string& log, const std::string& file) {
    // "file:12" or "file(12)"
    for (std::size_t at = log.find(file); at != std::string::npos; at = log.find(file, at + 1)) {
      const std::size_t number = at + file.size() + 1;
      if (number < log.size() && std::string(":(").find(log[number - 1]) != std::string::npos &&
          std::isdigit(static_cast<unsigned char>(log[number])) != 0) {
        return true;
      }
    }
    return false;
  }

  void ExpectCallsAnsweredWith503() {
    switch_settings_.conf = conf_.Path();
    StartSwitch();
    EXPECT_NE(switch_->Api("status").find("media server not available"), std::string::npos);
    EXPECT_EQ(RefusedWith("caller_is_refused", "2000"), 503);
    EXPECT_EQ(switch_->DifferenceFrom(before_, seconds(10)), "") << "the refused call left something behind";
    ASSERT_NO_THROW(switch_->Stop(seconds(30)));
  }

  test_support::ConfigurationCopy conf_;
};

struct DamagedFile {
  const char* file;
  const char* tag;

  std::string Name() const { return std::filesystem::path(file).filename().string(); }
  friend void PrintTo(const DamagedFile& one, std::ostream* out) { *out << one.file; }
};

class MalformedFile : public Configuration, public testing::WithParamInterface<DamagedFile> {};

TEST_P(MalformedFile, StopsTheStartWithFileAndLine) {
  Damage(GetParam().file, GetParam().tag);
  const std::string log = LogOfFailedStart();
  EXPECT_TRUE(NamesLine(log, GetParam().Name())) << log;
}

INSTANTIATE_TEST_SUITE_P(Configuration, MalformedFile,
                         testing::Values(DamagedFile{"vars.xml", "<X-PRE-PROCESS"},
                                         DamagedFile{"autoload_configs/switch.conf.xml", "<settings>"},
                                         DamagedFile{"autoload_configs/modules.conf.xml", "<modules>"},
                                         DamagedFile{"autoload_configs/event_socket.conf.xml", "<settings>"},
                                         DamagedFile{"dialplan/default.xml", "<context"},
                                         DamagedFile{"sip_profiles/internal.xml", "<settings>"}),
                         [](const auto& info) {
                           std::string name = info.param.Name();
                           std::replace(name.begin(), name.end(), '.', '_');
                           return name;
                         });

TEST_F(Configuration, MissingSipProfileStopsTheStart) {
  conf_.Remove("sip_profiles/internal.xml");
  EXPECT_NE(LogOfFailedStart().find("sip_profiles"), std::string::npos) << switch_->Log();
}

TEST_F(Configuration, MissingEventSocketFileStopsTheStart) {
  conf_.Remove("autoload_configs/event_socket.conf.xml");
  EXPECT_NE(LogOfFailedStart().find("event_socket.conf"), std::string::npos) << switch_->Log();
}

TEST_F(Configuration, MissingDirectoryStopsTheStart) {
  std::filesystem::remove_all(conf_.Path());
  EXPECT_NE(LogOfFailedStart().find(conf_.Path().string()), std::string::npos) << switch_->Log();
}

TEST_F(Configuration, ValueOutOfRangeStopsTheStartAndIsNamed) {
  conf_.Replace("sip_profiles/internal.xml", "name=\"rfc2833-pt\" value=\"101\"", "name=\"rfc2833-pt\" value=\"300\"");
  const std::string log = LogOfFailedStart();
  EXPECT_TRUE(has_line(log, {"internal.xml", "300", "rfc2833-pt"})) << log;
}

TEST_F(Configuration, MalformedMediaServerFileRefusesTheModuleAndCallsGet503) {
  // As a writer leaves it that was interrupted: the library's parser takes much, but not that.
  const std::string whole = test_support::read_text_file(conf_.File("jsr309.xml"));
  conf_.Write("jsr309.xml", whole.substr(0, whole.find("<media_servers>") + 8));
  ExpectCallsAnsweredWith503();
  EXPECT_TRUE(NamesLine(switch_->Log(), "jsr309.xml")) << switch_->Log();
  EXPECT_TRUE(has_line(switch_->Log(), {"mod_kelvaro_media_server", "refused"})) << switch_->Log();
}

TEST_F(Configuration, MalformedModuleFileRefusesTheModuleAndCallsGet503) {
  Damage("autoload_configs/kelvaro_media_server.conf.xml", "<settings>");
  ExpectCallsAnsweredWith503();
  EXPECT_TRUE(NamesLine(switch_->Log(), "kelvaro_media_server.conf.xml")) << switch_->Log();
}

TEST_F(Configuration, MissingModuleFileRefusesTheModuleAndCallsGet503) {
  conf_.Remove("autoload_configs/kelvaro_media_server.conf.xml");
  ExpectCallsAnsweredWith503();
  EXPECT_TRUE(has_line(switch_->Log(), {"kelvaro_media_server.conf"})) << switch_->Log();
}

TEST_F(Configuration, BadMediaServerValueRefusesTheModuleAndIsNamed) {
  conf_.Replace("jsr309.xml", "<capacity>1000</capacity>", "<capacity>many</capacity>");
  ExpectCallsAnsweredWith503();
  EXPECT_TRUE(has_line(switch_->Log(), {"jsr309.xml", "capacity", "many"})) << switch_->Log();
}

TEST_F(Configuration, MissingModuleIsNamedAndCallsGet503) {
  test_support::TemporaryDirectory empty;
  switch_settings_.mod = empty.Path();
  ExpectCallsAnsweredWith503();
  EXPECT_TRUE(has_line(switch_->Log(), {"mod_kelvaro_media_server", "refused"})) << switch_->Log();
}

TEST_F(Configuration, SipPortInUseStopsTheStartAndIsNamed) {
  test_support::UdpSocket taken;
  switch_settings_.variables = {{"sip_port", std::to_string(taken.Port())}};
  const std::string log = LogOfFailedStart();
  EXPECT_TRUE(has_line(log, {"127.0.0.1:" + std::to_string(taken.Port()), "in use"})) << log;
}

TEST_F(Configuration, EventSocketPortInUseStopsTheStartAndIsNamed) {
  test_support::OccupiedTcpPort taken;
  switch_settings_.variables = {{"event_socket_port", std::to_string(taken.Port())}};
  const std::string log = LogOfFailedStart();
  EXPECT_TRUE(has_line(log, {"127.0.0.1:" + std::to_string(taken.Port()), "in use"})) << log;
}

}  // namespace
}  // namespace end_to_end
