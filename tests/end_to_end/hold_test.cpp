// Hold and resume by the phones themselves (RFC 3264, 8.4): who is heard while it lasts. The other phone is told
// nothing.

#include <gtest/gtest.h>

#include "ordered_call.h"

namespace end_to_end {
namespace {

constexpr std::chrono::milliseconds kTalk{500};

using test_support::SippAgent;

class Hold : public OnEachDriver<OrderedCall> {
 protected:
  /// Everything that the phone may say of its direction, in one call.
  void EveryHoldOf(SippAgent& holding, const Party& holder, SippAgent& unaware, const Party& other,
                   const std::string& holders_leg) {
    Says(holding, holder, "sendonly", "recvonly");
    ExpectState(holders_leg, "HELD");
    ExpectUnheard(other, holder);
    ExpectHeard(holder, other);

    Says(holding, holder, "recvonly", "sendonly");
    ExpectUnheard(holder, other);
    ExpectHeard(other, holder);

    Says(holding, holder, "sendrecv", "sendrecv");
    ExpectTheyTalk(holder, other, kTalk);

    // A phone that says so sends nothing and plays nothing; the media server goes on passing what there is.
    Says(holding, holder, "inactive", "inactive");
    ExpectState(holders_leg, "HELD");
    ExpectHeard(other, holder);

    Says(holding, holder, "sendrecv", "sendrecv");
    ExpectState(holders_leg, "ACTIVE");
    ExpectTheyTalk(holder, other, kTalk);
    EXPECT_EQ(count_messages(unaware.Dialogues().at(0),
                             [](const auto& message) { return message.IsRequest() && message.Method() == "INVITE"; }),
              1u)
        << "holding is no business of the other phone's";
  }

 private:
  void Says(SippAgent& phone, const Party& party, const std::string& direction, const std::string& answered) {
    SCOPED_TRACE(direction);
    const auto answer = Order(phone, {"INVITE", MediaOf(party), direction});
    EXPECT_EQ(answer.Status(), 200);
    EXPECT_NE(answer.body.find("a=" + answered + "\r\n"), std::string::npos) << answer.body;
    ASSERT_TRUE(answer.body.find("m=audio " + std::to_string(party.far.port) + " ") != std::string::npos)
        << "the media server's port stays: " << answer.body;
  }

  void ExpectState(const std::string& leg, const std::string& state) {
    const std::string wanted = "Channel-Call-State: " + state + "\n";
    EXPECT_TRUE(test_support::wait_until(std::chrono::seconds(10), [&] {
      return switch_->Api("uuid_dump " + leg).find(wanted) != std::string::npos;
    })) << switch_->Api("uuid_dump " + leg);
  }
};

TEST_P(Hold, ByTheCallerDecidesWhoIsHeard) {
  StartCall();
  EveryHoldOf(CallerAgent(), Caller(), CalleeAgent(), Callee(), LegOf("inbound"));
  HangUp();
  ExpectEndedWell();
}

TEST_P(Hold, ByTheCalleeDecidesWhoIsHeard) {
  StartCall();
  EveryHoldOf(CalleeAgent(), Callee(), CallerAgent(), Caller(), LegOf("outbound"));
  HangUp();
  ExpectEndedWell();
}

TEST_P(Hold, OfBothLastsForEachUntilItResumesItself) {
  StartCall();
  Order(CallerAgent(), {"INVITE", MediaOf(Caller()), "recvonly"});
  Order(CalleeAgent(), {"INVITE", MediaOf(Callee()), "recvonly"});
  Order(CallerAgent(), {"INVITE", MediaOf(Caller()), "sendrecv"});
  ExpectUnheard(Callee(), Caller());
  ExpectHeard(Caller(), Callee());
  Order(CalleeAgent(), {"INVITE", MediaOf(Callee()), "sendrecv"});
  ExpectTheyTalk(Caller(), Callee());
  HangUp();
  ExpectEndedWell();
}

INSTANTIATE_TEST_SUITE_P(Over, Hold, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
