// What events say of a call as a whole, and of one that begins on hold.

#include <switch.h>

#include "sip_transfer_fixture.h"
#include "support/event_capture.h"

namespace kvx_switch {
namespace {

using test_support::CapturedEvent;
using test_support::EventCapture;

const std::string kUlaw = SipPeer::Sdp("0");

using SipCallEvents = SipTransfer;

std::vector<std::string> HeadersOf(const std::vector<CapturedEvent>& events, const std::string& name) {
  std::vector<std::string> values;
  for (const CapturedEvent& event : events) values.push_back(event.Header(name));
  return values;
}

TEST_F(SipCallEvents, BothLegsHaveTheFirstOnesUuidAsTheCalls) {
  EventCapture created(SWITCH_EVENT_CHANNEL_CREATE);
  EventCapture answered(SWITCH_EVENT_CHANNEL_ANSWER);
  ConnectToBob(kUlaw);
  const std::string first = LegUuid(SWITCH_CALL_DIRECTION_INBOUND);
  EXPECT_THAT(HeadersOf(created.WaitFor(2), "Channel-Call-UUID"), testing::ElementsAre(first, first));
  EXPECT_THAT(HeadersOf(answered.WaitFor(2), "Channel-Call-UUID"), testing::ElementsAre(first, first));
  EXPECT_THAT(HeadersOf(answered.All(), "variable_call_uuid"), testing::ElementsAre(first, first));
  EndCall();
}

TEST_F(SipCallEvents, WhoeverIsCalledInATransferBelongsToTheCall) {
  ConnectToBob(kUlaw);
  const std::string first = LegUuid(SWITCH_CALL_DIRECTION_INBOUND);
  EventCapture created(SWITCH_EVENT_CHANNEL_CREATE);
  alice_.SendInCall("REFER", ReferTo("3000"));
  AnswerAt(carol_);
  EXPECT_THAT(HeadersOf(created.WaitFor(1), "Channel-Call-UUID"), testing::ElementsAre(first));
}

TEST_F(SipCallEvents, LegsOfTwoCallsThatMeetAreInOne) {
  Connect(alice_, "2000", bob_, kUlaw, kUlaw);
  const std::string first_call = alice_.Replaces();
  SipMessage second = Connect(alice_, "3000", carol_, kUlaw, kUlaw);
  alice_.SendInCall("REFER", ReferTo("2000", first_call));
  EXPECT_TRUE(media_->WaitFor("B bridge", 1));
  EXPECT_NE(ByeAt(alice_), "none");
  EXPECT_NE(ByeAt(alice_), "none");
  EventCapture ended(SWITCH_EVENT_CHANNEL_HANGUP_COMPLETE);
  carol_.SendByeAsCalled(second);
  EXPECT_NE(ByeAt(bob_), "none");
  EXPECT_TRUE(NoLegsLeft());
  std::vector<std::string> calls;
  for (const CapturedEvent& event : ended.WaitFor(2)) {
    if (event.Header("Call-Direction") == "outbound") calls.push_back(event.Header("Channel-Call-UUID"));
  }
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls[calls.size() - 2], calls.back());
}

TEST_F(SipCallEvents, ACallerThatBeginsOnHoldIsToldOf) {
  EventCapture held(SWITCH_EVENT_CHANNEL_HOLD);
  EventCapture taken_back(SWITCH_EVENT_CHANNEL_UNHOLD);
  ConnectToBob(SipPeer::Sdp("0", "a=sendonly\n"));
  ASSERT_EQ(held.WaitFor(1).size(), 1u);
  EXPECT_EQ(held.All()[0].Header("Unique-ID"), LegUuid(SWITCH_CALL_DIRECTION_INBOUND));
  EXPECT_EQ(held.All()[0].Header("Channel-Call-State"), "HELD");
  EXPECT_EQ(held.All()[0].Header("Answer-State"), "answered");
  alice_.SendReinvite(kUlaw);
  std::optional<SipMessage> response = alice_.AwaitResponse();
  ASSERT_TRUE(response);
  alice_.AckReinvite(*response);
  ASSERT_EQ(taken_back.WaitFor(1).size(), 1u);
  EXPECT_EQ(taken_back.All()[0].Header("Channel-Call-State"), "ACTIVE");
  EXPECT_EQ(held.All().size(), 1u);
  EndCall();
}

TEST_F(SipCallEvents, ACalledSideThatBeginsOnHoldIsToldOf) {
  EventCapture held(SWITCH_EVENT_CHANNEL_HOLD);
  ConnectToBob(kUlaw, SipPeer::Sdp("0", "a=inactive\n"));
  ASSERT_EQ(held.WaitFor(1).size(), 1u);
  EXPECT_EQ(held.All()[0].Header("Unique-ID"), LegUuid(SWITCH_CALL_DIRECTION_OUTBOUND));
  EndCall();
}

TEST_F(SipCallEvents, ACallThatOnlyReceivesIsNotOnHold) {
  EventCapture held(SWITCH_EVENT_CHANNEL_HOLD);
  ConnectToBob(SipPeer::Sdp("0", "a=recvonly\n"), SipPeer::Sdp("0", "a=recvonly\n"));
  EndCall();
  EXPECT_EQ(held.All().size(), 0u);
}

}  // namespace
}  // namespace kvx_switch
