// Both ends change the call at once (RFC 3261, 14.1): each refuses the other's INVITE with 491, and both try again, who
// made the Call-ID later than the other.

#include <gtest/gtest.h>

#include "ordered_call.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrialSettings;
using test_support::SipDialogue;
using test_support::SipMessage;
using test_support::SippAgent;

class Glare : public OrderedCall {
 protected:
  struct Exchange {
    SipMessage ours;     // the switch's INVITE within the call
    SipMessage refused;  // the phone's 491 to it
    SipMessage again;    // the switch's next
  };

  /// Puts the leg on hold while its phone wants something too; until both have what they wanted.
  Exchange MeetOn(SippAgent& phone, const std::string& direction, const Party& talker, const Party& listener) {
    leg_ = LegOf(direction);
    ExpectApi("uuid_hold " + leg_, "+OK Success\n");
    // Who is put on hold hears on, through all of it.
    ExpectHeard(talker, listener, seconds(3));
    const auto settled = [&phone] {
      const auto accepted = [](const SipMessage& m) { return m.Status() == 200 && m.Method() == "INVITE"; };
      return count_messages(phone.Dialogues().at(0), accepted) == 3;  // of the call, of the phone's wish, of the hold
    };
    EXPECT_TRUE(test_support::wait_until(seconds(30), settled)) << phone.Account();
    return Read(phone.Dialogues().at(0));
  }

  static Exchange Read(const SipDialogue& dialogue) {
    const auto refusal = [](bool sent) {
      return [sent](const SipMessage& m) { return m.Status() == 491 && m.sent == sent; };
    };
    EXPECT_EQ(count_messages(dialogue, refusal(true)), 1u) << dialogue.Flow();
    EXPECT_EQ(count_messages(dialogue, refusal(false)), 1u) << "the phone was refused, too: " << dialogue.Flow();
    const auto held = [](const SipMessage& m) {
      return !m.sent && m.Method() == "INVITE" && m.body.find("a=sendonly") != std::string::npos;
    };
    Exchange exchange;
    exchange.ours = nth_message(dialogue, 0, held).value_or(SipMessage{});
    exchange.refused = nth_message(dialogue, 0, refusal(true)).value_or(SipMessage{});
    const std::string before = exchange.ours.Header("CSeq");
    exchange.again = nth_message(dialogue, 0, [&](const SipMessage& m) {
                       return held(m) && m.Header("CSeq") != before;
                     }).value_or(SipMessage{});
    return exchange;
  }

  /// What the phone sent under that number.
  static std::optional<SipMessage> Wish(SippAgent& phone, const std::string& sequence) {
    return nth_message(phone.Dialogues().at(0), 0,
                       [&](const SipMessage& m) { return m.sent && m.IsRequest() && m.Header("CSeq") == sequence; });
  }

  void TakeBackAndEnd() {
    ExpectApi("uuid_hold off " + leg_, "+OK Success\n");
    ASSERT_TRUE(switch_->WaitForLog("The far end sends and receives now", seconds(20)));
    ExpectTheyTalk(Caller(), Callee(), milliseconds(800));
    ExpectApi("uuid_kill " + LegOf("inbound"), "+OK\n");
    ExpectHungUp();
    ExpectEndedWell();
  }

  std::string leg_;
};

TEST_F(Glare, WithTheCalledPhoneIsTriedAgainByUsAfterItsOwnWish) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_awaits_bye";
  settings.callee_scenario = "callee_meets_glare";
  StartCall(settings);
  const Exchange met = MeetOn(CalleeAgent(), "outbound", Caller(), Callee());
  EXPECT_GE(met.again.at - met.refused.at, milliseconds(2100)) << "we made the Call-ID";
  const auto wish = Wish(CalleeAgent(), "2 INVITE");
  ASSERT_TRUE(wish);
  EXPECT_LT(wish->at, met.again.at) << "it comes first";
  TakeBackAndEnd();
}

TEST_F(Glare, WithTheCallerIsTriedAgainByUsBeforeItsOwnWish) {
  CallTrialSettings settings;
  settings.caller_scenario = "caller_meets_glare";
  StartCall(settings);
  const Exchange met = MeetOn(CallerAgent(), "inbound", Callee(), Caller());
  EXPECT_EQ(met.again.body, met.ours.body);
  const auto wish = Wish(CallerAgent(), "3 INVITE");
  ASSERT_TRUE(wish);
  EXPECT_GT(wish->at, met.again.at) << "it made the Call-ID, and comes last";
  TakeBackAndEnd();
}

}  // namespace
}  // namespace end_to_end
