#include "console/event_socket_dialogue.h"

#include <switch.h>

#include <utility>

#include <strings.h>

namespace kvx_switch {
namespace {

std::string reply(std::string_view text) {
  return "Content-Type: command/reply\nReply-Text: " + std::string(text) + "\n\n";
}

std::string with_body(std::string_view type, std::string_view body) {
  return "Content-Type: " + std::string(type) + "\nContent-Length: " + std::to_string(body.size()) + "\n\n" +
         std::string(body);
}

/// Takes the same time for every guess of the same length, so that a guess does not learn how much of it was right.
bool same_secret(std::string_view expected, std::string_view guess) {
  unsigned difference = expected.size() == guess.size() ? 0 : 1;
  for (size_t at = 0; at < guess.size(); ++at) {
    const char other = expected.empty() ? '\0' : expected[at % expected.size()];
    difference |= static_cast<unsigned char>(guess[at] ^ other);
  }
  return difference == 0;
}

}  // namespace

const EventSocketDialogue::Command EventSocketDialogue::kCommands[] = {
    {"auth", true, &EventSocketDialogue::LogIn},         {"exit", true, &EventSocketDialogue::Exit},
    {"api", false, &EventSocketDialogue::Api},           {"bgapi", false, &EventSocketDialogue::BackgroundApi},
    {"event", false, &EventSocketDialogue::Event},       {"filter", false, &EventSocketDialogue::Filter},
    {"myevents", false, &EventSocketDialogue::MyEvents}, {"nixevent", false, &EventSocketDialogue::NixEvent},
    {"noevents", false, &EventSocketDialogue::NoEvents}, {"log", false, &EventSocketDialogue::Log},
    {"nolog", false, &EventSocketDialogue::NoLog},       {"sendevent", false, &EventSocketDialogue::SendEvent},
    {"linger", false, &EventSocketDialogue::Linger},     {"nolinger", false, &EventSocketDialogue::NoLinger},
};

EventSocketDialogue::EventSocketDialogue(std::string password, std::string peer, EventSocketServices services)
    : password_(std::move(password)),
      peer_(std::move(peer)),
      services_(std::move(services)),
      events_(services_.want_events) {}

std::string EventSocketDialogue::Greeting() const {
  return "Content-Type: auth/request\n\n";
}

std::string EventSocketDialogue::Answer(const EventSocketRequest& request) {
  for (const Command& command : kCommands) {
    if (strcasecmp(request.command.c_str(), std::string(command.name).c_str()) != 0) continue;
    if (!logged_in_ && !command.before_login) break;
    return (this->*command.handler)(request);
  }
  return reply("-ERR command not found");
}

std::string EventSocketDialogue::AnswerUnreadable(EventSocketRequestParser::Result result) {
  const bool too_large = result == EventSocketRequestParser::Result::kTooLarge;
  const char* reason = too_large ? "request too large" : "malformed request";
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "Event socket: %s from %s, connection closed\n", reason,
                    peer_.c_str());
  return reply(std::string("-ERR ") + reason) + Farewell("Disconnected, goodbye.");
}

std::string EventSocketDialogue::Farewell(std::string_view reason) {
  over_ = true;
  return with_body("text/disconnect-notice", std::string(reason) + "\n");
}

std::string EventSocketDialogue::LogIn(const EventSocketRequest& request) {
  if (same_secret(password_, request.arguments)) {
    logged_in_ = true;
    return reply("+OK accepted");
  }
  ++login_tries_;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "Event socket: wrong password from %s (%d of %d)\n",
                    peer_.c_str(), login_tries_, kMaxLoginTries);
  const std::string refusal = reply("-ERR invalid");
  return login_tries_ < kMaxLoginTries ? refusal : refusal + Farewell("Disconnected, goodbye.");
}

std::string EventSocketDialogue::Exit(const EventSocketRequest&) {
  return reply("+OK bye") + Farewell("Disconnected, goodbye.");
}

