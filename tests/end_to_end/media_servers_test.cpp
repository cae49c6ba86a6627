// Two media servers under an operator's commands, with real calls on them. Their names are those of the sample; over
// daemons, which have other addresses, what is asked and told is translated.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrial;
using test_support::CallTrialSettings;

constexpr char kFirst[] = "127.0.0.1";
constexpr char kSecond[] = "127.0.0.2";

class MediaServers : public OnEachDriver<SwitchCall> {
 protected:
  /// Phones that are called by the number 2000 and talk until they are hung up, and others at 1000 whose callers hang
  /// up.
  void StartWithPhonesAtBothNumbers(std::size_t lasting, std::size_t brief) {
    CallTrialSettings first;
    first.calls = lasting;
    first.caller_scenario = "caller_awaits_bye";
    first.calls_per_second = 50;
    CallTrialSettings second;
    second.calls = std::max<std::size_t>(brief, 1);
    second.dialled = "1000";
    lasting_ = Phones("lasting", first);
    brief_ = Phones("brief", second);
    switch_settings_.variables = {{"phone_a", brief_->CalleeAddress().ToString()}};
    StartSwitch(lasting_->CalleeAddress().ToString());
  }
  void Establish(CallTrial& trial, std::size_t calls) {
    trial.Dial(switch_->Sip(), calls);
    ASSERT_NO_THROW(trial.WaitEstablished(seconds(30)));
  }
  static void ExpectSpeech(CallTrial& trial) {
    for (const auto& result : trial.Talk()) {
      EXPECT_TRUE(result.to_callee.Passed()) << "to the callee: " << result.to_callee.Reasons();
      EXPECT_TRUE(result.to_caller.Passed()) << "to the caller: " << result.to_caller.Reasons();
    }
  }
  /// The media server of each call, by the address that its phones were told; both legs' must be the same.
  std::multiset<std::string> Places(const CallTrial& trial) const {
    std::multiset<std::string> places;
    for (const auto& call : trial.Calls()) {
      EXPECT_EQ(call.caller_far.address, call.callee_far.address);
      places.insert(AsInSample(call.caller_far.address));
    }
    return places;
  }
  /// What the operator reads, through kvx-cli.
  std::string Command(const std::string& line) {
    const CliRun run = Cli({"-x", AsTheyAre(line)});
    EXPECT_EQ(run.code, 0) << line << ": " << run.output;
    return AsInSample(run.output);
  }
  /// A table with a column of addresses, which is as wide as they are long: octet by octet over the sample's servers,
  /// word by word over others.
  void ExpectTable(const std::string& line, const std::string& table) {
    const std::string told = Command(line);
    if (IsOnRtpengine()) {
      EXPECT_EQ(WordsOf(told), WordsOf(table)) << told;
    } else {
      EXPECT_EQ(told, table);
    }
  }
  std::string AsInSample(const std::string& text) const {
    return Renamed(Renamed(text, MediaServerAddress(0), kFirst), MediaServerAddress(1), kSecond);
  }
  std::string AsTheyAre(const std::string& text) const {
    return Renamed(Renamed(text, kFirst, MediaServerAddress(0)), kSecond, MediaServerAddress(1));
  }
  void WaitForCount(const std::string& text) {
    EXPECT_TRUE(test_support::wait_until(seconds(10), [&] { return switch_->Api("ms_count_show") == text; }))
        << switch_->Api("ms_count_show");
  }

  std::unique_ptr<CallTrial> lasting_;
  std::unique_ptr<CallTrial> brief_;

 private:
  static std::string Renamed(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
      text.replace(at, from.size(), to);
    }
    return text;
  }
  /// The lines' words; the rule below the head is one, however long.
  static std::vector<std::vector<std::string>> WordsOf(const std::string& text) {
    std::vector<std::vector<std::string>> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
      std::istringstream words(line);
      lines.emplace_back();
      for (std::string word; words >> word;) lines.back().push_back(word[0] == '=' ? "=" : word);
    }
    return lines;
  }

  std::unique_ptr<CallTrial> Phones(const std::string& name, CallTrialSettings settings) {
    settings.relays_source = IsOnRtpengine();
    settings.directory = directory_.Path() / name;
    std::filesystem::create_directory(settings.directory);
    return std::make_unique<CallTrial>(settings);
  }
};

