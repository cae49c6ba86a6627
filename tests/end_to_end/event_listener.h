#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/udp_socket.h"

namespace end_to_end {

/// An event as a client of the event socket got it, values decoded.
struct HeardEvent {
  std::vector<std::pair<std::string, std::string>> headers;  // in the order of arrival
  std::string body;

  std::string Name() const { return Header("Event-Name"); }
  /// The first of that name; empty when there is none.
  std::string Header(const std::string& name) const;
  /// -1 when it is no number.
  long Number(const std::string& name) const;
};

/// A monitoring program on the event socket: logs in, asks for events in the plain form, and reads what comes. Every
/// step that does not come to its end throws std::runtime_error.
class EventListener {
 public:
  /// `names` as behind "event plain".
  EventListener(const test_support::UdpAddress& event_socket, const std::string& names);
  ~EventListener();
  EventListener(const EventListener&) = delete;
  EventListener& operator=(const EventListener&) = delete;

  /// The text of the reply to a command of the protocol ("filter ...", "bgapi ..."), "Reply-Text" alone.
  std::string Command(const std::string& line);
  /// Reads until `done` holds for all events heard so far, or `limit` is over; all of them either way.
  const std::vector<HeardEvent>& WaitUntil(std::chrono::milliseconds limit,
                                           const std::function<bool(const std::vector<HeardEvent>& heard)>& done);
  /// The same, until there are so many.
  const std::vector<HeardEvent>& WaitFor(std::size_t count, std::chrono::milliseconds limit);

 private:
  struct Message {
    std::map<std::string, std::string> headers;
    std::string body;
  };

  /// False when none came in time.
  bool Read(std::chrono::steady_clock::time_point deadline, Message& message);
  bool ReadMore(std::chrono::steady_clock::time_point deadline);
  Message ReadReply(const std::string& type);
  void Send(const std::string& bytes);

  int socket_ = -1;
  std::string received_;
  std::vector<HeardEvent> events_;
};

}  // namespace end_to_end
