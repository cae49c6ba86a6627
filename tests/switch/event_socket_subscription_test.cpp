#include "console/event_subscription.h"

#include <gtest/gtest.h>

#include <string>

#include "event_socket_event.h"

namespace kvx_switch {
namespace {

using event_socket_test::EventHeaders;
using event_socket_test::make_event;

class EventSubscriptionTest : public testing::Test {
 protected:
  bool Wants(switch_event_types_t kind, const EventHeaders& headers = {}, const char* subclass = nullptr) const {
    return subscription_.Wants(*make_event(kind, headers, subclass));
  }
  bool WantsCustom(const char* subclass) const { return Wants(SWITCH_EVENT_CUSTOM, {}, subclass); }
  void AddFilter(const std::string& header, const std::string& value) {
    std::string problem;
    EXPECT_TRUE(subscription_.AddFilter(header, value, problem)) << problem;
  }

  EventSubscription subscription_;
};

TEST_F(EventSubscriptionTest, WantsNothingAtFirst) {
  EXPECT_FALSE(subscription_.WantsAny());
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_CREATE));
  EXPECT_EQ(subscription_.format(), EventFormat::kPlain);
}

TEST_F(EventSubscriptionTest, WantsTheKindsThatWereNamed) {
  EXPECT_TRUE(subscription_.Add("  CHANNEL_CREATE   channel_hangup "));
  EXPECT_TRUE(subscription_.WantsAny());
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE));
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_HANGUP));
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_ANSWER));
  EXPECT_TRUE(subscription_.Add("CHANNEL_ANSWER"));
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_ANSWER));
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE));
}

TEST_F(EventSubscriptionTest, PassesOverWordsThatNameNothing) {
  EXPECT_FALSE(subscription_.Add(""));
  EXPECT_FALSE(subscription_.Add("   "));
  EXPECT_FALSE(subscription_.Add("CHANNEL_CREATED nonsense"));
  EXPECT_FALSE(subscription_.WantsAny());
  EXPECT_TRUE(subscription_.Add("nonsense HEARTBEAT"));
  EXPECT_TRUE(Wants(SWITCH_EVENT_HEARTBEAT));
}

TEST_F(EventSubscriptionTest, AllIsEveryKindAndSubclass) {
  EXPECT_TRUE(subscription_.Add("all"));
  for (int kind = 0; kind < SWITCH_EVENT_ALL; ++kind) {
    EXPECT_TRUE(Wants(static_cast<switch_event_types_t>(kind)))
        << switch_event_name(static_cast<switch_event_types_t>(kind));
  }
  EXPECT_TRUE(WantsCustom("any::thing"));
}

TEST_F(EventSubscriptionTest, TakesEveryWordBehindCustomForASubclass) {
  EXPECT_TRUE(subscription_.Add("CHANNEL_CREATE CUSTOM fax::start CHANNEL_ANSWER"));
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE));
  EXPECT_TRUE(WantsCustom("fax::start"));
  EXPECT_TRUE(WantsCustom("CHANNEL_ANSWER"));
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_ANSWER));
  EXPECT_FALSE(WantsCustom("fax::stop"));
  EXPECT_FALSE(WantsCustom(nullptr));
}

TEST_F(EventSubscriptionTest, RemovesKindsAlsoFromAll) {
  subscription_.Add("ALL");
  EXPECT_TRUE(subscription_.Remove("HEARTBEAT CUSTOM"));
  EXPECT_FALSE(Wants(SWITCH_EVENT_HEARTBEAT));
  EXPECT_FALSE(WantsCustom("fax::start"));
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE));
  EXPECT_FALSE(subscription_.Remove("nothing known"));
  EXPECT_TRUE(subscription_.Remove("ALL"));
  EXPECT_FALSE(subscription_.WantsAny());
}

TEST_F(EventSubscriptionTest, RemovesTheSubclassesThatAreNamedAndKeepsTheOthers) {
  subscription_.Add("CUSTOM fax::start fax::stop");
  EXPECT_TRUE(subscription_.Remove("CUSTOM fax::start"));
  EXPECT_FALSE(WantsCustom("fax::start"));
  EXPECT_TRUE(WantsCustom("fax::stop"));
}