TEST_P(MediaServers, ReportsTellTheCallsOnEach) {
  StartWithPhonesAtBothNumbers(3, 0);
  Establish(*lasting_, 3);
  EXPECT_EQ(Places(*lasting_), (std::multiset<std::string>{kFirst, kFirst, kSecond}));
  ExpectTable(
      "kvrms_stats usage all",
      "   IP                MAC            Status     Active Calls     Active %     Max Calls     Max %     \n"
      "==================================================================================================\n"
      "127.0.0.1     02:00:00:00:00:01       IS             2             0%            2           0%      \n"
      "127.0.0.2     02:00:00:00:00:02       IS             1             0%            1           0%      \n");
  EXPECT_EQ(Command("kvrms_stats usage"),
            "Active Calls     Active %     Max Calls     Max %     \n"
            "===================================================\n"
            "      3             0%            3           0%      \n");
  EXPECT_EQ(Command("kvrms_stats_xml usage all"),
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><stats><usage><modules>"
            "<module><IP>127.0.0.1</IP><MAC>02:00:00:00:00:01</MAC><Status>IS</Status><active_calls>2</active_calls>"
            "<active_calls_percentage>0</active_calls_percentage><max_calls>2</max_calls>"
            "<max_calls_percentage>0</max_calls_percentage></module>"
            "<module><IP>127.0.0.2</IP><MAC>02:00:00:00:00:02</MAC><Status>IS</Status><active_calls>1</active_calls>"
            "<active_calls_percentage>0</active_calls_percentage><max_calls>1</max_calls>"
            "<max_calls_percentage>0</max_calls_percentage></module></modules></usage></stats>\n");
  ExpectTable("kvrms_list_hardware all",
              "   IP                MAC            Status     \n"
              "============================================\n"
              "127.0.0.1     02:00:00:00:00:01       IS       \n"
              "127.0.0.2     02:00:00:00:00:02       IS       \n");
  EXPECT_EQ(Command("kvrms_list_hardware_xml mac 02-00-00-00-00-02"),
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><stats><hardware><modules><module><IP>127.0.0.2</IP>"
            "<MAC>02-00-00-00-00-02</MAC><Status>IS</Status></module></modules></hardware></stats>\n");
  EXPECT_EQ(Command("ms_count_show"), "Totally 3 MSs now!\n");
  EXPECT_EQ(Command("console_complete kvrms_stats "), "usage\nduration\n");
  EXPECT_EQ(Command("console_complete kvrms_control service "), "up\ndown\n");
  EXPECT_EQ(Command("kvrms_rtcp_stats all"), "");
  EXPECT_EQ(Command("kvrms_control_xml session term"), "Hung up all 3 calls!\n");
  ASSERT_NO_THROW(lasting_->WaitHungUp(seconds(30)));
  ExpectAtRest();
  ASSERT_NO_THROW(switch_->Stop(seconds(30)));  // the legs have told the log that they are in no table
}

// The calls last as long as their phones talk, two seconds or so: no clock can be told otherwise from here.
TEST_P(MediaServers, DurationsAreThoseOfTheCallsThatEnded) {
  constexpr char kNone[] =
      "Min Duration     Max Duration     Average Duration     \n"
      "====================================================\n"
      "  00:00:00         00:00:00           00:00:00         \n";
  StartWithPhonesAtBothNumbers(1, 1);
  Establish(*brief_, 1);
  EXPECT_EQ(Command("kvrms_stats duration"), kNone) << "of a call that has not ended";
  ExpectSpeech(*brief_);
  ASSERT_NO_THROW(brief_->WaitHungUp(seconds(30)));
  ExpectAtRest();
  const std::string after = Command("kvrms_stats duration");
  EXPECT_NE(after, kNone);
  const std::string row = after.substr(after.rfind("  00:"));
  const std::string seconds_of_it = row.substr(8, 2);
  EXPECT_GE(std::stoi(seconds_of_it), 1) << after;
  EXPECT_EQ(after,
            "Min Duration     Max Duration     Average Duration     \n"
            "====================================================\n"
            "  00:00:" +
                seconds_of_it + "         00:00:" + seconds_of_it + "           00:00:" + seconds_of_it +
                "         \n");
  ExpectCleanStop();
}

