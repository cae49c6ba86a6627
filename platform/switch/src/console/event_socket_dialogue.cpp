#include "console/event_socket_dialogue.h"

#include <switch.h>

#include <algorithm>
#include <exception>
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
    {"auth", true, &EventSocketDialogue::LogIn},
    {"exit", true, &EventSocketDialogue::Exit},
    {"api", false, &EventSocketDialogue::Api},
};

EventSocketDialogue::EventSocketDialogue(std::string password, std::string peer, ApiRunner run_api)
    : password_(std::move(password)), peer_(std::move(peer)), run_api_(std::move(run_api)) {}

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
  const std::string& line = request.arguments;
  const size_t word_end = std::min(line.find(' '), line.size());
  const size_t arguments = std::min(line.find_first_not_of(' ', word_end), line.size());
  if (word_end == 0) return reply("-ERR no api command given");
  std::string output;
  try {
    output = run_api_(line.substr(0, word_end), line.substr(arguments));
  } catch (const std::exception& exception) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "Event socket: command \"%s\" failed: %s\n", line.c_str(),
                      exception.what());
    output = std::string("-ERR ") + exception.what() + "\n";
  }
  // Clients wait for a body; an empty one would leave some of them waiting.
  if (output.empty()) output = "-ERR no reply\n";
  return with_body("api/response", output);
}

}  // namespace kvx_switch
