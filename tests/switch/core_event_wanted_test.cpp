// Events that nobody is bound for are not made.
#include <gtest/gtest.h>

#include <switch.h>

#include "core/event.h"
#include "core_fixture.h"
#include "support/event_capture.h"

namespace {

using core_test::RunningCore;
using kvx_switch::IsEventWanted;

void ignore(switch_event_t*) {}

using EventWanted = RunningCore;

TEST_F(EventWanted, WhileSomebodyIsBoundForItsKindAndNoLonger) {
  ASSERT_FALSE(IsEventWanted(SWITCH_EVENT_CHANNEL_PARK));
  switch_event_node_t* node = nullptr;
  switch_event_bind_removable("test", SWITCH_EVENT_CHANNEL_PARK, SWITCH_EVENT_SUBCLASS_ANY, ignore, nullptr, &node);
  EXPECT_TRUE(IsEventWanted(SWITCH_EVENT_CHANNEL_PARK));
  EXPECT_FALSE(IsEventWanted(SWITCH_EVENT_CHANNEL_UNPARK));
  switch_event_unbind(&node);
  EXPECT_FALSE(IsEventWanted(SWITCH_EVENT_CHANNEL_PARK));
}

TEST_F(EventWanted, OfEveryKindWhileSomebodyIsBoundForAll) {
  switch_event_node_t* node = nullptr;
  switch_event_bind_removable("test", SWITCH_EVENT_ALL, SWITCH_EVENT_SUBCLASS_ANY, ignore, nullptr, &node);
  EXPECT_TRUE(IsEventWanted(SWITCH_EVENT_CHANNEL_PARK));
  EXPECT_TRUE(IsEventWanted(SWITCH_EVENT_CUSTOM));
  switch_event_unbind(&node);
  EXPECT_FALSE(IsEventWanted(SWITCH_EVENT_CUSTOM));
}

TEST_F(EventWanted, OneThatIsFiredForNobodyIsTakenAllTheSame) {
  switch_event_t* event = nullptr;
  ASSERT_EQ(switch_event_create(&event, SWITCH_EVENT_CHANNEL_PARK), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_event_fire(&event), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(event, nullptr);
}

}  // namespace
