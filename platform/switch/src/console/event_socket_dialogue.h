#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "console/event_socket_request.h"

namespace kvx_switch {

/// Runs an API command and returns what it wrote; `arguments` is empty when there are none.
using ApiRunner = std::function<std::string(const std::string& command, const std::string& arguments)>;

/// What the switch says to one client of the event socket: who may do what, and which answer follows which request.
/// Knows nothing of sockets; one thread at a time.
///
/// Until the right password has come, only "auth" and "exit" are commands; after kMaxLoginTries wrong ones the
/// conversation is over.
class EventSocketDialogue {
 public:
  static constexpr int kMaxLoginTries = 3;

  /// `peer` names the client in log lines.
  EventSocketDialogue(std::string password, std::string peer, ApiRunner run_api);

  std::string Greeting() const;
  /// The bytes to send for one request. May take as long as the command that it asks for.
  std::string Answer(const EventSocketRequest& request);
  /// The bytes to send when the client's bytes were no request; the conversation is over then.
  std::string AnswerUnreadable(EventSocketRequestParser::Result result);
  /// The bytes to send when the switch ends the conversation.
  std::string Farewell(std::string_view reason);

  bool logged_in() const { return logged_in_; }
  /// Nothing more is to be read from this client.
  bool over() const { return over_; }

 private:
  using Handler = std::string (EventSocketDialogue::*)(const EventSocketRequest& request);
  struct Command {
    std::string_view name;
    bool before_login;
    Handler handler;
  };
  static const Command kCommands[];

  std::string LogIn(const EventSocketRequest& request);
  std::string Api(const EventSocketRequest& request);
  std::string Exit(const EventSocketRequest& request);

  const std::string password_;
  const std::string peer_;
  const ApiRunner run_api_;
  int login_tries_ = 0;
  bool logged_in_ = false;
  bool over_ = false;
};

}  // namespace kvx_switch
