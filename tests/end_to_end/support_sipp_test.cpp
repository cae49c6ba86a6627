// The phones by themselves: sipp calls sipp, no switch between them.

#include <gtest/gtest.h>

#include "support/sipp_agent.h"
#include "support/sipp_call_trial.h"

namespace test_support {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const char kLog[] =
    "----------------------------------------------- 2026-01-02 03:04:05.000001\n"
    "UDP message sent (112 bytes):\n\n"
    "INVITE sip:2000@127.0.0.1:5060 SIP/2.0\r\nFrom: \"7\" <sip:7@127.0.0.1:1>;tag=1\r\nCall-ID: a\r\nCSeq: 1 "
    "INVITE\r\n"
    "\r\nv=0\r\n\n"
    "----------------------------------------------- 2026-01-02 03:04:05.000002\n"
    "UDP message received [64] bytes :\n\n"
    "SIP/2.0 486 Busy Here\r\nCall-ID: a\r\nCSeq: 1 INVITE\r\nX: ------\r\n\r\n"
    "\n"
    "----------------------------------------------- 2026-01-02 03:04:05.000003\n"
    "UDP message sent (500 bytes):\n\n"
    "ACK sip:2000";

TEST(SupportSipp, ReadsItsMessageLogWhileItIsWritten) {
  const auto messages = parse_sipp_messages(kLog);
  ASSERT_EQ(messages.size(), 2u) << "the third one is not complete";
  EXPECT_TRUE(messages[0].sent);
  EXPECT_EQ(messages[0].Title(), "INVITE");
  EXPECT_EQ(messages[0].FromUser(), "7");
  EXPECT_EQ(messages[0].body, "v=0\r\n");
  EXPECT_FALSE(messages[1].sent);
  EXPECT_EQ(messages[1].Status(), 486);
  EXPECT_EQ(messages[1].Title(), "486 Busy Here (INVITE)");
  EXPECT_EQ(messages[1].at - messages[0].at, std::chrono::microseconds(1));
  const auto dialogues = group_dialogues(messages);
  ASSERT_EQ(dialogues.size(), 1u);
  EXPECT_EQ(dialogues[0].Flow(), "> INVITE  < 486");
  EXPECT_FALSE(dialogues[0].Established());
  ASSERT_NE(dialogues[0].FinalAnswer(), nullptr);
}

TEST(SupportSipp, ReadsAudioOfASessionDescription) {
  const auto audio = parse_sdp_audio(
      "v=0\r\nc=IN IP4 10.0.0.1\r\nt=0 0\r\nm=audio 4000 RTP/AVP 8 97 101\r\nc=IN IP4 127.0.0.9\r\n"
      "a=rtpmap:97 iLBC/8000\r\na=rtpmap:101 telephone-event/8000\r\nm=video 4002 RTP/AVP 31\r\n");
  ASSERT_TRUE(audio.has_value());
  EXPECT_EQ(audio->address, "127.0.0.9");
  EXPECT_EQ(audio->port, 4000);
  ASSERT_EQ(audio->codecs.size(), 3u);
  EXPECT_EQ(audio->FirstAudio()->name, "PCMA");
  EXPECT_EQ(audio->Find("ILBC")->payload_type, 97);
  EXPECT_EQ(audio->Find("telephone-event")->payload_type, 101);
  EXPECT_EQ(audio->Find("PCMU"), nullptr);
  EXPECT_FALSE(parse_sdp_audio("v=0\r\nc=IN IP4 10.0.0.1\r\nm=video 1 RTP/AVP 31\r\n").has_value());
  EXPECT_FALSE(parse_sdp_audio("").has_value());
}

class SupportSippCall : public testing::Test {
 protected:
  CallTrialSettings Settings(std::size_t calls) {
    CallTrialSettings settings;
    settings.calls = calls;
    settings.directory = directory_.Path();
    settings.talk = milliseconds(1000);
    return settings;
  }

