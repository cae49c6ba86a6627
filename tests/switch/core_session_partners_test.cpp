#include <gtest/gtest.h>

#include <switch.h>

#include "core_fixture.h"
#include "core_legs.h"

namespace {

using namespace core_test;

class Partners : public RunningCore {
 protected:
  void SetUp() override {
    RunningCore::SetUp();
    first_ = request("test/first");
    second_ = request("test/second");
  }
  void TearDown() override {
    switch_core_session_destroy(&first_);
    switch_core_session_destroy(&second_);
    RunningCore::TearDown();
  }
  void Bond(const char* variable, const char* uuid) { switch_channel_set_variable(channel_of(first_), variable, uuid); }
  switch_core_session_t* first_ = nullptr;
  switch_core_session_t* second_ = nullptr;
};

TEST_F(Partners, AreFoundByTheBondReadLocked) {
  switch_core_session_t* partner = first_;
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_FALSE);
  EXPECT_EQ(partner, nullptr);
  Bond("signal_bond", switch_core_session_get_uuid(second_));
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(partner, second_);
  EXPECT_STREQ(switch_channel_get_partner_uuid(channel_of(first_)), switch_core_session_get_uuid(second_));
  switch_core_session_rwunlock(partner);
}

TEST_F(Partners, TheOriginatorsBondComesSecond) {
  switch_core_session_t* partner = nullptr;
  Bond("originate_signal_bond", switch_core_session_get_uuid(second_));
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_SUCCESS);
  switch_core_session_rwunlock(partner);
  Bond("signal_bond", "somebody-else");
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_FALSE);
}

TEST_F(Partners, OneselfOrSomebodyWhoHangsUpIsNone) {
  switch_core_session_t* partner = nullptr;
  Bond("signal_bond", switch_core_session_get_uuid(first_));
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_FALSE);
  Bond("signal_bond", switch_core_session_get_uuid(second_));
  switch_channel_hangup(channel_of(second_), SWITCH_CAUSE_NORMAL_CLEARING);
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_channel_get_partner_uuid(channel_of(second_)), nullptr);
}

TEST_F(Partners, AGlobalVariableIsNoBond) {
  switch_core_set_variable("signal_bond", switch_core_session_get_uuid(second_));
  switch_core_session_t* partner = nullptr;
  EXPECT_EQ(switch_core_session_get_partner(first_, &partner), SWITCH_STATUS_FALSE);
}

}  // namespace
