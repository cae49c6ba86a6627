// An event-socket client that is not ours (the library "esl" from npm) against the switch: what its users rely on.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "build_paths.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using test_support::CallTrialSettings;
using test_support::ChildExit;
using test_support::ChildProcess;
using test_support::ChildSettings;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

const fs::path kSource = fs::path(KVX_SOURCE_DIR) / "tests" / "end_to_end" / "event_socket_client";
const fs::path kInstalled = fs::path(KVX_BUILD_DIR) / "event_socket_client";

/// Held while one of several tests, each a process of its own, installs the library.
class InstallLock {
 public:
  InstallLock() : file_(open((kInstalled / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
    if (file_ < 0 || flock(file_, LOCK_EX) != 0) throw std::runtime_error("no lock in " + kInstalled.string());
  }
  ~InstallLock() { close(file_); }
  InstallLock(const InstallLock&) = delete;
  InstallLock& operator=(const InstallLock&) = delete;

 private:
  int file_;
};

/// Puts the client into the build directory, with the library in the version and of the hash that package-lock.json
/// names. Done once; again when one of the files has changed.
void install_client() {
  fs::create_directories(kInstalled);
  const InstallLock lock;
  const fs::path done = kInstalled / "installed";
  std::string wanted;
  for (const char* name : {"package.json", "package-lock.json"}) wanted += test_support::read_text_file(kSource / name);
  for (const char* name : {"package.json", "package-lock.json", "client.mjs"}) {
    fs::copy_file(kSource / name, kInstalled / name, fs::copy_options::overwrite_existing);
  }
  if (test_support::read_text_file(done) == wanted) return;
  ChildSettings npm;
  npm.command = {"npm", "ci", "--prefer-offline", "--fetch-retries=1", "--ignore-scripts", "--no-audit", "--no-fund"};
  npm.directory = kInstalled;
  npm.output = kInstalled / "npm.log";
  ChildProcess child(npm);
  const auto exit = child.WaitForExit(seconds(90));
  if (!exit || !exit->Succeeded()) {
    throw std::runtime_error("npm cannot install the client library (is the package registry within reach?): " +
                             (exit ? exit->ToString() : "not done after 90 s") + "\n" + child.Output());
  }
  std::ofstream(done) << wanted;
}

/// A flat JSON object of strings, as events are sent; empty when the text is none.
std::vector<std::pair<std::string, std::string>> read_event(const std::string& json) {
  std::vector<std::string> texts;
  for (std::size_t at = json.find('"'); at != std::string::npos; at = json.find('"', at + 1)) {
    std::string text;
    for (++at; at < json.size() && json[at] != '"'; ++at) {
      if (json[at] == '\\') ++at;
      text += json[at];
    }
    texts.push_back(text);
  }
  std::vector<std::pair<std::string, std::string>> headers;
  for (std::size_t i = 0; i + 1 < texts.size(); i += 2) headers.emplace_back(texts[i], texts[i + 1]);
  return headers;
}

class EventSocketClient : public SwitchCall {
 protected:
  void SetUp() override { install_client(); }

  void StartClient(std::vector<std::string> steps, const std::string& password = "kelvaro") {
    ChildSettings settings;
    settings.command = {"node", "client.mjs", std::to_string(switch_->EventSocket().port), password};
    settings.command.insert(settings.command.end(), steps.begin(), steps.end());
    settings.directory = kInstalled;
    settings.output = directory_.Path() / "client.log";
    client_ = std::make_unique<ChildProcess>(settings);
  }
  int ClientsExitCode() {
    const auto exit = client_->WaitForExit(seconds(40));
    EXPECT_TRUE(exit.has_value()) << "the client does not end:\n" << client_->Output();
    return exit ? exit->code : -1;
  }
  /// What it told of one step: the JSON behind it. Empty when it did not come to that.
  std::string Told(const std::string& step) const {
    std::istringstream in(client_->Output());
    for (std::string line; std::getline(in, line);) {
      if (line.rfind(step + " ", 0) == 0) return line.substr(step.size() + 1);
    }
    return "";
  }
  bool WaitUntilTold(const std::string& step) {
    return test_support::wait_until(seconds(20), [&] { return !Told(step).empty() || !client_->Running(); }) &&
           !Told(step).empty();
  }
  /// The header's value in each event of that name, in the order of arrival.
  std::vector<std::string> InEvents(const std::string& name, const std::string& header) const {
    std::vector<std::string> values;
    std::istringstream in(client_->Output());
    for (std::string line; std::getline(in, line);) {
      if (line.rfind("event {", 0) != 0) continue;
      std::string found;
      bool named = false;
      for (const auto& [key, value] : read_event(line)) {
        if (key == "Event-Name" && value == name) named = true;
        if (key == header) found = value;
      }
      if (named) values.push_back(found);
    }
    return values;
  }

  /// A call with reports is made while the client listens in that format, until it has heard all of it.
  void FollowACall(const std::string& format) {
    CallTrialSettings settings;
    settings.dialled = "2001";
    settings.talk = seconds(2);
    settings.reports = true;
    StartWithPhones(settings);
    const std::string names = "event " + format + " CHANNEL_ANSWER CHANNEL_HANGUP RECV_RTCP_MESSAGE";
    StartClient({names, "await CHANNEL_ANSWER 2", "await CHANNEL_HANGUP 2", "await RECV_RTCP_MESSAGE 4", "exit"});
    ASSERT_TRUE(WaitUntilTold(names)) << client_->Output();
    trial_->Dial(switch_->Sip(), 1);
    trial_->WaitEstablished(seconds(10));
    const auto result = trial_->Talk().at(0);
    EXPECT_TRUE(result.Passed());
    ExpectHungUp();
    ASSERT_EQ(ClientsExitCode(), 0) << client_->Output();
    EXPECT_EQ(Told("exit"), "\"+OK bye\"");
    EXPECT_THAT(InEvents("CHANNEL_ANSWER", "Call-Direction"), UnorderedElementsAre("inbound", "outbound"));
    EXPECT_THAT(InEvents("CHANNEL_HANGUP", "Hangup-Cause"), ElementsAre("NORMAL_CLEARING", "NORMAL_CLEARING"));
    ExpectReports(result);
  }

  /// Each leg reports both directions; what its media server sent is what its phone heard.
  void ExpectReports(const test_support::RtpCallResult& result) {
    EXPECT_THAT(InEvents("RECV_RTCP_MESSAGE", "Sip-Use-Codec"), ElementsAre("PCMU", "PCMU", "PCMU", "PCMU"));
    const auto inflow = InEvents("RECV_RTCP_MESSAGE", "Inflow-RTP-Flag");
    const auto counts = InEvents("RECV_RTCP_MESSAGE", "Sender-Packet-Count");
    std::vector<std::string> heard;
    for (std::size_t i = 0; i < inflow.size() && i < counts.size(); ++i) {
      if (inflow[i] == "0") heard.push_back(counts[i]);
    }
    EXPECT_THAT(heard, UnorderedElementsAre(std::to_string(result.caller_reports.packets_heard),
                                            std::to_string(result.callee_reports.packets_heard)));
  }

  std::unique_ptr<ChildProcess> client_;
};

TEST_F(EventSocketClient, LogsInRunsCommandsAndSaysGoodbye) {
  StartSwitch();
  StartClient({"api status", "bgapi ms_count_show", "exit"});
  EXPECT_EQ(ClientsExitCode(), 0) << client_->Output();
  EXPECT_EQ(Told("connected"), "true");
  EXPECT_THAT(Told("api status"), HasSubstr("media server available"));
  EXPECT_EQ(Told("bgapi ms_count_show"), "\"Totally 0 MSs now!\\n\"");
  EXPECT_EQ(Told("exit"), "\"+OK bye\"");
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_F(EventSocketClient, IsTurnedAwayWithAWrongPassword) {
  StartSwitch();
  StartClient({"api status"}, "guessed");
  EXPECT_EQ(ClientsExitCode(), 1);
  EXPECT_EQ(client_->Output(), "refused \"-ERR invalid\"\n");
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_F(EventSocketClient, IsToldOfACommandThatIsNotThere) {
  StartSwitch();
  StartClient({"api no_such_command"});
  EXPECT_EQ(ClientsExitCode(), 1);
  EXPECT_THAT(Told("refused"), HasSubstr("-ERR no_such_command Command not found!"));
  ExpectAtRest();
}

TEST_F(EventSocketClient, FollowsACallAndItsReportsAsJson) {
  FollowACall("json");
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_F(EventSocketClient, FollowsACallAndItsReportsAsText) {
  FollowACall("plain");
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_F(EventSocketClient, HearsOnlyWhatItsFilterLetsThrough) {
  StartWithPhones({});
  const std::string names = "event json CHANNEL_CREATE CHANNEL_ANSWER CHANNEL_DESTROY";
  // Of the calling leg alone: it is the last to go, so nothing of the other leg can be on its way behind it.
  StartClient({"filter Call-Direction inbound", names, "await CHANNEL_DESTROY 1", "exit"});
  ASSERT_TRUE(WaitUntilTold(names)) << client_->Output();
  trial_->Dial(switch_->Sip(), 1);
  trial_->WaitEstablished(seconds(10));
  ExpectHungUp();
  EXPECT_EQ(ClientsExitCode(), 0) << client_->Output();
  for (const char* name : {"CHANNEL_CREATE", "CHANNEL_ANSWER", "CHANNEL_DESTROY"}) {
    EXPECT_THAT(InEvents(name, "Call-Direction"), ElementsAre("inbound")) << name;
  }
  ExpectAtRest();
  ExpectCleanStop();
}

}  // namespace
}  // namespace end_to_end