  TemporaryDirectory directory_;
};

TEST_F(SupportSippCall, ShowsBothEndsOfACallAndTheMissingMediaServerBetween) {
  CallTrialSettings settings = Settings(1);
  settings.caller_digits = "42";
  CallTrial trial(settings);
  trial.Dial(trial.CalleeAddress(), 1);
  trial.WaitEstablished(seconds(10));
  ASSERT_EQ(trial.Calls().size(), 1u);
  const CallView& call = trial.Calls()[0];
  EXPECT_EQ(call.caller.FromUser(), "3000");
  EXPECT_EQ(call.caller_far.port, call.callee_own.port);
  EXPECT_EQ(call.callee_far.port, call.caller_own.port);
  const auto results = trial.Talk();
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0].to_callee.received, results[0].to_callee.sent);
  EXPECT_EQ(results[0].to_callee.digits, "42");
  EXPECT_FALSE(results[0].to_callee.Passed()) << "the sender's own stream came, no media server made one";
  EXPECT_NE(results[0].to_callee.Reasons().find("the sender's SSRC"), std::string::npos)
      << results[0].to_callee.Reasons();
  trial.WaitHungUp(seconds(15));
  trial.WaitCalleeDone(seconds(5));
  EXPECT_EQ(trial.Caller().Dialogues()[0].Flow(), "> INVITE  < 180  < 200  > ACK  > BYE  < 200");
  EXPECT_EQ(trial.Callee().Dialogues()[0].Flow(), "< INVITE  > 180  > 200  < ACK  < BYE  > 200");
}

TEST_F(SupportSippCall, TellsTwentyCallsApart) {
  CallTrial trial(Settings(20));
  trial.Dial(trial.CalleeAddress(), 20);
  trial.WaitEstablished(seconds(20));
  ASSERT_EQ(trial.Calls().size(), 20u);
  for (const CallView& call : trial.Calls()) {
    EXPECT_EQ(call.caller.FromUser(), call.callee.FromUser());
    EXPECT_EQ(call.caller_far.port, call.callee_own.port);
  }
  for (const RtpCallResult& result : trial.Talk()) {
    EXPECT_EQ(result.to_callee.received, result.to_callee.sent);
    EXPECT_EQ(result.to_caller.received, result.to_caller.sent);
    EXPECT_GT(result.to_caller.received, 30u);
  }
  trial.WaitHungUp(seconds(30));
  trial.WaitCalleeDone(seconds(10));
}

TEST_F(SupportSippCall, SaysWhatHappenedWhenACallDoesNotComeUp) {
  CallTrialSettings settings = Settings(1);
  settings.callee_scenario = "callee_is_busy";
  CallTrial trial(settings);
  trial.Dial(trial.CalleeAddress(), 1);
  try {
    trial.WaitEstablished(seconds(10));
    FAIL() << "a refused call counts as established";
  } catch (const std::runtime_error& error) {
    const std::string text = error.what();
    EXPECT_NE(text.find("< 486"), std::string::npos) << text;
    EXPECT_NE(text.find("SIP/2.0 486 Busy Here"), std::string::npos) << "sipp's error file is not shown: " << text;
  }
  EXPECT_THROW(trial.WaitHungUp(seconds(10)), std::runtime_error);
  EXPECT_THROW(trial.Talk(), std::runtime_error);
}

TEST_F(SupportSippCall, ItsScenariosFitTogether) {
  const std::pair<const char*, const char*> pairs[] = {
      {"caller_awaits_bye", "callee_hangs_up"},        {"caller_cancels", "callee_never_answers"},
      {"caller_is_refused", "callee_is_busy"},         {"caller_is_refused", "callee_declines"},
      {"caller_with_malformed_sdp", "callee_is_busy"},
  };
  for (const auto& [caller, callee] : pairs) {
    SCOPED_TRACE(std::string(caller) + " / " + callee);
    CallTrialSettings settings = Settings(1);
    settings.caller_scenario = caller;
    settings.callee_scenario = callee;
    settings.talk = milliseconds(0);
    CallTrial trial(settings);
    trial.Dial(trial.CalleeAddress(), 1);
    EXPECT_NO_THROW(trial.WaitHungUp(seconds(15)));
    EXPECT_NO_THROW(trial.WaitCalleeDone(seconds(15)));
  }
}

TEST_F(SupportSippCall, DoesInTheMiddleOfACallWhatItIsOrdered) {
  CallTrialSettings settings = Settings(1);
  settings.caller_scenario = "caller_on_order";
  CallTrial trial(settings);
  trial.Dial(trial.CalleeAddress(), 1);
  trial.WaitEstablished(seconds(10));
  trial.Caller().Order(trial.Caller().Dialogues().at(0).CallId(), {"BYE", {"127.0.0.1", 9}}, 17);
  trial.WaitHungUp(seconds(15));
  trial.WaitCalleeDone(seconds(5));
  EXPECT_EQ(trial.Callee().Dialogues().at(0).Request("BYE", false)->Header("CSeq"), "17 BYE");
}

TEST_F(SupportSippCall, SaysWhenSippCannotStart) {
  CallTrialSettings settings = Settings(1);
  settings.callee_scenario = "no_such_scenario";
  EXPECT_THROW(CallTrial trial(settings), std::runtime_error);
}

}  // namespace
}  // namespace test_support
