// What a monitoring program on the event socket is told of calls.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "event_listener.h"
#include "support/sipp_agent.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrial;
using test_support::CallTrialSettings;
using test_support::ConfigurationCopy;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr char kRtcpEvent[] = "RECV_RTCP_MESSAGE";

std::size_t count_of(const std::vector<HeardEvent>& events, const std::string& name) {
  return static_cast<std::size_t>(
      std::count_if(events.begin(), events.end(), [&name](const HeardEvent& event) { return event.Name() == name; }));
}

std::vector<std::string> names_of(const std::vector<HeardEvent>& events, const std::string& direction) {
  std::vector<std::string> names;
  for (const HeardEvent& event : events) {
    if (event.Header("Call-Direction") == direction) names.push_back(event.Name());
  }
  return names;
}

/// The values of a header of the events of that name, each once.
std::set<std::string> values_of(const std::vector<HeardEvent>& events, const std::string& name,
                                const std::string& header) {
  std::set<std::string> values;
  for (const HeardEvent& event : events) {
    if (event.Name() == name) values.insert(event.Header(header));
  }
  return values;
}

/// Others may come between them.
void expect_in_order(const std::vector<std::string>& all, const std::vector<std::string>& wanted) {
  auto at = all.begin();
  for (const std::string& name : wanted) {
    at = std::find(at, all.end(), name);
    ASSERT_NE(at, all.end()) << name << " is missing or out of order: " << testing::PrintToString(all);
  }
}

std::string leg_of(const std::vector<HeardEvent>& events, const std::string& direction) {
  for (const HeardEvent& event : events) {
    if (event.Header("Call-Direction") == direction) return event.Header("Unique-ID");
  }
  return "no leg";
}

/// One direction of a leg's report: all that the switch knows without the far end's reports. `phone` is that far end.
void expect_report(const HeardEvent& event, const test_support::SdpAudio& far, const test_support::RtcpAccount& phone) {
  std::vector<std::string> names;
  for (const auto& header : event.headers) names.push_back(header.first);
  const auto own = std::find(names.begin(), names.end(), "Unique-ID");
  EXPECT_THAT(std::vector<std::string>(own, names.end()),
              ElementsAreArray({"Unique-ID", "Inflow-RTP-Flag", "Session-Stop-Time", "Session-Start-Time",
                                "Local-Member-IP", "Remote-Member-IP", "Sender-Packet-Count", "Octect-Packet-Count",
                                "SR-Sent-Count", "Total-Lost-RTP-Packets", "Maximum-Fraction-Lost",
                                "Maximum-InterArrival-Jitter", "Average-InterArrival-Jitter", "Maximum-Round-Trip-Time",
                                "Average-Round-Trip-Time", "Sip-Use-Codec", "Sip-Use-Codec-Rate", "Capture-Time"}));
  EXPECT_EQ(event.Header("Local-Member-IP"), far.address);
  EXPECT_EQ(event.Header("Remote-Member-IP"), "127.0.0.1");
  EXPECT_EQ(event.Header("Sip-Use-Codec"), "PCMU");
  EXPECT_EQ(event.Header("Sip-Use-Codec-Rate"), "8000");
  EXPECT_LT(event.Header("Session-Start-Time"), event.Header("Session-Stop-Time"));
  if (event.Header("Inflow-RTP-Flag") != "0") return;
  // What the media server sent is what the phone heard: nothing is lost on the way to it.
  EXPECT_EQ(event.Number("Sender-Packet-Count"), static_cast<long>(phone.packets_heard));
  EXPECT_EQ(event.Number("Octect-Packet-Count"), 160 * static_cast<long>(phone.packets_heard)) << "20 ms of PCMU";
}

class EventSocketCall : public SwitchCall {
 protected:
  /// Before the call; ended with Dismiss, so that the switch is seen at rest.
  void Listen(const std::string& names) { listener_ = std::make_unique<EventListener>(switch_->EventSocket(), names); }
  void Dismiss() { listener_.reset(); }

  /// Until both legs of `calls` calls are gone.
  const std::vector<HeardEvent>& HearCallsEnd(std::size_t calls) {
    return listener_->WaitUntil(seconds(20), [calls](const std::vector<HeardEvent>& heard) {
      return count_of(heard, "CHANNEL_DESTROY") >= 2 * calls;
    });
  }

  test_support::SippSettings SecondCaller(const std::string& dialled) const {
    test_support::SippSettings caller;
    caller.name = "second_caller";
    caller.scenario = "caller_awaits_bye";
    caller.dialled = dialled;
    caller.remote = switch_->Sip();
    caller.directory = directory_.Path();
    caller.calls.resize(1);
    caller.calls[0].number = "4000";
    caller.calls[0].media_port = 40000;  // nothing is ever sent there
    return caller;
  }

