#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <switch.h>

#include "core/event.h"
#include "core_fixture.h"
#include "support/event_capture.h"

namespace {

using core_test::RunningCore;
using test_support::EventCapture;
using testing::ElementsAre;

using Event = RunningCore;

std::vector<std::string> names(const switch_event_t* event) {
  std::vector<std::string> all;
  for (auto* at = event->headers; at; at = at->next) all.push_back(at->name);
  return all;
}

/// An event without the core's own headers.
switch_event_t* bare() {
  switch_event_t* event = nullptr;
  switch_event_create(&event, SWITCH_EVENT_CLONE);
  return event;
}

std::string serialized(switch_event_t* event, switch_bool_t encode) {
  char* text = nullptr;
  EXPECT_EQ(switch_event_serialize(event, &text, encode), SWITCH_STATUS_SUCCESS);
  std::string copy = text;
  free(text);
  return copy;
}

std::string json(switch_event_t* event) {
  char* text = nullptr;
  EXPECT_EQ(switch_event_serialize_json(event, &text), SWITCH_STATUS_SUCCESS);
  std::string copy = text;
  free(text);
  return copy;
}

TEST_F(Event, BeginsWithTheCoresOwnHeaders) {
  switch_event_t* event = nullptr;
  ASSERT_EQ(switch_event_create_subclass_detailed("/dir/file.cpp", "function", 42, &event,
                                                  SWITCH_EVENT_RECV_RTCP_MESSAGE, nullptr),
            SWITCH_STATUS_SUCCESS);
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Unique-ID", "u");
  EXPECT_THAT(names(event), ElementsAre("Event-Name", "Core-UUID", "FreeSWITCH-Hostname", "FreeSWITCH-Switchname",
                                        "FreeSWITCH-IPv4", "FreeSWITCH-IPv6", "Event-Date-Local", "Event-Date-GMT",
                                        "Event-Date-Timestamp", "Event-Calling-File", "Event-Calling-Function",
                                        "Event-Calling-Line-Number", "Event-Sequence", "Unique-ID"));
  EXPECT_STREQ(switch_event_get_header(event, "event-name"), "RECV_RTCP_MESSAGE");
  EXPECT_STREQ(switch_event_get_header(event, "Core-UUID"), switch_core_get_uuid());
  EXPECT_STREQ(switch_event_get_header(event, "Event-Calling-File"), "file.cpp");
  EXPECT_STREQ(switch_event_get_header(event, "Event-Calling-Function"), "function");
  EXPECT_STREQ(switch_event_get_header(event, "Event-Calling-Line-Number"), "42");
  EXPECT_THAT(switch_event_get_header(event, "Event-Date-Local"),
              testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}"));
  EXPECT_THAT(switch_event_get_header(event, "Event-Date-GMT"),
              testing::MatchesRegex("[A-Z][a-z]{2}, [0-9]{2} [A-Z][a-z]{2} [0-9]{4} [0-9:]{8} GMT"));
  switch_event_destroy(&event);
  EXPECT_EQ(event, nullptr);
}

TEST_F(Event, SequenceNumbersGrow) {
  switch_event_t* first = nullptr;
  switch_event_t* second = nullptr;
  switch_event_create(&first, SWITCH_EVENT_GENERAL);
  switch_event_create(&second, SWITCH_EVENT_GENERAL);
  EXPECT_LT(atoi(switch_event_get_header(first, "Event-Sequence")),
            atoi(switch_event_get_header(second, "Event-Sequence")));
  switch_event_destroy(&first);
  switch_event_destroy(&second);
}

TEST_F(Event, SubclassGoesWithCustomAlone) {
  switch_event_t* event = nullptr;
  EXPECT_EQ(switch_event_create_subclass(&event, SWITCH_EVENT_GENERAL, "a::b"), SWITCH_STATUS_GENERR);
  EXPECT_EQ(event, nullptr);
  ASSERT_EQ(switch_event_create_subclass(&event, SWITCH_EVENT_CUSTOM, "a::b"), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(event->subclass_name, "a::b");
  EXPECT_STREQ(switch_event_get_header(event, "Event-Subclass"), "a::b");
  switch_event_destroy(&event);
}

TEST_F(Event, HeadersStandWhereTheyWereAsked) {
  switch_event_t* event = bare();
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "B", "1");
  switch_event_add_header(event, SWITCH_STACK_BOTTOM, "C", "%d-%s", 2, "x");
  switch_event_add_header_string(event, SWITCH_STACK_TOP, "A", "0");
  EXPECT_THAT(names(event), ElementsAre("A", "B", "C"));
  EXPECT_STREQ(switch_event_get_header(event, "c"), "2-x");
  EXPECT_EQ(switch_event_get_header(event, "D"), nullptr);
  EXPECT_EQ(switch_event_get_header_idx(event, "C", 1), nullptr);
  switch_event_destroy(&event);
}

TEST_F(Event, ANullValueAddsNothing) {
  switch_event_t* event = bare();
  EXPECT_EQ(switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "A", nullptr), SWITCH_STATUS_GENERR);
  EXPECT_EQ(switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, nullptr, "a"), SWITCH_STATUS_GENERR);
  EXPECT_EQ(event->headers, nullptr);
  EXPECT_EQ(switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "A", ""), SWITCH_STATUS_SUCCESS);
  EXPECT_STREQ(switch_event_get_header(event, "A"), "");
  switch_event_destroy(&event);
}