TEST_F(EventSubscriptionTest, FollowsOneLegBesideTheKindsThatAreWanted) {
  subscription_.AddLeg("leg-1");
  EXPECT_TRUE(subscription_.WantsAny());
  EXPECT_TRUE(Wants(SWITCH_EVENT_RECV_RTCP_MESSAGE, {{"Unique-ID", "leg-1"}}));
  EXPECT_FALSE(Wants(SWITCH_EVENT_RECV_RTCP_MESSAGE, {{"Unique-ID", "leg-2"}}));
  EXPECT_FALSE(Wants(SWITCH_EVENT_HEARTBEAT));
  subscription_.Add("HEARTBEAT");
  EXPECT_TRUE(Wants(SWITCH_EVENT_HEARTBEAT));
  subscription_.Clear();
  EXPECT_FALSE(Wants(SWITCH_EVENT_RECV_RTCP_MESSAGE, {{"Unique-ID", "leg-1"}}));
}

TEST_F(EventSubscriptionTest, LetsPassWhatOneFilterMatches) {
  subscription_.Add("ALL");
  AddFilter("Unique-ID", "leg-1");
  AddFilter("caller-destination-number", "2000");
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE, {{"Unique-ID", "LEG-1"}}));
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE, {{"Caller-Destination-Number", "2000"}, {"Unique-ID", "other"}}));
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_CREATE, {{"Unique-ID", "leg-12"}}));
  EXPECT_FALSE(Wants(SWITCH_EVENT_HEARTBEAT));
}

TEST_F(EventSubscriptionTest, LetsNoFilterPassWhatWasNotAskedFor) {
  AddFilter("Unique-ID", "leg-1");
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_CREATE, {{"Unique-ID", "leg-1"}}));
}

TEST_F(EventSubscriptionTest, KeepsAwayWhatAFilterWithAMinusMatches) {
  subscription_.Add("ALL");
  AddFilter("Event-Name", "-HEARTBEAT");
  EXPECT_FALSE(Wants(SWITCH_EVENT_HEARTBEAT));
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE)) << "filters that keep away alone let all others pass";
  AddFilter("Unique-ID", "leg-1");
  AddFilter("Answer-State", "-hangup");
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_CREATE));
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE, {{"Unique-ID", "leg-1"}}));
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_CREATE, {{"Unique-ID", "leg-1"}, {"Answer-State", "hangup"}}));
}

TEST_F(EventSubscriptionTest, TakesAPlusForASignAndForPartOfANumber) {
  subscription_.Add("ALL");
  AddFilter("Caller-Caller-ID-Number", "+4930123");
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE, {{"Caller-Caller-ID-Number", "+4930123"}}));
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE, {{"Caller-Caller-ID-Number", "4930123"}}));
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_CREATE, {{"Caller-Caller-ID-Number", "493012"}}));
}

TEST_F(EventSubscriptionTest, TakesRegularExpressionsBetweenSlashes) {
  subscription_.Add("ALL");
  AddFilter("Event-Name", "/^CHANNEL_(CREATE|HANGUP)$/");
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE));
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_HANGUP));
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_HANGUP_COMPLETE));
  std::string problem;
  EXPECT_FALSE(subscription_.AddFilter("Event-Name", "/(/", problem));
  EXPECT_EQ(problem, "missing closing parenthesis at character 2");
}

TEST_F(EventSubscriptionTest, ForgetsFiltersByHeaderByValueAndAll) {
  subscription_.Add("ALL");
  AddFilter("Unique-ID", "leg-1");
  AddFilter("Unique-ID", "leg-2");
  AddFilter("Answer-State", "early");
  subscription_.RemoveFilters("unique-id", "leg-1");
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_CREATE, {{"Unique-ID", "leg-1"}}));
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE, {{"Unique-ID", "leg-2"}}));
  subscription_.RemoveFilters("Unique-ID", "");
  EXPECT_FALSE(Wants(SWITCH_EVENT_CHANNEL_CREATE, {{"Unique-ID", "leg-2"}}));
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE, {{"Answer-State", "early"}}));
  subscription_.RemoveFilters("all", "");
  EXPECT_TRUE(Wants(SWITCH_EVENT_CHANNEL_CREATE));
}

}  // namespace
}  // namespace kvx_switch