std::string EventSocketDialogue::Api(const EventSocketRequest& request) {
  const ApiLine line = ParseApiLine(request.arguments);
  if (line.command.empty()) return reply("-ERR no api command given");
  return with_body("api/response", RunApiLine(services_.run_api, line));
}

/// A client that gives the job's uuid itself can tell the event before it has seen the reply.
std::string EventSocketDialogue::BackgroundApi(const EventSocketRequest& request) {
  const ApiLine line = ParseApiLine(request.arguments);
  if (line.command.empty()) return reply("-ERR no api command given");
  std::string uuid(request.Header("Job-UUID"));
  if (uuid.empty()) {
    char fresh[SWITCH_UUID_FORMATTED_LENGTH + 1];
    uuid = switch_uuid_str(fresh, sizeof(fresh));
  }
  if (!services_.start_job(uuid, line)) return reply("-ERR too many background jobs");
  return reply("+OK Job-UUID: " + uuid + "\nJob-UUID: " + uuid);
}

std::string EventSocketDialogue::Event(const EventSocketRequest& request) {
  return reply(events_.Event(request.arguments));
}

std::string EventSocketDialogue::NixEvent(const EventSocketRequest& request) {
  return reply(events_.NixEvent(request.arguments));
}

std::string EventSocketDialogue::NoEvents(const EventSocketRequest&) {
  return reply(events_.NoEvents());
}

std::string EventSocketDialogue::MyEvents(const EventSocketRequest& request) {
  return reply(events_.MyEvents(request.arguments));
}

std::string EventSocketDialogue::Filter(const EventSocketRequest& request) {
  return reply(events_.Filter(request.arguments));
}

std::string EventSocketDialogue::Log(const EventSocketRequest& request) {
  const std::string& name = request.arguments;
  const switch_log_level_t level = name.empty() ? SWITCH_LOG_DEBUG : switch_log_str2level(name.c_str());
  if (level == SWITCH_LOG_INVALID) return reply("-ERR invalid log level");
  services_.follow_log(level);
  return reply("+OK log level " + name + " [" + std::to_string(level) + "]");
}

std::string EventSocketDialogue::NoLog(const EventSocketRequest&) {
  return reply(services_.follow_log(std::nullopt) ? "+OK no longer logging" : "-ERR not logging");
}

/// The headers and the body of the request are those of the event.
std::string EventSocketDialogue::SendEvent(const EventSocketRequest& request) {
  switch_event_types_t kind = SWITCH_EVENT_CUSTOM;
  if (switch_name_event(request.arguments.c_str(), &kind) != SWITCH_STATUS_SUCCESS || kind == SWITCH_EVENT_ALL)
    return reply("-ERR invalid event");
  const std::string subclass(request.Header("Event-Subclass"));
  if (kind == SWITCH_EVENT_CUSTOM && subclass.empty()) return reply("-ERR a CUSTOM event needs an Event-Subclass");
  switch_event_t* event = nullptr;
  if (switch_event_create_subclass(&event, kind, subclass.empty() ? nullptr : subclass.c_str()) !=
      SWITCH_STATUS_SUCCESS) {
    return reply("-ERR the event cannot be made");
  }
  for (const auto& [name, value] : request.headers) {
    const bool of_the_request = strcasecmp(name.c_str(), "Content-Length") == 0;
    const bool there = switch_event_get_header(event, name.c_str()) != nullptr;
    if (!of_the_request && !there)
      switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, name.c_str(), value.c_str());
  }
  if (!request.body.empty()) switch_event_add_body(event, "%s", request.body.c_str());
  switch_event_fire(&event);
  return reply("+OK");
}

/// What waits for a client goes to it before the connection ends in any case: there is nothing to change.
std::string EventSocketDialogue::Linger(const EventSocketRequest&) {
  return reply("+OK will linger");
}

std::string EventSocketDialogue::NoLinger(const EventSocketRequest&) {
  return reply("+OK will not linger");
}

}  // namespace kvx_switch
