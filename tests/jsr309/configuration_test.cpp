// What the configuration file may say, and what it may not.
#include "configuration.h"

#include "kelvaro/jsr309/configuration_check.h"
#include "library_fixture.h"
#include "support/process_scratch.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

using namespace kelvaro::jsr309;
using namespace test_support;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

namespace {

constexpr char kMac[] = "<mac>02:00:00:00:00:01</mac>";
constexpr char kAddress[] = "<address>127.0.0.1</address>";

std::string Server(const std::string& content) {
  return "<media_server>" + content + "</media_server>";
}

std::string GoodServer(const std::string& more = "") {
  return Server(std::string(kMac) + kAddress + more);
}

class ConfigurationFile : public ::testing::Test {
 protected:
  ~ConfigurationFile() override {
    if (!path_.empty()) std::remove(path_.c_str());
  }

  void WriteFile(const std::string& content) {
    path_ = test_support::scratch_file("configuration.xml").string();
    std::ofstream(path_) << content;
  }

  void Write(const std::string& media_servers) {
    WriteFile("<?xml version=\"1.0\"?>\n<!-- note --><jsr309><media><codec/></media><media_servers>" + media_servers +
              "</media_servers></jsr309>");
  }

  bool Read() { return ReadConfiguration(path_, configuration_, error_); }

  void ExpectRefused(const std::string& media_servers, const std::string& element, const std::string& value) {
    Write(media_servers);
    EXPECT_FALSE(Read()) << media_servers;
    EXPECT_THAT(error_, AllOf(HasSubstr(path_), HasSubstr("element jsr309.media_servers." + element + ","),
                              HasSubstr("value \"" + value + "\"")));
    std::remove(path_.c_str());
  }

