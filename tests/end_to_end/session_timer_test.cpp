// Session timers (RFC 4028) as phones meet them: a call lives as long as it is refreshed.

#include <gtest/gtest.h>

#include <future>

#include "ordered_call.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrialSettings;
using test_support::SipDialogue;
using test_support::SipMessage;
using test_support::SippAgent;

const std::string kReason = "Q.850;cause=102;text=\"RECOVERY_ON_TIMER_EXPIRE\"";

class SessionTimerCall : public OnEachDriver<OrderedCall> {
 protected:
  void StartWithIntervalsFrom(const std::string& least) {
    Configuration().Replace("sip_profiles/internal.xml", "name=\"minimum-session-expires\" value=\"120\"",
                            "name=\"minimum-session-expires\" value=\"" + least + "\"");
  }

  static std::size_t Refreshes(SippAgent& phone, const std::string& method) {
    return count_messages(phone.Dialogues().at(0),
                          [&](const SipMessage& m) { return m.Status() == 200 && !m.sent && m.Method() == method; });
  }
};

// Without a refresh this call would end after six seconds (RFC 4028, 10); it is talked on for seven. Then both phones
// fall silent.
TEST_P(SessionTimerCall, LastsWhileBothPhonesRefreshAndEndsWithAReasonWhenTheyStop) {
  StartWithIntervalsFrom("1");
  CallTrialSettings settings;
  settings.caller.header = "Session-Expires: 9;refresher=uac";
  settings.callee.header = "Session-Expires: 9;refresher=uas";
  StartCall(settings);
  EXPECT_EQ(trial_->Calls().at(0).caller.Answer(200, "INVITE", false)->Header("Session-Expires"), "9;refresher=uac");

  auto talk = std::async(std::launch::async, [this] { ExpectTheyTalk(Caller(), Callee(), seconds(7)); });
  const std::string refresher = "Session-Expires: 9;refresher=uac";
  do {
    EXPECT_EQ(Order(CallerAgent(), {"REFRESH", MediaOf(Caller()), "sendrecv", refresher}).Header("Session-Expires"),
              "9;refresher=uac");
    EXPECT_EQ(Order(CalleeAgent(), {"INVITE", MediaOf(Callee()), "sendrecv", refresher}).Header("Session-Expires"),
              "9;refresher=uac");
  } while (talk.wait_for(milliseconds(500)) != std::future_status::ready);
  EXPECT_GE(Refreshes(CallerAgent(), "UPDATE"), 3u);
  EXPECT_GE(Refreshes(CalleeAgent(), "INVITE"), 3u);

  ExpectHungUp();  // nobody hangs up, and nobody refreshes
  for (const SipDialogue& phone : {CallerAgent().Dialogues().at(0), CalleeAgent().Dialogues().at(0)}) {
    const auto* bye = phone.Request("BYE", false);
    ASSERT_NE(bye, nullptr) << phone.Flow();
    EXPECT_EQ(bye->Header("Reason"), kReason);
  }
  ExpectLogLine({"The session of leg ", " was not refreshed in time"});
  ExpectEndedWell();
}

TEST_P(SessionTimerCall, TooSmallAnIntervalIsRefusedAndTheOneThatWasNamedTaken) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_asks_again";
  StartCall(settings);
  const SipDialogue& caller = trial_->Calls().at(0).caller;
  ASSERT_NE(caller.Answer(422, "INVITE", false), nullptr) << caller.Flow();
  EXPECT_EQ(caller.Answer(422, "INVITE", false)->Header("Min-SE"), "120");
  EXPECT_EQ(caller.Answer(200, "INVITE", false)->Header("Session-Expires"), "120;refresher=uac");
  ExpectTheyTalk(Caller(), Callee(), milliseconds(800));
  HangUp();
  ExpectEndedWell();
}

INSTANTIATE_TEST_SUITE_P(Over, SessionTimerCall, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
