#pragma once

#include <switch.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "console/api_line.h"
#include "console/event_commands.h"
#include "console/event_socket_request.h"

namespace kvx_switch {

/// What a conversation needs of the switch. All are called on the conversation's thread.
struct EventSocketServices {
  ApiRunner run_api;
  /// Runs the command beside the conversation, under the job's uuid; false when no more can run.
  std::function<bool(const std::string& uuid, const ApiLine& line)> start_job;
  /// Sends the client these events from now on, and no others.
  EventCommands::Listener want_events;
  /// Sends the client the log's lines down to that level; empty: no more. False when there is nothing to stop.
  std::function<bool(std::optional<switch_log_level_t> level)> follow_log = {};
};

/// What the switch says to one client of the event socket: who may do what, and which answer follows which request.
/// Knows nothing of sockets; one thread at a time.
///
/// Until the right password has come, only "auth" and "exit" are commands; after kMaxLoginTries wrong ones the
/// conversation is over.
class EventSocketDialogue {
 public:
  static constexpr int kMaxLoginTries = 3;

  /// `peer` names the client in log lines.
  EventSocketDialogue(std::string password, std::string peer, EventSocketServices services);

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
  std::string BackgroundApi(const EventSocketRequest& request);
  std::string Event(const EventSocketRequest& request);
  std::string NixEvent(const EventSocketRequest& request);
  std::string NoEvents(const EventSocketRequest& request);
  std::string MyEvents(const EventSocketRequest& request);
  std::string Filter(const EventSocketRequest& request);
  std::string Log(const EventSocketRequest& request);
  std::string NoLog(const EventSocketRequest& request);
  std::string SendEvent(const EventSocketRequest& request);
  std::string Linger(const EventSocketRequest& request);
  std::string NoLinger(const EventSocketRequest& request);
  std::string Exit(const EventSocketRequest& request);

  const std::string password_;
  const std::string peer_;
  const EventSocketServices services_;
  EventCommands events_;
  int login_tries_ = 0;
  bool logged_in_ = false;
  bool over_ = false;
};

}  // namespace kvx_switch