TEST_F(Event, HeadersAreDeletedByNameAndValue) {
  switch_event_t* event = bare();
  for (const char* value : {"1", "2", "3"}) switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "A", value);
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "B", "b");
  EXPECT_EQ(switch_event_del_header_val(event, "a", "2"), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(names(event), ElementsAre("A", "A", "B"));
  EXPECT_EQ(switch_event_del_header(event, "B"), SWITCH_STATUS_SUCCESS);
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "C", "c");
  EXPECT_EQ(switch_event_del_header(event, "A"), SWITCH_STATUS_SUCCESS);
  EXPECT_THAT(names(event), ElementsAre("C"));
  EXPECT_EQ(switch_event_del_header(event, "A"), SWITCH_STATUS_FALSE);
  switch_event_destroy(&event);
}

TEST_F(Event, CopyIsWholeAndItsOwn) {
  switch_event_t* event = nullptr;
  switch_event_create_subclass(&event, SWITCH_EVENT_CUSTOM, "s");
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "A", "a");
  switch_event_add_body(event, "body %d", 1);
  switch_event_t* copy = nullptr;
  ASSERT_EQ(switch_event_dup(&copy, event), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(names(copy), names(event));
  EXPECT_STREQ(switch_event_get_header(copy, "Event-Sequence"), switch_event_get_header(event, "Event-Sequence"));
  switch_event_destroy(&event);
  EXPECT_STREQ(copy->body, "body 1");
  EXPECT_STREQ(copy->subclass_name, "s");
  EXPECT_STREQ(switch_event_get_header(copy, "A"), "a");
  switch_event_destroy(&copy);
}

TEST_F(Event, SerializesAsText) {
  switch_event_t* event = bare();
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Name", "a b:c%\n\xC3\xA4");
  EXPECT_EQ(serialized(event, SWITCH_TRUE), "Name: a%20b%3Ac%25%0A%C3%A4\n\n");
  EXPECT_EQ(serialized(event, SWITCH_FALSE), "Name: a b:c% \xC3\xA4\n\n") << "a line end would start a header";
  switch_event_add_body(event, "%s", "the body\n");
  EXPECT_EQ(serialized(event, SWITCH_FALSE), "Name: a b:c% \xC3\xA4\nContent-Length: 9\n\nthe body\n");
  switch_event_destroy(&event);
}