  std::string path_;
  Configuration configuration_;
  std::string error_;
};

TEST_F(ConfigurationFile, HasDefaults) {
  Write(GoodServer());
  ASSERT_TRUE(Read()) << error_;
  EXPECT_EQ(configuration_.lost_events_per_second, 100u);
  ASSERT_THAT(configuration_.servers, SizeIs(1));
  EXPECT_EQ(configuration_.servers[0].driver, "embedded");
  const MediaServerSettings& settings = configuration_.servers[0].settings;
  EXPECT_EQ(settings.mac, "02:00:00:00:00:01");
  EXPECT_THAT(settings.addresses, ElementsAre("127.0.0.1"));
  EXPECT_EQ(settings.public_address, "");
  EXPECT_EQ(settings.rtp_port_min, 16384);
  EXPECT_EQ(settings.rtp_port_max, 32767);
  EXPECT_EQ(settings.capacity, 1000u);
  EXPECT_EQ(settings.threads, 0u);
  EXPECT_EQ(settings.request_timeout_ms, 2000u);
  EXPECT_THAT(settings.driver_settings, IsEmpty());
}

TEST_F(ConfigurationFile, HoldsEverythingAboutAServer) {
  Write("<lost_events_per_second>7</lost_events_per_second><request_timeout_ms>900</request_timeout_ms>" +
        GoodServer("<driver>embedded</driver><address>[::1]</address><public_address>203.0.113.7</public_address>"
                   "<rtp_port_min>20000</rtp_port_min><rtp_port_max>20003</rtp_port_max><capacity>5</capacity>"
                   "<threads>3</threads><request_timeout_ms>50</request_timeout_ms>"
                   "<bind>127.0.0.9</bind><control><port>22222</port></control>") +
        Server("<mac>0a-00-00-00-00-0b</mac><address>127.0.0.2</address>"));
  ASSERT_TRUE(Read()) << error_;
  EXPECT_EQ(configuration_.lost_events_per_second, 7u);
  ASSERT_THAT(configuration_.servers, SizeIs(2));
  const MediaServerSettings& settings = configuration_.servers[0].settings;
  EXPECT_THAT(settings.addresses, ElementsAre("127.0.0.1", "::1"));
  EXPECT_EQ(settings.public_address, "203.0.113.7");
  EXPECT_EQ(settings.rtp_port_min, 20000);
  EXPECT_EQ(settings.rtp_port_max, 20003);
  EXPECT_EQ(settings.capacity, 5u);
  EXPECT_EQ(settings.threads, 3u);
  EXPECT_EQ(settings.request_timeout_ms, 50u);
  EXPECT_THAT(settings.driver_settings, ElementsAre(Pair("bind", "127.0.0.9"), Pair("control.port", "22222")));
  EXPECT_EQ(configuration_.servers[1].settings.request_timeout_ms, 900u);
  EXPECT_EQ(configuration_.servers[1].settings.mac, "0A:00:00:00:00:0B");
}

TEST_F(ConfigurationFile, RefusesBadValues) {
  ExpectRefused(GoodServer("<driver>tape</driver>"), "media_server[1].driver", "tape");
  ExpectRefused(Server("<mac>02:00:00:00:00</mac>"), "media_server[1].mac", "02:00:00:00:00");
  ExpectRefused(Server("<mac>02:00:00:00:00:0G</mac>"), "media_server[1].mac", "02:00:00:00:00:0G");
  ExpectRefused(Server(std::string(kMac) + "<address>localhost</address>"), "media_server[1].address", "localhost");
  ExpectRefused(GoodServer("<public_address>300.0.0.1</public_address>"), "media_server[1].public_address",
                "300.0.0.1");
  ExpectRefused(GoodServer("<rtp_port_min>1023</rtp_port_min>"), "media_server[1].rtp_port_min", "1023");
  ExpectRefused(GoodServer("<rtp_port_max>65536</rtp_port_max>"), "media_server[1].rtp_port_max", "65536");
  ExpectRefused(GoodServer("<capacity>0</capacity>"), "media_server[1].capacity", "0");
  ExpectRefused(GoodServer("<capacity>many</capacity>"), "media_server[1].capacity", "many");
  ExpectRefused(GoodServer("<capacity>-1</capacity>"), "media_server[1].capacity", "-1");
  ExpectRefused(GoodServer("<capacity>99999999999999999999</capacity>"), "media_server[1].capacity",
                "99999999999999999999");
  ExpectRefused(GoodServer("<threads>257</threads>"), "media_server[1].threads", "257");
  ExpectRefused(GoodServer("<threads></threads>"), "media_server[1].threads", "");
  ExpectRefused(GoodServer("<request_timeout_ms>1s</request_timeout_ms>"), "media_server[1].request_timeout_ms", "1s");
  ExpectRefused("<request_timeout_ms>0</request_timeout_ms>" + GoodServer(), "request_timeout_ms", "0");
  ExpectRefused("<lost_events_per_second>0</lost_events_per_second>" + GoodServer(), "lost_events_per_second", "0");
  ExpectRefused("<media_servr/>" + GoodServer(), "media_servr", "");
}

TEST_F(ConfigurationFile, RefusesWhatIsMissing) {
  ExpectRefused("", "media_server", "");
  ExpectRefused(Server(kAddress), "media_server[1].mac", "");
  ExpectRefused(Server(kMac), "media_server[1].address", "");
}

TEST_F(ConfigurationFile, RefusesAPortRangeWithoutTwoPorts) {
  ExpectRefused(GoodServer("<rtp_port_min>20001</rtp_port_min><rtp_port_max>20000</rtp_port_max>"),
                "media_server[1].rtp_port_min", "20001");
  ExpectRefused(GoodServer("<rtp_port_min>20000</rtp_port_min><rtp_port_max>20000</rtp_port_max>"),
                "media_server[1].rtp_port_min", "20000");
}

TEST_F(ConfigurationFile, RefusesWhatStandsTwice) {
  ExpectRefused(GoodServer("<capacity>1</capacity><capacity>2</capacity>"), "media_server[1].capacity", "2");
  ExpectRefused(GoodServer(kAddress), "media_server[1].address", "127.0.0.1");
  ExpectRefused(GoodServer() + Server(std::string(kMac) + "<address>127.0.0.2</address>"), "media_server[2].mac",
                "02:00:00:00:00:01");
  ExpectRefused(Server(std::string(kMac) + "<address>::1</address>") +
                    Server("<mac>02:00:00:00:00:02</mac><address>0:0::1</address>"),
                "media_server[2].address", "0:0::1");
}

TEST_F(ConfigurationFile, NeedsItsRootAndItsServers) {
  WriteFile("<other/>");
  EXPECT_FALSE(Read());
  EXPECT_THAT(error_, HasSubstr("element jsr309,"));
  std::remove(path_.c_str());
  WriteFile("<jsr309/>");
  EXPECT_FALSE(Read());
  EXPECT_THAT(error_, HasSubstr("element jsr309.media_servers,"));
}

TEST_F(ConfigurationFile, ThatIsNoXmlIsRefusedWithItsLine) {
  WriteFile("<jsr309>\n<media_servers>\n</jsr309>");
  EXPECT_FALSE(Read());
  EXPECT_THAT(error_, AllOf(HasSubstr(path_), HasSubstr("line 3")));
}

TEST_F(ConfigurationFile, ThatIsNotThereIsRefused) {
  path_ = "/nonexistent/jsr309.xml";
  EXPECT_FALSE(Read());
  EXPECT_THAT(error_, HasSubstr(path_));
}

TEST_F(ConfigurationFile, CheckNamesEveryMistake) {
  Write("<lost_events_per_second>0</lost_events_per_second><server/>" +
        Server("<mac>here</mac><address>localhost</address><threads>x</threads><color>red</color>"
               "<heartbeat_ms>1</heartbeat_ms>") +
        Server("<mac>02:00:00:00:00:02</mac><driver>other</driver>"));
  const std::string servers = "jsr309.media_servers.";
  std::vector<std::string> found;
  for (const SettingError& mistake : CheckConfiguration(path_)) {
    found.push_back(mistake.element.substr(servers.size()) + " \"" + mistake.value + "\": " + mistake.reason);
  }
  EXPECT_THAT(found,
              ElementsAre("lost_events_per_second \"0\": not a number from 1 to 1000000", "server \"\": not known",
                          "media_server[1].mac \"here\": not a MAC address",
                          "media_server[1].address \"localhost\": not a numeric IP address",
                          "media_server[1].threads \"x\": not a number from 1 to 256",
                          "media_server[2].driver \"other\": no such driver", "media_server[2].address \"\": missing",
                          "media_server[1].color \"red\": not known to the embedded media server",
                          "media_server[1].heartbeat_ms \"1\": not a number of milliseconds from 20 to 600000"));
}

TEST_F(ConfigurationFile, CheckOpensNoMediaServer) {
  // An address of no interface of this machine: a server on it could not be opened.
  Write(Server(std::string(kMac) + "<address>192.0.2.1</address>"));
  EXPECT_THAT(CheckConfiguration(path_), IsEmpty());
}

TEST(FactoryConfiguration, LogsWhatIsWrongAtErrorLevel) {
  ScriptedOptions options;
  options.extra_server_elements = "<threads>none</threads>";
  const ScriptedMediaServers servers(options);
  RecordingLogger logger;
  MSControlFactory factory;
  EXPECT_FALSE(factory.Init(servers.config_path().c_str(), &logger));
  EXPECT_THAT(logger.Messages(kelvaro::ERROR_LOG_LEVEL),
              ElementsAre(AllOf(HasSubstr(servers.config_path()), HasSubstr("media_server[1].threads"),
                                HasSubstr("\"none\""))));
}

TEST(FactoryConfiguration, LogsWhatTheDriverRefuses) {
  ScriptedOptions options;
  options.extra_server_elements = "<greeting>hi</greeting>";
  const ScriptedMediaServers servers(options);
  RecordingLogger logger;
  MSControlFactory factory;
  EXPECT_FALSE(factory.Init(servers.config_path().c_str(), &logger));
  EXPECT_THAT(logger.Messages(kelvaro::ERROR_LOG_LEVEL),
              ElementsAre(AllOf(HasSubstr(servers.config_path()),
                                HasSubstr("element jsr309.media_servers.media_server[1].greeting, value \"hi\""),
                                HasSubstr("not hello"))));
}

TEST(FactoryConfiguration, HandsTheDriverWhatIsItsOwn) {
  ScriptedOptions options;
  options.extra_server_elements = "<greeting>hello</greeting>";
  const ScriptedMediaServers servers(options);
  MSControlFactory factory;
  EXPECT_TRUE(factory.Init(servers.config_path().c_str(), nullptr));
}

TEST(DriverRegistry, KeepsNamesApart) {
  const auto make = [] { return std::unique_ptr<MediaServerDriver>(); };
  EXPECT_FALSE(RegisterMediaServerDriver("embedded", make));
  EXPECT_FALSE(RegisterMediaServerDriver("", make));
  EXPECT_FALSE(RegisterMediaServerDriver("test-of-names", nullptr));
  EXPECT_TRUE(RegisterMediaServerDriver("test-of-names", make));
  EXPECT_FALSE(RegisterMediaServerDriver("test-of-names", make));
  EXPECT_TRUE(UnregisterMediaServerDriver("test-of-names"));
  EXPECT_FALSE(UnregisterMediaServerDriver("test-of-names"));
  EXPECT_FALSE(UnregisterMediaServerDriver("embedded"));
}

}  // namespace