  void ExpectRestAndCleanStop() {
    Dismiss();
    ExpectAtRest();
    ExpectCleanStop();
  }

  std::unique_ptr<EventListener> listener_;
};

TEST_F(EventSocketCall, TellsACallFromItsBeginningToItsEnd) {
  StartWithPhones({});
  Listen("ALL");
  trial_->Dial(switch_->Sip(), 1);
  trial_->WaitEstablished(seconds(10));
  ExpectHungUp();
  const auto& heard = HearCallsEnd(1);
  expect_in_order(names_of(heard, "inbound"), {"CHANNEL_CREATE", "CHANNEL_ANSWER", "CHANNEL_BRIDGE", "CHANNEL_HANGUP",
                                               "CHANNEL_HANGUP_COMPLETE", "CHANNEL_DESTROY"});
  expect_in_order(names_of(heard, "outbound"),
                  {"CHANNEL_CREATE", "CHANNEL_ANSWER", "CHANNEL_HANGUP", "CHANNEL_HANGUP_COMPLETE", "CHANNEL_DESTROY"});
  EXPECT_THAT(values_of(heard, "CHANNEL_BRIDGE", "Bridge-A-Unique-ID"), ElementsAre(leg_of(heard, "inbound")));
  EXPECT_THAT(values_of(heard, "CHANNEL_BRIDGE", "Bridge-B-Unique-ID"), ElementsAre(leg_of(heard, "outbound")));
  EXPECT_THAT(values_of(heard, "CHANNEL_HANGUP_COMPLETE", "Hangup-Cause"), ElementsAre("NORMAL_CLEARING"));
  const auto media_sessions = values_of(heard, "CHANNEL_ANSWER", "variable_media_session_uuid");
  ASSERT_EQ(media_sessions.size(), 1u) << "one media session for both legs";
  EXPECT_EQ(media_sessions.begin()->size(), 36u);
  EXPECT_EQ(count_of(heard, kRtcpEvent), 0u) << "nobody asked for reports";
  ExpectRestAndCleanStop();
}

TEST_F(EventSocketCall, ReportsEachDirectionOfEachLegWhenTheDialplanSaysSo) {
  CallTrialSettings settings;
  settings.dialled = "2001";
  settings.talk = seconds(2);
  settings.reports = true;
  StartWithPhones(settings);
  Listen("CHANNEL_ANSWER CHANNEL_DESTROY RECV_RTCP_MESSAGE");
  trial_->Dial(switch_->Sip(), 1);
  trial_->WaitEstablished(seconds(10));
  const auto result = trial_->Talk().at(0);
  EXPECT_TRUE(result.Passed()) << result.to_callee.Reasons() << " / " << result.to_caller.Reasons();
  const test_support::CallView view = trial_->Calls().at(0);
  ExpectHungUp();
  const auto& heard = HearCallsEnd(1);
  const std::string caller_leg = leg_of(heard, "inbound");
  std::vector<std::string> directions_of_caller;
  std::vector<std::string> directions_of_callee;
  for (const HeardEvent& event : heard) {
    if (event.Name() != kRtcpEvent) continue;
    const bool callers = event.Header("Unique-ID") == caller_leg;
    (callers ? directions_of_caller : directions_of_callee).push_back(event.Header("Inflow-RTP-Flag"));
    expect_report(event, callers ? view.caller_far : view.callee_far,
                  callers ? result.caller_reports : result.callee_reports);
  }
  EXPECT_THAT(directions_of_caller, ElementsAre("1", "0"));
  EXPECT_THAT(directions_of_callee, ElementsAre("1", "0"));
  ExpectRestAndCleanStop();
}

TEST_F(EventSocketCall, ReportsOnlyTheCallingLegWhenOnlyThatIsSet) {
  ConfigurationCopy configuration;
  configuration.Replace("dialplan/default.xml", "application=\"export\" data=\"generate_rtcp_report=true\"",
                        "application=\"set\" data=\"generate_rtcp_report=true\"");
  switch_settings_.conf = configuration.Path();
  CallTrialSettings settings;
  settings.dialled = "2001";
  settings.talk = milliseconds(500);
  StartWithPhones(settings);
  Listen("CHANNEL_DESTROY RECV_RTCP_MESSAGE");
  trial_->Dial(switch_->Sip(), 1);
  trial_->WaitEstablished(seconds(10));
  EXPECT_TRUE(trial_->Talk().at(0).Passed());  // a leg without RTP has nothing to report
  ExpectHungUp();
  const auto& heard = HearCallsEnd(1);
  ASSERT_EQ(count_of(heard, kRtcpEvent), 2u);
  EXPECT_THAT(values_of(heard, kRtcpEvent, "Unique-ID"), ElementsAre(leg_of(heard, "inbound")));
  ExpectRestAndCleanStop();
}