TEST_F(Event, SerializesAsJson) {
  switch_event_t* event = bare();
  EXPECT_EQ(json(event), "{}");
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Na\"me", "a\\b\"c\n\t\r\x01\xC3\xA4\xFF");
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Twice", "1");
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Other", "o");
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Twice", "2");
  switch_event_add_body(event, "%s", "text");
  EXPECT_EQ(json(event),
            "{\"Na\\\"me\":\"a\\\\b\\\"c\\n\\t\\r\\u0001\xC3\xA4\xEF\xBF\xBD\",\"Twice\":[\"1\",\"2\"],\"Other\":\"o\","
            "\"_body\":\"text\"}");
  switch_event_destroy(&event);
}

TEST(EventNames, GoBothWays) {
  EXPECT_STREQ(switch_event_name(SWITCH_EVENT_CUSTOM), "CUSTOM");
  EXPECT_STREQ(switch_event_name(SWITCH_EVENT_CHANNEL_HANGUP_COMPLETE), "CHANNEL_HANGUP_COMPLETE");
  EXPECT_STREQ(switch_event_name(SWITCH_EVENT_RECV_RTCP_MESSAGE), "RECV_RTCP_MESSAGE");
  EXPECT_STREQ(switch_event_name(SWITCH_EVENT_ALL), "ALL");
  for (int id = 0; id <= SWITCH_EVENT_ALL; ++id) {
    switch_event_types_t found = SWITCH_EVENT_CUSTOM;
    const auto expected = static_cast<switch_event_types_t>(id);
    EXPECT_EQ(switch_name_event(switch_event_name(expected), &found), SWITCH_STATUS_SUCCESS);
    EXPECT_EQ(found, expected);
  }
  switch_event_types_t found;
  EXPECT_EQ(switch_name_event("SWITCH_EVENT_dtmf", &found), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(found, SWITCH_EVENT_DTMF);
  EXPECT_EQ(switch_name_event("NOTHING", &found), SWITCH_STATUS_FALSE);
}

void fire(switch_event_types_t id, const std::string& value = "", const char* subclass = nullptr) {
  switch_event_t* event = nullptr;
  switch_event_create_subclass(&event, id, subclass);
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Value", value.c_str());
  EXPECT_EQ(switch_event_fire(&event), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(event, nullptr);
}

TEST_F(Event, IsDeliveredInOrderToThoseWhoWantItsKind) {
  EventCapture dtmf(SWITCH_EVENT_DTMF);
  EventCapture all(SWITCH_EVENT_ALL);
  for (int i = 0; i < 100; ++i) {
    fire(SWITCH_EVENT_DTMF, std::to_string(i));
    fire(SWITCH_EVENT_MESSAGE, std::to_string(i));
  }
  const auto received = dtmf.All();
  ASSERT_EQ(received.size(), 100u);
  for (size_t i = 0; i < received.size(); ++i) EXPECT_EQ(received[i].Header("Value"), std::to_string(i));
  EXPECT_GE(all.WaitFor(200).size(), 200u);
}

TEST_F(Event, CustomEventsAreToldApartBySubclass) {
  EventCapture one(SWITCH_EVENT_CUSTOM, "one");
  EventCapture any(SWITCH_EVENT_CUSTOM);
  fire(SWITCH_EVENT_CUSTOM, "1", "one");
  fire(SWITCH_EVENT_CUSTOM, "2", "two");
  fire(SWITCH_EVENT_CUSTOM, "3");
  EXPECT_EQ(one.All().size(), 1u);
  EXPECT_EQ(any.All().size(), 3u);
}

TEST_F(Event, CarriesTheUserDataOfBothSides) {
  struct Seen {
    std::atomic<void*> bound{nullptr};
    std::atomic<void*> fired{nullptr};
  };
  static Seen seen;
  int receiver = 0;
  int sender = 0;
  const auto callback = [](switch_event_t* event) {
    seen.bound = event->bind_user_data;
    seen.fired = event->event_user_data;
  };
  switch_event_bind("test", SWITCH_EVENT_GENERAL, nullptr, callback, &receiver);
  switch_event_t* event = nullptr;
  switch_event_create(&event, SWITCH_EVENT_GENERAL);
  switch_event_fire_data(&event, &sender);
  kvx_switch::FlushEvents();
  EXPECT_EQ(seen.bound, &receiver);
  EXPECT_EQ(seen.fired, &sender);
  EXPECT_EQ(switch_event_unbind_callback(callback), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_event_unbind_callback(callback), SWITCH_STATUS_FALSE);
}

TEST_F(Event, DeliverRunsOnTheCallingThread) {
  static std::thread::id where;
  const auto callback = [](switch_event_t*) { where = std::this_thread::get_id(); };
  switch_event_node_t* node = nullptr;
  switch_event_bind_removable("test", SWITCH_EVENT_MESSAGE, nullptr, callback, nullptr, &node);
  switch_event_t* event = nullptr;
  switch_event_create(&event, SWITCH_EVENT_MESSAGE);
  switch_event_deliver(&event);
  EXPECT_EQ(event, nullptr);
  EXPECT_EQ(where, std::this_thread::get_id());
  EXPECT_EQ(switch_event_unbind(&node), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(node, nullptr);
  EXPECT_EQ(switch_event_unbind(&node), SWITCH_STATUS_FALSE);
}

TEST_F(Event, UnboundReceiversAreNotCalled) {
  static std::atomic<int> calls;
  calls = 0;
  const auto callback = [](switch_event_t*) { ++calls; };
  switch_event_node_t* node = nullptr;
  switch_event_bind_removable("test", SWITCH_EVENT_GENERAL, nullptr, callback, nullptr, &node);
  fire(SWITCH_EVENT_GENERAL);
  kvx_switch::FlushEvents();
  switch_event_unbind(&node);
  fire(SWITCH_EVENT_GENERAL);
  kvx_switch::FlushEvents();
  EXPECT_EQ(calls, 1);
}

TEST_F(Event, AReceiverMayUnbindItself) {
  static switch_event_node_t* node;
  static std::atomic<int> calls;
  calls = 0;
  const auto callback = [](switch_event_t*) {
    ++calls;
    switch_event_unbind(&node);
  };
  switch_event_bind_removable("test", SWITCH_EVENT_GENERAL, nullptr, callback, nullptr, &node);
  fire(SWITCH_EVENT_GENERAL);
  fire(SWITCH_EVENT_GENERAL);
  kvx_switch::FlushEvents();
  EXPECT_EQ(calls, 1);
}

TEST_F(Event, AnExceptionInAReceiverIsLoggedAndOthersGoOn) {
  switch_event_bind(
      "bad receiver", SWITCH_EVENT_MESSAGE, nullptr,
      [](switch_event_t*) { throw std::runtime_error("receiver's mistake"); }, nullptr);
  EventCapture capture(SWITCH_EVENT_MESSAGE);
  fire(SWITCH_EVENT_MESSAGE);
  EXPECT_EQ(capture.WaitFor(1).size(), 1u);
  EXPECT_TRUE(
      log().Has(test_support::error_line("An exception left the event receiver bad receiver: receiver's mistake\n")));
}

TEST_F(Event, FiringManyFromManyThreadsLosesNone) {
  EventCapture capture(SWITCH_EVENT_MESSAGE);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 500; ++i) fire(SWITCH_EVENT_MESSAGE);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(capture.All().size(), 2000u);
}

TEST_F(Event, SubclassIsReservedByOneOwner) {
  EXPECT_EQ(switch_event_reserve_subclass_detailed("a", "sub"), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_event_reserve_subclass_detailed("b", "sub"), SWITCH_STATUS_INUSE);
  EXPECT_EQ(switch_event_free_subclass_detailed("b", "sub"), SWITCH_STATUS_FALSE);
  EXPECT_EQ(switch_event_free_subclass_detailed("a", "sub"), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_event_reserve_subclass_detailed("b", "sub"), SWITCH_STATUS_SUCCESS);
}

TEST(EventWithoutCore, FiringDestroysTheEvent) {
  switch_event_t* event = nullptr;
  switch_event_create(&event, SWITCH_EVENT_GENERAL);
  EXPECT_EQ(switch_event_fire(&event), SWITCH_STATUS_FALSE);
  EXPECT_EQ(event, nullptr);
}

}  // namespace