TEST_P(MediaServers, OutOfServiceOneKeepsItsCallsAndTheOtherTakesNewOnes) {
  StartWithPhonesAtBothNumbers(4, 5);
  Establish(*lasting_, 4);
  EXPECT_EQ(Places(*lasting_), (std::multiset<std::string>{kFirst, kFirst, kSecond, kSecond}));

  EXPECT_EQ(Command("kvrms_control service down ip 127.0.0.2"), "Media Server 127.0.0.2 is put out of service!\n");
  ExpectSpeech(*lasting_);
  Establish(*brief_, 3);
  EXPECT_EQ(Places(*brief_), (std::multiset<std::string>{kFirst, kFirst, kFirst}));
  ExpectTable(
      "kvrms_stats usage all",
      "   IP                MAC            Status     Active Calls     Active %     Max Calls     Max %     \n"
      "==================================================================================================\n"
      "127.0.0.1     02:00:00:00:00:01       IS             5             0%            5           0%      \n"
      "127.0.0.2     02:00:00:00:00:02       OOS            2             0%            2           0%      \n");
  ExpectSpeech(*brief_);
  ASSERT_NO_THROW(brief_->WaitHungUp(seconds(30)));
  WaitForCount("Totally 4 MSs now!\n");

  EXPECT_EQ(Command("kvrms_control service up mac 02-00-00-00-00-02"), "Media Server 127.0.0.2 is put into service!\n");
  Establish(*brief_, 2);
  EXPECT_EQ(Places(*brief_), (std::multiset<std::string>{kFirst, kSecond}));
  ExpectSpeech(*brief_);
  ASSERT_NO_THROW(brief_->WaitHungUp(seconds(30)));

  switch_->Api("hupall");
  ASSERT_NO_THROW(lasting_->WaitHungUp(seconds(30)));
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(MediaServers, AllOutOfServiceRefuseCallsUntilOneIsBack) {
  StartSwitch();
  EXPECT_EQ(Command("kvrms_control service down"),
            "Media Server 127.0.0.1 is put out of service!Media Server 127.0.0.2 is put out of service!\n");
  EXPECT_NE(Command("status").find("media server not available"), std::string::npos);
  EXPECT_EQ(RefusedWith("caller_is_refused", "2000"), 503);
  EXPECT_EQ(Command("kvrms_control service up ip 127.0.0.2"), "Media Server 127.0.0.2 is put into service!\n");
  EXPECT_NE(Command("status").find("media server available"), std::string::npos);
  ExpectAtRest();
}

TEST_P(MediaServers, CallsOfOneAreHungUpAndThoseOfTheOtherTalkOn) {
  StartWithPhonesAtBothNumbers(4, 0);
  Establish(*lasting_, 4);
  EXPECT_EQ(Command("kvrms_control session term ip 127.0.0.2"), "Hung up 2 calls related to IP address 127.0.0.2!\n");
  WaitForCount("Totally 2 MSs now!\n");
  for (const auto& call : lasting_->Calls()) {
    const bool ends = AsInSample(call.caller_far.address) == kSecond;
    for (auto* phones : {&lasting_->Caller(), &lasting_->Callee()}) {
      const auto told = [&] {
        const auto dialogue = phones->Dialogue(call.caller.FromUser());
        return dialogue && dialogue->Request("BYE", false) != nullptr;
      };
      EXPECT_EQ(ends ? test_support::wait_until(seconds(10), told) : told(), ends) << call.caller.FromUser();
    }
  }
  EXPECT_EQ(Command("kvrms_control session term ip 127.0.0.2"), "") << "there are none left";
  EXPECT_EQ(Command("kvrms_control session term mac 02:00:00:00:00:01"),
            "Hung up 2 calls related to IP address 127.0.0.1!\n");
  ASSERT_NO_THROW(lasting_->WaitHungUp(seconds(30)));
  ExpectAtRest();
  ExpectCleanStop();
}

// A hundred calls, some asked for, some ringing, some talking, whenever the command comes.
TEST_P(MediaServers, TermAllWhileAHundredCallsComeLeavesNothingAndTheNextCallIsCarried) {
  constexpr std::size_t kCalls = 100;
  StartWithPhonesAtBothNumbers(kCalls, 1);
  lasting_->Dial(switch_->Sip(), kCalls);
  int hung_up = 0;
  const bool over = test_support::wait_until(seconds(90), [&] {
    if (switch_->Api("kvrms_control session term all").rfind("Hung up all ", 0) == 0) ++hung_up;
    return lasting_->Caller().WaitForExit(milliseconds(30)).has_value();
  });
  ASSERT_TRUE(over) << lasting_->Account();
  EXPECT_GT(hung_up, 1);
  const auto dialogues = lasting_->Caller().Dialogues();
  EXPECT_EQ(dialogues.size(), kCalls);
  for (const auto& dialogue : dialogues) {
    const auto* answer = dialogue.FinalAnswer();
    ASSERT_NE(answer, nullptr) << dialogue.Flow();
    EXPECT_TRUE(answer->Status() != 200 || dialogue.Request("BYE", false) != nullptr) << dialogue.Flow();
  }
  ExpectAtRest();
  Establish(*brief_, 1);
  ExpectSpeech(*brief_);
  ASSERT_NO_THROW(brief_->WaitHungUp(seconds(30)));
  ExpectAtRest();
  ASSERT_NO_THROW(switch_->Stop(seconds(30)));
}

INSTANTIATE_TEST_SUITE_P(Over, MediaServers, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
