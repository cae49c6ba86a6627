#pragma once

#include <chrono>
#include <string>

#include "console/event_socket_dialogue.h"
#include "console/event_socket_request.h"
#include "console/file_descriptor.h"
#include "console/wake_event.h"

namespace kvx_switch {

/// How long a client of the event socket may take for what.
struct EventSocketPatience {
  std::chrono::milliseconds login{10000};   ///< from connecting to the right password
  std::chrono::milliseconds send{10000};    ///< without taking a byte of what is sent to it
  std::chrono::milliseconds farewell{500};  ///< to read the last words, also when the switch stops
};

/// One client: its socket, and the loop of the thread that serves it. A client that is slow, or whose command takes
/// long, holds up nobody else.
class EventSocketConnection {
 public:
  /// `stop` ends the loop from outside and outlives the connection.
  EventSocketConnection(FileDescriptor socket, EventSocketDialogue dialogue, EventSocketPatience patience,
                        const WakeEvent& stop);

  /// Serves the client until one side ends the conversation. Returns after a command that runs, never in the middle.
  void Run();

 private:
  using Clock = std::chrono::steady_clock;
  enum class Awaited { kReady, kStopped, kTooLate };

  bool Read();
  bool AnswerRequests();
  bool Send(const std::string& bytes);
  void Linger();
  Awaited Await(short events, Clock::time_point deadline, bool heed_stop) const;

  FileDescriptor socket_;
  EventSocketDialogue dialogue_;
  EventSocketRequestParser parser_;
  const EventSocketPatience patience_;
  const WakeEvent& stop_;
};

}  // namespace kvx_switch
