#pragma once

#include <chrono>
#include <string>

#include "console/event_outbox.h"
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
  /// What `outbox` gets goes to the client between two answers. `stop` ends the loop from outside. Both outlive the
  /// connection.
  EventSocketConnection(FileDescriptor socket, EventSocketDialogue dialogue, EventOutbox& outbox,
                        EventSocketPatience patience, const WakeEvent& stop);

  /// Serves the client until one side ends the conversation. Returns after a command that runs, never in the middle.
  void Run();

 private:
  using Clock = std::chrono::steady_clock;
  enum class Awaited { kReady, kEvents, kStopped, kTooLate };
  enum class Heed { kNothing, kStop, kStopAndEvents };

  bool Read();
  bool AnswerRequests();
  bool SendEvents();
  bool TakeLeave(const char* reason);
  bool Send(const std::string& bytes);
  void Linger();
  Awaited Await(short events, Clock::time_point deadline, Heed heed) const;

  FileDescriptor socket_;
  EventSocketDialogue dialogue_;
  EventSocketRequestParser parser_;
  EventOutbox& outbox_;
  const EventSocketPatience patience_;
  const WakeEvent& stop_;
};

}  // namespace kvx_switch