TEST_F(EventSocketCall, FollowsOneLegThroughAFilter) {
  CallTrialSettings settings;
  settings.calls = 3;
  settings.talk = milliseconds(0);
  StartWithPhones(settings);
  Listen("CHANNEL_CREATE CHANNEL_DESTROY");
  EXPECT_EQ(listener_->Command("filter Caller-Caller-ID-Number 3001"),
            "+OK filter added. [Caller-Caller-ID-Number]=[3001]");
  trial_->Dial(switch_->Sip(), 3);
  ExpectHungUp();
  const auto& heard = HearCallsEnd(1);
  EXPECT_EQ(heard.size(), 4u);
  for (const HeardEvent& event : heard) EXPECT_EQ(event.Header("Caller-Caller-ID-Number"), "3001");
  ExpectRestAndCleanStop();
}

TEST_F(EventSocketCall, RunsACommandInTheBackground) {
  StartSwitch();
  Listen("BACKGROUND_JOB");
  EXPECT_EQ(listener_->Command("bgapi ms_count_show\nJob-UUID: count"), "+OK Job-UUID: count");
  const auto& heard = listener_->WaitFor(1, seconds(10));
  ASSERT_EQ(heard.size(), 1u);
  EXPECT_EQ(heard[0].Header("Job-UUID"), "count");
  EXPECT_EQ(heard[0].Header("Job-Command"), "ms_count_show");
  EXPECT_EQ(heard[0].body, switch_->Api("ms_count_show"));
  ExpectRestAndCleanStop();
}

// A second call, whose calling leg the dialplan puts into the media session of the first.
TEST_F(EventSocketCall, ALegThatNamesAMediaSessionLandsInIt) {
  ConfigurationCopy configuration;
  configuration.Replace("dialplan/default.xml", "<context name=\"default\">",
                        "<context name=\"default\">\n"
                        "<extension name=\"join\"><condition field=\"destination_number\" expression=\"^join-(.+)$\">"
                        "<action application=\"set\" data=\"media_session_uuid=$1\"/>"
                        "<action application=\"bridge\" data=\"sip:2000@$${phone_b}\"/>"
                        "</condition></extension>");
  switch_settings_.conf = configuration.Path();
  CallTrialSettings settings;
  settings.calls = 2;
  settings.caller_scenario = "caller_awaits_bye";
  settings.talk = seconds(1);
  StartWithPhones(settings);
  Listen("CHANNEL_ANSWER");
  trial_->Dial(switch_->Sip(), 1);
  trial_->WaitEstablished(seconds(10));
  const std::string session = listener_->WaitFor(2, seconds(10)).at(0).Header("variable_media_session_uuid");
  ASSERT_EQ(session.size(), 36u);

  test_support::SippAgent caller(SecondCaller("join-" + session));
  const auto& heard = listener_->WaitFor(4, seconds(10));
  ASSERT_EQ(heard.size(), 4u) << caller.Account();
  EXPECT_THAT(values_of(heard, "CHANNEL_ANSWER", "variable_media_session_uuid"), ElementsAre(session));
  const auto counts = test_support::ask_counts(*switch_);
  EXPECT_EQ(counts.sessions, 4);
  EXPECT_EQ(counts.media_sessions, 1);
  EXPECT_EQ(switch_->Api("hupall").rfind("+OK", 0), 0u);
  ASSERT_TRUE(caller.WaitForExit(seconds(20)).has_value()) << caller.Account();
  ExpectHungUp();
  ExpectRestAndCleanStop();
}

TEST_F(EventSocketCall, ALegThatNamesAMediaSessionThatIsNotThereIsRefused) {
  ConfigurationCopy configuration;
  configuration.Replace("dialplan/default.xml", "application=\"export\" data=\"generate_rtcp_report=true\"",
                        "application=\"set\" data=\"media_session_uuid=01234567-89ab-4cde-8123-456789abcdef\"");
  switch_settings_.conf = configuration.Path();
  StartSwitch();
  EXPECT_EQ(RefusedWith("caller_is_refused", "2001"), 503);
  ExpectLogLine({"[ERR]", "Cannot find Media Session in Media Session Table!"});
  ExpectAtRest();
  ASSERT_NO_THROW(switch_->Stop(seconds(30)));
}

}  // namespace
}  // namespace end_to_end
