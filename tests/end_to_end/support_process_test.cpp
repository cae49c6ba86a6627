// Starting, watching and ending programs.

#include <gtest/gtest.h>
#include <signal.h>

#include "support/free_ports.h"
#include "support/process_child.h"
#include "support/process_inspection.h"
#include "support/process_threads.h"
#include "support/switch_process.h"
#include "support/switch_process_configuration.h"
#include "support/udp_socket.h"

namespace test_support {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class SupportProcess : public testing::Test {
 protected:
  ChildSettings Shell(const std::string& script) {
    ChildSettings settings;
    settings.command = {"sh", "-c", script};
    settings.output = directory_.Path() / "output";
    return settings;
  }

  TemporaryDirectory directory_;
};

TEST_F(SupportProcess, TellsHowAChildEnded) {
  ChildProcess child(Shell("echo out; echo err >&2; exit 3"));
  const auto exit = child.WaitForExit(seconds(10));
  ASSERT_TRUE(exit.has_value());
  EXPECT_EQ(exit->code, 3);
  EXPECT_FALSE(exit->Succeeded());
  EXPECT_EQ(exit->ToString(), "exit code 3");
  EXPECT_EQ(child.Output(), "out\nerr\n");
}

TEST_F(SupportProcess, TellsWhichSignalEndedAChild) {
  ChildProcess child(Shell("exec sleep 60"));
  EXPECT_FALSE(child.WaitForExit(milliseconds(20)).has_value());
  EXPECT_TRUE(child.Running());
  child.Signal(SIGTERM);
  const auto exit = child.WaitForExit(seconds(10));
  ASSERT_TRUE(exit.has_value());
  EXPECT_EQ(exit->signal, SIGTERM);
  EXPECT_FALSE(exit->Succeeded());
}

TEST_F(SupportProcess, RefusesAProgramThatIsNotThere) {
  ChildSettings settings = Shell("");
  settings.command = {"no-such-program-of-ours"};
  EXPECT_THROW(ChildProcess child(settings), std::runtime_error);
}

TEST_F(SupportProcess, EndsAChildWithItsOwner) {
  pid_t pid = 0;
  {
    ChildProcess child(Shell("exec sleep 60"));
    pid = child.Pid();
    EXPECT_EQ(kill(pid, 0), 0);
  }
  EXPECT_NE(kill(pid, 0), 0);
}

TEST_F(SupportProcess, SeesWhatAProcessHolds) {
  const ProcessHoldings before = inspect_process(getpid());
  EXPECT_GE(before.threads, 1u);
  {
    UdpSocket socket;
    const ProcessHoldings with_socket = inspect_process(getpid());
    EXPECT_EQ(with_socket.descriptors, before.descriptors + 1);
    EXPECT_EQ(with_socket.udp_ports.count(socket.Port()), 1u);
    EXPECT_EQ(describe_difference(before, with_socket),
              "+1 file descriptors, UDP ports still open: " + std::to_string(socket.Port()));
    EXPECT_FALSE(udp_port_is_free(socket.Port()));
  }
  const ProcessHoldings after = inspect_process(getpid());
  EXPECT_EQ(after, before) << describe_difference(before, after);
  EXPECT_EQ(describe_difference(before, after), "");
}

TEST_F(SupportProcess, DoesNotTakeAMissingProcessForAnEmptyOne) {
  ChildProcess child(Shell("exit 0"));
  ASSERT_TRUE(child.WaitForExit(seconds(10)).has_value());
  EXPECT_THROW(inspect_process(child.Pid()), std::runtime_error);
}

TEST_F(SupportProcess, TakesPortsFromTheSystem) {
  const std::uint16_t port = free_udp_port();
  EXPECT_GT(port, 0);
  EXPECT_TRUE(udp_port_is_free(port));
  OccupiedTcpPort occupied;
  EXPECT_GT(occupied.Port(), 0);
}

TEST_F(SupportProcess, DamagesOnlyItsCopyOfTheConfiguration) {
  ConfigurationCopy copy;
  const std::string original = read_text_file(copy.File("vars.xml"));
  EXPECT_FALSE(original.empty());
  copy.Replace("vars.xml", "sip_port=5060", "sip_port=5099");
  EXPECT_NE(read_text_file(copy.File("vars.xml")), original);
  EXPECT_THROW(copy.Replace("vars.xml", "not in there", ""), std::runtime_error);
  EXPECT_THROW(copy.Remove("not_there.xml"), std::runtime_error);
  EXPECT_EQ(read_text_file(ConfigurationCopy().File("vars.xml")), original);
}

TEST_F(SupportProcess, ReadsErrorLinesOnlyFromALogItUnderstands) {
  const std::string log = "x [NOTICE] a\nx [ERR] b\nx [WARNING] c\nx [CRIT] d\n";
  const std::vector<std::string> wanted = {"x [ERR] b", "x [CRIT] d"};
  EXPECT_EQ(error_lines(log), wanted);
  EXPECT_THROW(error_lines("ERROR: everything is broken\n"), std::runtime_error);
}

TEST_F(SupportProcess, ThreadThatIsStoppedStandsStillUntilItContinues) {
  ChildProcess child(Shell("while :; do echo x; sleep 0.01; done"));
  const auto grows = [&child] {
    const std::size_t before = child.Output().size();
    return wait_until(milliseconds(500), [&] { return child.Output().size() > before; });
  };
  ASSERT_TRUE(grows());
  EXPECT_THROW(StoppedThreads(child.Pid(), "sh", 0, 2), std::runtime_error) << "it has one thread";
  EXPECT_THROW(StoppedThreads(child.Pid(), "no such", 0, 1), std::runtime_error);
  StoppedThreads stopped(child.Pid(), "sh", 0, 1);
  EXPECT_FALSE(grows());
  stopped.Continue();
  EXPECT_TRUE(wait_until(seconds(10), grows));
}

}  // namespace
}  // namespace test_support
