// The switch as a service manager runs it: readiness, signs of life, the journal, log files, limits.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <fstream>

#include "support/process_child.h"
#include "support/switch_process.h"
#include "support/switch_process_configuration.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// Where a service manager listens.
class NotifySocket {
 public:
  explicit NotifySocket(const std::string& path) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    if (address.sun_path[0] == '@') address.sun_path[0] = '\0';
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    if (bind(socket_, reinterpret_cast<sockaddr*>(&address), length) != 0)
      throw std::runtime_error(std::strerror(errno));
  }
  ~NotifySocket() { close(socket_); }

  /// The next message; "" when none comes in time.
  std::string Next(seconds limit = seconds(20)) {
    timeval time{};
    time.tv_sec = limit.count();
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof(time));
    char bytes[512];
    const ssize_t count = recv(socket_, bytes, sizeof(bytes), 0);
    return count > 0 ? std::string(bytes, static_cast<std::size_t>(count)) : "";
  }

 private:
  const int socket_;
};

class Service : public testing::Test {
 protected:
  std::string NotifyPath() const {
    // The kernel's names have room for 108 bytes, which a deep build directory may use up.
    return "@kvx_service_test_" + std::to_string(getpid()) + "_" +
           testing::UnitTest::GetInstance()->current_test_info()->name();
  }

  void Start(std::vector<std::string> environment, std::vector<std::string> wrapper = {}) {
    test_support::ChildSettings settings;
    settings.command = std::move(wrapper);
    const std::string ready = (directory_.Path() / "ready").string();
    for (const std::string& argument :
         {test_support::built_program("kvx-switch").string(), std::string("--conf"), conf_.Path().string(),
          std::string("--mod"), std::string(KVX_BUILD_DIR "/mod"), std::string("--ready-file"), ready,
          std::string("--set"), std::string("sip_port=0"), std::string("--set"), std::string("event_socket_port=0")}) {
      settings.command.push_back(argument);
    }
    settings.output = Output();
    settings.environment = std::move(environment);
    child_ = std::make_unique<test_support::ChildProcess>(settings);
    ASSERT_TRUE(
        test_support::wait_until(seconds(20), [&] { return std::filesystem::exists(ready) || !child_->Running(); }));
    ASSERT_TRUE(child_->Running()) << child_->Output();
  }

  std::filesystem::path Output() const { return directory_.Path() / "output"; }

  void Stop() {
    child_->Signal(SIGTERM);
    const auto exit = child_->WaitForExit(seconds(30));
    ASSERT_TRUE(exit.has_value());
    EXPECT_EQ(exit->code, 0) << exit->ToString();
  }

  void LogInto(const std::string& file) {
    conf_.Replace("autoload_configs/logfile.conf.xml", "name=\"logfile\" value=\"\"",
                  "name=\"logfile\" value=\"" + file + "\"");
  }

  test_support::TemporaryDirectory directory_;
  test_support::ConfigurationCopy conf_;
  std::unique_ptr<test_support::ChildProcess> child_;
};

TEST_F(Service, TellsItsManagerWhenItServesAndWhenItEnds) {
  NotifySocket manager(NotifyPath());
  Start({"NOTIFY_SOCKET=" + NotifyPath()});
  EXPECT_THAT(manager.Next(), StartsWith("READY=1\nSTATUS=Serving SIP on 127.0.0.1:"));
  Stop();
  EXPECT_EQ(manager.Next(), "STOPPING=1\nSTATUS=Stopping, 0 legs to hang up");
}

TEST_F(Service, GivesSignsOfLifeAsOftenAsItsManagerWants) {
  NotifySocket manager(NotifyPath());
  Start({"NOTIFY_SOCKET=" + NotifyPath(), "WATCHDOG_USEC=200000"});
  EXPECT_THAT(manager.Next(), StartsWith("READY=1\n"));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(manager.Next(), "WATCHDOG=1");
  Stop();
}

TEST_F(Service, GivesNoSignsOfLifeThatAreMeantForAnother) {
  NotifySocket manager(NotifyPath());
  Start({"NOTIFY_SOCKET=" + NotifyPath(), "WATCHDOG_USEC=200000", "WATCHDOG_PID=1"});
  EXPECT_THAT(manager.Next(), StartsWith("READY=1\n"));
  EXPECT_EQ(manager.Next(seconds(1)), "");
  Stop();
}

TEST_F(Service, LogsIntoTheJournalWithPriorities) {
  std::ofstream(Output()) << "";
  struct stat information;
  ASSERT_EQ(stat(Output().c_str(), &information), 0);
  Start({"JOURNAL_STREAM=" + std::to_string(information.st_dev) + ":" + std::to_string(information.st_ino)});
  Stop();
  std::istringstream lines(child_->Output());
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_THAT(line, testing::MatchesRegex("<[1-7]>\\[[A-Z]+\\] [a-z0-9_]+\\.[a-z]+:[0-9]+ .*"));
  }
  EXPECT_GT(count, 5);
  EXPECT_THAT(child_->Output(), HasSubstr("<5>[NOTICE] main.cpp:"));
}

TEST_F(Service, OpensItsLogFileAnewAtAHangUp) {
  const std::filesystem::path log = directory_.Path() / "switch.log";
  LogInto(log.string());
  Start({});
  EXPECT_THAT(test_support::read_text_file(log), HasSubstr("Ready: "));
  std::filesystem::rename(log, log.string() + ".old");
  child_->Signal(SIGHUP);
  EXPECT_TRUE(test_support::wait_until(seconds(10), [&] { return std::filesystem::exists(log); }));
  Stop();
  EXPECT_THAT(test_support::read_text_file(log), HasSubstr("Stopped\n"));
  EXPECT_THAT(test_support::read_text_file(log.string() + ".old"), Not(HasSubstr("Stopped\n")));
}

TEST_F(Service, LivesWithADiskThatIsFull) {
  LogInto("/dev/full");
  Start({});
  const std::string told = "Log file /dev/full cannot be written: No space left on device; ";
  test_support::wait_until(seconds(10), [&] { return child_->Output().find(told) != std::string::npos; });
  EXPECT_THAT(child_->Output(), HasSubstr(told));
  Stop();
}

TEST_F(Service, WarnsOfALimitThatIsTooLowForItsSessions) {
  Start({}, {"sh", "-c", "ulimit -n 500; ulimit -c 0; exec \"$@\"", "sh"});
  EXPECT_THAT(
      child_->Output(),
      HasSubstr("No more than 500 files may be open at once, and 1000 sessions and 1000 SIP connections need 3256: "));
  EXPECT_THAT(child_->Output(), HasSubstr("A crash would leave no core file"));
  Stop();
}

}  // namespace
}  // namespace end_to_end
