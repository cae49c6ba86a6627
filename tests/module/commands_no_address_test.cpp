// Media servers that have no address yet: they cannot be named, so reports and commands pass them over.

#include "kelvaro/jsr309/driver.h"
#include "module/commands_fixture.h"

namespace module_test {

namespace {

using test_support::LogLine;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kDriver[] = "without_address";

class ServerWithoutAddress : public kelvaro::jsr309::MediaServer {
 public:
  bool IsAlive() const override { return false; }
  std::vector<std::string> Addresses() const override { return {}; }
  std::size_t Capacity() const override { return 1; }
  std::shared_ptr<kelvaro::jsr309::ServerSession> CreateSession() override { return nullptr; }
  void Shutdown(std::chrono::milliseconds) override {}
};

class DriverWithoutAddress : public kelvaro::jsr309::MediaServerDriver {
 public:
  std::unique_ptr<kelvaro::jsr309::MediaServer> Open(const kelvaro::jsr309::MediaServerSettings&,
                                                     kelvaro::jsr309::MediaServerObserver&,
                                                     const std::shared_ptr<kelvaro::jsr309::GuardedLogger>&,
                                                     kelvaro::jsr309::SettingError&) override {
    return std::make_unique<ServerWithoutAddress>();
  }
};

class Registration {
 public:
  Registration() {
    kelvaro::jsr309::RegisterMediaServerDriver(kDriver, [] { return std::make_unique<DriverWithoutAddress>(); });
  }
  ~Registration() { kelvaro::jsr309::UnregisterMediaServerDriver(kDriver); }
};

/// One such server, first in the order of MAC addresses, beside this many ordinary ones.
test_support::ScriptedOptions options(std::size_t ordinary) {
  test_support::ScriptedOptions made;
  made.servers = ordinary;
  made.more_servers = "<media_server><driver>" + std::string(kDriver) +
                      "</driver><mac>00:00:00:00:00:0A</mac><address>127.0.9.9</address></media_server>";
  return made;
}

}  // namespace

class NoAddress : public CommandFrame {
 protected:
  explicit NoAddress(std::size_t ordinary = 0) : CommandFrame(options(ordinary)) {}

  const Registration registration_;
};

class NoAddressBesideTwo : public NoAddress {
 protected:
  NoAddressBesideTwo() : NoAddress(2) {}
};

TEST_F(NoAddressBesideTwo, IsPassedOverAndTakesNoNumber) {
  EXPECT_EQ(Hardware("all"),
            "        IP                     MAC            Status     \n"
            "======================================================\n"
            "127.0.1.1,127.0.2.1     02:00:00:00:00:01       IS       \n"
            "127.0.1.2,127.0.2.2     02:00:00:00:00:02       IS       \n");
  EXPECT_EQ(Control("service down"),
            "Media Server 127.0.1.1 is put out of service!Media Server 127.0.1.2 is put out of service!");
}

TEST_F(NoAddressBesideTwo, IsNotReportedByMac) {
  EXPECT_EQ(Stats("usage mac 00:00:00:00:00:0A"), kStatsHelp);
  EXPECT_EQ(HardwareXml("mac 00:00:00:00:00:0A"), kHardwareXmlHelp);
  EXPECT_EQ(Control("service up mac 00:00:00:00:00:0A"), std::string(kReportError) + kControlHelp);
  EXPECT_EQ(Control("session term mac 00-00-00-00-00-0a"), std::string(kReportError) + kControlHelp);
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

TEST_F(NoAddress, WithNoOtherServerThereIsNoReportAndTheLogNamesThePath) {
  for (const auto& [words, path] : {std::pair<const char*, const char*>{"usage all", "stats.usage.modules"},
                                    {"hardware all", "stats.hardware.modules"}}) {
    log_.Clear();
    EXPECT_EQ(Stats(words), kStatsHelp);
    EXPECT_THAT(log_.ModuleLines(),
                ElementsAre(AllOf(Field(&LogLine::level, SWITCH_LOG_ERROR), Field(&LogLine::text, HasSubstr(path)))));
  }
  EXPECT_THAT(Stats("usage"), testing::StartsWith("Active Calls")) << "the sum needs no address";
}

TEST_F(NoAddress, WithNoOtherServerThereIsNothingToControl) {
  EXPECT_EQ(Control("service down all"), "");
  EXPECT_EQ(Control("session term all"), "");
  EXPECT_THAT(log_.ModuleLines(), IsEmpty());
}

}  // namespace module_test
