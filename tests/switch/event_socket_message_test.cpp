#include "console/event_message.h"

#include <gtest/gtest.h>

#include <string>

#include "event_socket_event.h"

namespace kvx_switch {
namespace {

using event_socket_test::EventPtr;
using event_socket_test::make_bare_event;

std::string framed(const std::string& form, const std::string& body) {
  return "Content-Length: " + std::to_string(body.size()) + "\nContent-Type: text/event-" + form + "\n\n" + body;
}

EventPtr sample() {
  return make_bare_event(SWITCH_EVENT_GENERAL, {{"Event-Name", "GENERAL"}, {"Note", "a: b%\n\xc3\xbc"}});
}

TEST(EventMessageText, PlainHasEncodedValuesOnLinesOfTheirOwn) {
  EXPECT_EQ(EventMessage(*sample(), EventFormat::kPlain),
            framed("plain", "Event-Name: GENERAL\nNote: a%3A%20b%25%0A%C3%BC\n\n"));
}

TEST(EventMessageText, PlainHasTheBodyBehindItsOwnLength) {
  const EventPtr event = sample();
  switch_event_add_body(event.get(), "%s", "+OK\n50%\n");
  EXPECT_EQ(EventMessage(*event, EventFormat::kPlain),
            framed("plain", "Event-Name: GENERAL\nNote: a%3A%20b%25%0A%C3%BC\nContent-Length: 8\n\n+OK\n50%\n"));
}

TEST(EventMessageText, JsonIsOneObject) {
  const EventPtr event = sample();
  switch_event_add_body(event.get(), "%s", "+OK\n");
  EXPECT_EQ(EventMessage(*event, EventFormat::kJson),
            framed("json", "{\"Event-Name\":\"GENERAL\",\"Note\":\"a: b%\\n\xc3\xbc\",\"_body\":\"+OK\\n\"}"));
}

TEST(EventMessageText, XmlHasAnElementForEachHeader) {
  const EventPtr event =
      make_bare_event(SWITCH_EVENT_GENERAL, {{"Event-Name", "GENERAL"}, {"1 odd/name", "<&>"}, {"", "x"}});
  switch_event_add_body(event.get(), "%s", "1 < 2 & \x01\n");
  EXPECT_EQ(EventMessage(*event, EventFormat::kXml),
            framed("xml",
                   "<event>\n  <headers>\n    <Event-Name>GENERAL</Event-Name>\n"
                   "    <_1_odd_name>%3C%26%3E</_1_odd_name>\n    <_>x</_>\n  </headers>\n"
                   "  <Content-Length>10</Content-Length>\n  <body>1 &lt; 2 &amp; ?\n</body>\n</event>\n"));
}

}  // namespace
}  // namespace kvx_switch
