#include "console/event_commands.h"

#include <gtest/gtest.h>

#include <string>

#include "core_fixture.h"
#include "core_legs.h"
#include "event_socket_event.h"

namespace kvx_switch {
namespace {

using event_socket_test::EventHeaders;
using event_socket_test::make_event;

class EventCommandsTest : public core_test::RunningCore {
 protected:
  bool Wants(switch_event_types_t kind, const EventHeaders& headers = {}) const {
    return told_.Wants(*make_event(kind, headers));
  }

  EventSubscription told_;
  int times_told_ = 0;
  EventCommands commands_{[this](const EventSubscription& wanted) {
    told_ = wanted;
    ++times_told_;
  }};
};

TEST_F(EventCommandsTest, EventNamesTheFormAndKeepsItForTheNextTime) {
  EXPECT_EQ(commands_.Event("plain CHANNEL_CREATE"), "+OK event listener enabled plain");
  EXPECT_EQ(commands_.Event("JSON CHANNEL_HANGUP"), "+OK event listener enabled json");
  EXPECT_EQ(commands_.Event("CHANNEL_ANSWER"), "+OK event listener enabled json");
  EXPECT_EQ(told_.format(), EventFormat::kJson);
  EXPECT_EQ(commands_.Event("xml ALL"), "+OK event listener enabled xml");
  EXPECT_EQ(told_.format(), EventFormat::kXml);
  EXPECT_EQ(times_told_, 4);
}

TEST_F(EventCommandsTest, EventWithoutAKnownNameChangesNothing) {
  for (const char* arguments : {"", "plain", "json nonsense", "nonsense"}) {
    EXPECT_EQ(commands_.Event(arguments), "-ERR no keywords supplied") << arguments;
  }
  EXPECT_EQ(times_told_, 0);
  EXPECT_EQ(commands_.Event("HEARTBEAT"), "+OK event listener enabled plain") << "the form of a refused command";
}

TEST_F(EventCommandsTest, NixEventTakesSomeAway) {
  commands_.Event("plain ALL");
  EXPECT_EQ(commands_.NixEvent("CHANNEL_CREATE CHANNEL_ANSWER"), "+OK events nixed");
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_CREATE));
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_ANSWER));
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_HANGUP));
  EXPECT_EQ(commands_.NixEvent(""), "-ERR no keywords supplied");
  EXPECT_EQ(times_told_, 2);
}

TEST_F(EventCommandsTest, NoEventsEndsThem) {
  EXPECT_EQ(commands_.NoEvents(), "-ERR not listening for events");
  commands_.Event("plain ALL");
  EXPECT_EQ(commands_.NoEvents(), "+OK no longer listening for events");
  EXPECT_FALSE(told_.WantsAny());
  EXPECT_EQ(commands_.NoEvents(), "-ERR not listening for events");
}

TEST_F(EventCommandsTest, FilterAddsAndDeletes) {
  commands_.Event("plain ALL");
  EXPECT_EQ(commands_.Filter("Unique-ID leg-1"), "+OK filter added. [Unique-ID]=[leg-1]");
  EXPECT_EQ(commands_.Filter("add Note two words"), "+OK filter added. [Note]=[two words]");
  EXPECT_TRUE(Wants(SWITCH_EVENT_HEARTBEAT, {{"Unique-ID", "leg-1"}}));
  EXPECT_TRUE(Wants(SWITCH_EVENT_HEARTBEAT, {{"Note", "two words"}}));
  EXPECT_FALSE(Wants(SWITCH_EVENT_HEARTBEAT));
  EXPECT_EQ(commands_.Filter("delete Unique-ID leg-1"), "+OK filter deleted. [Unique-ID][leg-1]");
  EXPECT_FALSE(Wants(SWITCH_EVENT_HEARTBEAT, {{"Unique-ID", "leg-1"}}));
  EXPECT_EQ(commands_.Filter("delete Note"), "+OK filter deleted. [Note][]");
  EXPECT_TRUE(Wants(SWITCH_EVENT_HEARTBEAT));
  commands_.Filter("Unique-ID leg-1");
  EXPECT_EQ(commands_.Filter("delete all"), "+OK filter deleted. [all][]");
  EXPECT_TRUE(Wants(SWITCH_EVENT_HEARTBEAT));
}

TEST_F(EventCommandsTest, FilterWantsAHeaderAndAValue) {
  for (const char* arguments : {"", "Unique-ID", "delete", "add", "add Unique-ID"}) {
    EXPECT_EQ(commands_.Filter(arguments), "-ERR invalid syntax") << arguments;
  }
  EXPECT_EQ(commands_.Filter("Event-Name /(/"), "-ERR missing closing parenthesis at character 2");
  EXPECT_EQ(times_told_, 0);
}

TEST_F(EventCommandsTest, MyEventsFollowsALegThatIsThere) {
  const std::string leg = core_test::launch();
  EXPECT_EQ(commands_.MyEvents(leg + " json"), "+OK Events Enabled");
  EXPECT_EQ(told_.format(), EventFormat::kJson);
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_HANGUP, {{"Unique-ID", leg}}));
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_HANGUP, {{"Unique-ID", "other"}}));
  EXPECT_EQ(commands_.MyEvents(leg + " yaml"), "-ERR \"yaml\" is no form of events");
  EXPECT_EQ(commands_.MyEvents(""), "-ERR invalid uuid");
  EXPECT_EQ(commands_.MyEvents("nobody"), "-ERR invalid uuid");
  core_test::hang_up(leg);
  EXPECT_TRUE(WaitForNoSessions(core_test::kPatience));
}

}  // namespace
}  // namespace kvx_switch
