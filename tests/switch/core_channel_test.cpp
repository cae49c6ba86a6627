#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <switch.h>

#include "core/session.h"
#include "core_fixture.h"
#include "support/event_capture.h"

namespace {

using core_test::RunningCore;
using test_support::EventCapture;
using test_support::notice_line;
using testing::ElementsAre;

class Channel : public RunningCore {
 protected:
  void SetUp() override {
    RunningCore::SetUp();
    session_ = kvx_switch::RequestSession(SWITCH_CALL_DIRECTION_INBOUND, "test/leg");
    ASSERT_NE(session_, nullptr);
    channel_ = switch_core_session_get_channel(session_);
  }
  void TearDown() override {
    switch_core_session_destroy(&session_);
    RunningCore::TearDown();
  }

  std::string Get(const char* name) { return switch_str_nil(switch_channel_get_variable(channel_, name)); }
  std::vector<std::string> EventNames(EventCapture& capture) {
    std::vector<std::string> names;
    for (const auto& event : capture.All()) {
      if (event.Header("Unique-ID") == switch_core_session_get_uuid(session_)) {
        names.push_back(event.Header("Event-Name"));
      }
    }
    return names;
  }

  switch_core_session_t* session_ = nullptr;
  switch_channel_t* channel_ = nullptr;
};

TEST_F(Channel, VariablesAreSetAndUnset) {
  EXPECT_EQ(switch_channel_get_variable(channel_, "a"), nullptr);
  EXPECT_EQ(switch_channel_set_variable(channel_, "a", "1"), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(Get("A"), "1") << "names are compared without case";
  switch_channel_set_variable(channel_, "a", "2");
  EXPECT_EQ(Get("a"), "2");
  switch_channel_set_variable(channel_, "a", "");
  EXPECT_EQ(switch_channel_get_variable(channel_, "a"), nullptr);
  switch_channel_set_variable(channel_, "a", "3");
  switch_channel_set_variable(channel_, "a", nullptr);
  EXPECT_EQ(switch_channel_get_variable(channel_, "a"), nullptr);
  EXPECT_EQ(switch_channel_set_variable(channel_, "", "x"), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_channel_set_variable(channel_, nullptr, "x"), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_channel_get_variable(channel_, ""), nullptr);
}

TEST_F(Channel, ACopyOfAVariableOutlivesItsChange) {
  switch_channel_set_variable(channel_, "a", "before");
  const char* copy = switch_channel_get_variable_dup(channel_, "a", SWITCH_TRUE, -1);
  const char* borrowed = switch_channel_get_variable_dup(channel_, "a", SWITCH_FALSE, -1);
  EXPECT_STREQ(borrowed, "before");
  EXPECT_EQ(borrowed, switch_channel_get_variable_dup(channel_, "a", SWITCH_FALSE, -1));
  switch_channel_set_variable(channel_, "a", "after, and longer than it was before");
  EXPECT_STREQ(copy, "before");
}

TEST_F(Channel, AValueThatRefersToAVariableIsRefusedWhenChecked) {
  EXPECT_EQ(switch_channel_set_variable(channel_, "a", "x${b}"), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_channel_get_variable(channel_, "a"), nullptr);
  EXPECT_TRUE(log().Has({SWITCH_LOG_CRIT, "The value of a refers to a variable and was refused\n", "", "", 0, {}}));
  EXPECT_EQ(switch_channel_set_variable_safe(channel_, "a", "x${b}"), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(Get("a"), "x${b}");
}

TEST_F(Channel, VariablesAreFormatted) {
  EXPECT_EQ(switch_channel_set_variable_printf(channel_, "local_rtcp_port", "%d", 5061), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(Get("local_rtcp_port"), "5061");
}

TEST_F(Channel, UnsetVariablesFallBackToTheCallerThenToGlobals) {
  kvx_switch::CallerData caller;
  caller.caller_id_number = "1000";
  caller.destination_number = "2000";
  kvx_switch::SetCallerData(session_, caller);
  switch_core_set_variable("global", "everywhere");
  switch_core_set_variable("caller_id_number", "hidden");
  EXPECT_EQ(Get("caller_id_number"), "1000");
  EXPECT_EQ(Get("destination_number"), "2000");
  EXPECT_EQ(Get("context"), "default");
  EXPECT_EQ(Get("uuid"), switch_core_session_get_uuid(session_));
  EXPECT_EQ(Get("channel_name"), "test/leg");
  EXPECT_EQ(Get("direction"), "inbound");
  EXPECT_EQ(Get("global"), "everywhere");
  switch_channel_set_variable(channel_, "caller_id_number", "own");
  EXPECT_EQ(Get("caller_id_number"), "own");
}

TEST_F(Channel, ElementsOfAnArrayAreFoundByIndex) {
  switch_channel_set_variable(channel_, "list", "ARRAY::a|:b|:c");
  EXPECT_STREQ(switch_channel_get_variable_dup(channel_, "list", SWITCH_TRUE, 0), "a");
  EXPECT_STREQ(switch_channel_get_variable_dup(channel_, "list", SWITCH_TRUE, 2), "c");
  EXPECT_EQ(switch_channel_get_variable_dup(channel_, "list", SWITCH_TRUE, 3), nullptr);
  switch_channel_set_variable(channel_, "plain", "p");
  EXPECT_STREQ(switch_channel_get_variable_dup(channel_, "plain", SWITCH_TRUE, 0), "p");
  EXPECT_EQ(switch_channel_get_variable_dup(channel_, "plain", SWITCH_TRUE, 1), nullptr);
}

TEST_F(Channel, TruthOfVariables) {
  switch_channel_set_variable(channel_, "yes", "true");
  switch_channel_set_variable(channel_, "no", "off");
  EXPECT_TRUE(switch_channel_var_true(channel_, "yes"));
  EXPECT_FALSE(switch_channel_var_true(channel_, "no"));
  EXPECT_FALSE(switch_channel_var_true(channel_, "unset"));
  EXPECT_TRUE(switch_channel_var_false(channel_, "no"));
  EXPECT_FALSE(switch_channel_var_false(channel_, "unset"));
}

TEST_F(Channel, AllVariablesComeInTheOrderTheyWereSet) {
  for (const char* name : {"c", "a", "b"}) switch_channel_set_variable(channel_, name, name);
  switch_channel_set_variable(channel_, "c", "again");
  switch_event_t* event = nullptr;
  ASSERT_EQ(switch_channel_get_variables(channel_, &event), SWITCH_STATUS_SUCCESS);
  std::vector<std::string> all;
  for (auto* at = event->headers; at; at = at->next) all.push_back(std::string(at->name) + "=" + at->value);
  const std::string call = std::string("call_uuid=") + switch_core_session_get_uuid(session_);
  EXPECT_THAT(all, ElementsAre(call, "c=again", "a=a", "b=b"));
  switch_event_destroy(&event);
}

TEST_F(Channel, TheFirstHangupCauseStays) {
  EventCapture all(SWITCH_EVENT_ALL);
  EXPECT_EQ(switch_channel_hangup(channel_, SWITCH_CAUSE_USER_BUSY), CS_HANGUP);
  EXPECT_EQ(switch_channel_hangup(channel_, SWITCH_CAUSE_NORMAL_CLEARING), CS_HANGUP);
  EXPECT_EQ(switch_channel_get_cause(channel_), SWITCH_CAUSE_USER_BUSY);
  EXPECT_EQ(switch_channel_get_state(channel_), CS_HANGUP);
  EXPECT_EQ(switch_channel_get_callstate(channel_), CCS_HANGUP);
  EXPECT_EQ(Get("hangup_cause"), "USER_BUSY");
  EXPECT_FALSE(switch_channel_ready(channel_));
  EXPECT_TRUE(switch_channel_down(channel_));
  EXPECT_THAT(EventNames(all), ElementsAre("CHANNEL_STATE", "CHANNEL_CALLSTATE", "CHANNEL_HANGUP"));
  EXPECT_EQ(log().Count(notice_line("Hangup test/leg [CS_NEW] [USER_BUSY]\n")), 1u);
}

TEST_F(Channel, HangupMayBeCalledUnderAnyLockOfTheLegsOwn) {
  switch_core_session_t* locked = switch_core_session_locate(switch_core_session_get_uuid(session_));
  switch_channel_hangup(channel_, SWITCH_CAUSE_NORMAL_CLEARING);
  switch_core_session_rwunlock(locked);
}

TEST_F(Channel, StatesGoAnywhereBelowTheHangupAndUpwardsAfter) {
  EXPECT_EQ(switch_channel_set_state(channel_, CS_EXECUTE), CS_EXECUTE);
  EXPECT_EQ(switch_channel_set_state(channel_, CS_ROUTING), CS_ROUTING);
  EXPECT_EQ(switch_channel_set_state(channel_, CS_HANGUP), CS_ROUTING) << "only a hang-up hangs up";
  EXPECT_EQ(switch_channel_set_state(channel_, CS_NEW), CS_ROUTING);
  switch_channel_hangup(channel_, SWITCH_CAUSE_NORMAL_CLEARING);
  EXPECT_EQ(switch_channel_set_state(channel_, CS_EXECUTE), CS_HANGUP);
  EXPECT_EQ(switch_channel_set_state(channel_, CS_REPORTING), CS_REPORTING);
  EXPECT_EQ(switch_channel_set_state(channel_, CS_HANGUP), CS_REPORTING);
}

TEST_F(Channel, ReadinessFollowsStateAndMedia) {
  EXPECT_FALSE(switch_channel_ready(channel_)) << "CS_NEW";
  EXPECT_TRUE(switch_channel_test_ready(channel_, SWITCH_FALSE, SWITCH_FALSE));
  switch_channel_set_state(channel_, CS_INIT);
  EXPECT_TRUE(switch_channel_ready(channel_));
  EXPECT_FALSE(switch_channel_media_ready(channel_));
  switch_channel_mark_answered(channel_);
  EXPECT_TRUE(switch_channel_media_ready(channel_));
}

TEST_F(Channel, ProgressIsMarkedOnceAndFiresItsEvent) {
  EventCapture all(SWITCH_EVENT_ALL);
  EXPECT_EQ(switch_channel_mark_ring_ready(channel_), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_channel_get_callstate(channel_), CCS_RINGING);
  EXPECT_EQ(switch_channel_mark_pre_answered(channel_), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_channel_get_callstate(channel_), CCS_EARLY);
  EXPECT_EQ(switch_channel_mark_answered(channel_), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_channel_mark_answered(channel_), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_channel_get_callstate(channel_), CCS_ACTIVE);
  EXPECT_TRUE(switch_channel_test_flag(channel_, CF_ANSWERED));
  EXPECT_THAT(EventNames(all), ElementsAre("CHANNEL_PROGRESS", "CHANNEL_CALLSTATE", "CHANNEL_PROGRESS_MEDIA",
                                           "CHANNEL_CALLSTATE", "CHANNEL_ANSWER", "CHANNEL_CALLSTATE"));
}

TEST_F(Channel, NothingIsAnsweredAfterTheHangup) {
  switch_channel_hangup(channel_, SWITCH_CAUSE_NORMAL_CLEARING);
  EXPECT_EQ(switch_channel_mark_answered(channel_), SWITCH_STATUS_FALSE);
  EXPECT_FALSE(switch_channel_test_flag(channel_, CF_ANSWERED));
  EXPECT_EQ(switch_channel_get_callstate(channel_), CCS_HANGUP);
}

TEST_F(Channel, FlagsAreSetAndCleared) {
  switch_channel_set_flag(channel_, CF_BRIDGED);
  switch_channel_set_flag_value(channel_, CF_HOLD, 7);
  EXPECT_EQ(switch_channel_test_flag(channel_, CF_BRIDGED), 1u);
  EXPECT_EQ(switch_channel_test_flag(channel_, CF_HOLD), 7u);
  switch_channel_clear_flag(channel_, CF_BRIDGED);
  EXPECT_EQ(switch_channel_test_flag(channel_, CF_BRIDGED), 0u);
  EXPECT_EQ(switch_channel_test_flag(channel_, CF_FLAG_MAX), 0u);
}

TEST_F(Channel, EventsCarryTheLegsHeaders) {
  kvx_switch::CallerData caller;
  caller.caller_id_name = "Anna";
  caller.caller_id_number = "1000";
  caller.destination_number = "2000";
  kvx_switch::SetCallerData(session_, caller);
  switch_channel_set_variable(channel_, "media_session_uuid", "m");
  switch_channel_set_variable(channel_, "signal_bond", "other");
  switch_event_t* event = nullptr;
  switch_event_create(&event, SWITCH_EVENT_CHANNEL_DATA);
  switch_channel_event_set_data(channel_, event);
  const auto header = [&](const char* name) {
    return std::string(switch_str_nil(switch_event_get_header(event, name)));
  };
  EXPECT_EQ(header("Unique-ID"), switch_core_session_get_uuid(session_));
  EXPECT_EQ(header("Channel-State"), "CS_NEW");
  EXPECT_EQ(header("Channel-State-Number"), "0");
  EXPECT_EQ(header("Channel-Call-State"), "DOWN");
  EXPECT_EQ(header("Channel-Name"), "test/leg");
  EXPECT_EQ(header("Call-Direction"), "inbound");
  EXPECT_EQ(header("Channel-Call-UUID"), switch_core_session_get_uuid(session_)) << "a call of one leg";
  EXPECT_EQ(header("Answer-State"), "ringing");
  EXPECT_EQ(header("Caller-Caller-ID-Name"), "Anna");
  EXPECT_EQ(header("Caller-Caller-ID-Number"), "1000");
  EXPECT_EQ(header("Caller-Destination-Number"), "2000");
  EXPECT_EQ(header("Caller-Context"), "default");
  EXPECT_EQ(header("Other-Leg-Unique-ID"), "other");
  EXPECT_EQ(header("variable_media_session_uuid"), "m");
  EXPECT_EQ(header("Hangup-Cause"), "");
  switch_event_destroy(&event);
}

TEST(Causes, HaveNamesBothWays) {
  EXPECT_STREQ(switch_channel_cause2str(SWITCH_CAUSE_NORMAL_CLEARING), "NORMAL_CLEARING");
  EXPECT_STREQ(switch_channel_cause2str(SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER), "DESTINATION_OUT_OF_ORDER");
  EXPECT_STREQ(switch_channel_cause2str(SWITCH_CAUSE_MEDIA_TIMEOUT), "MEDIA_TIMEOUT");
  EXPECT_STREQ(switch_channel_cause2str(static_cast<switch_call_cause_t>(5)), "UNKNOWN");
  EXPECT_EQ(switch_channel_str2cause("user_busy"), SWITCH_CAUSE_USER_BUSY);
  EXPECT_EQ(switch_channel_str2cause("27"), SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER);
  EXPECT_EQ(switch_channel_str2cause("nonsense"), SWITCH_CAUSE_NORMAL_CLEARING);
  EXPECT_EQ(switch_channel_str2cause(nullptr), SWITCH_CAUSE_NONE);
}

TEST(States, HaveNames) {
  EXPECT_STREQ(switch_channel_state_name(CS_NEW), "CS_NEW");
  EXPECT_STREQ(switch_channel_state_name(CS_EXCHANGE_MEDIA), "CS_EXCHANGE_MEDIA");
  EXPECT_STREQ(switch_channel_state_name(CS_DESTROY), "CS_DESTROY");
  EXPECT_STREQ(switch_channel_callstate2str(CCS_RING_WAIT), "RING_WAIT");
  EXPECT_STREQ(switch_channel_callstate2str(CCS_UNHELD), "UNHELD");
}

}  // namespace
