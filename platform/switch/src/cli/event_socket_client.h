#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kvx_cli {

/// How an exchange with the switch ended. Everything but kDone comes with a sentence in EventSocketClient::error().
enum class Outcome {
  kDone,
  kUnreachable,    ///< name not known, connection refused, no route
  kWrongPassword,  ///< the switch did not accept the password
  kTimedOut,       ///< no complete answer in time; the connection is closed, since the next answer would be this one's
  kDisconnected,   ///< the switch closed the connection
  kProtocolError,  ///< what arrived is not the event-socket protocol
};

/// One message of the event socket: header lines, an empty line, and a body of Content-Length bytes.
struct EventSocketMessage {
  std::vector<std::pair<std::string, std::string>> headers;  ///< in the order of arrival, names as they came
  std::string body;

  /// The first header of that name, compared without case; empty when there is none.
  std::string Header(const std::string& name) const;
};

/// A program that asks the switch something has to log in, send a line and tell the answer from a lost connection.
/// This is that conversation for one caller: blocking, each call bounded by its timeout, commands one after another.
///
/// Not for use by two threads at once. Depends on nothing of the switch.
class EventSocketClient {
 public:
  EventSocketClient() = default;
  ~EventSocketClient();
  EventSocketClient(const EventSocketClient&) = delete;
  EventSocketClient& operator=(const EventSocketClient&) = delete;

  /// Connects to host (name, IPv4 or IPv6 address, without brackets) and logs in. Drops a connection held before.
  Outcome Connect(const std::string& host, uint16_t port, const std::string& password,
                  std::chrono::milliseconds timeout);

  /// Runs an API command line ("show calls") and stores what it wrote. A line with a line break is refused with
  /// kProtocolError and not sent.
  Outcome Api(const std::string& line, std::chrono::milliseconds timeout, std::string& output);

  /// Sends one line of the protocol itself ("exit", "noevents") and stores its reply.
  Outcome Command(const std::string& line, std::chrono::milliseconds timeout, EventSocketMessage& reply);

  /// Told every line of the log that comes, in between the answers; from inside Api, Command and Connected.
  void OnLog(std::function<void(const EventSocketMessage& line)> handler) { on_log_ = std::move(handler); }
  /// To wait for what comes unasked; Connected takes it. Negative when there is no connection.
  int descriptor() const { return socket_; }

  /// Whether a command sent now could still be answered; notices that the switch has hung up in the meantime.
  bool Connected();
  void Close();

  /// Why the last call did not end with kDone.
  const std::string& error() const { return error_; }

 private:
  using Deadline = std::chrono::steady_clock::time_point;

  Outcome Open(const std::string& host, uint16_t port, Deadline deadline);
  Outcome LogIn(const std::string& password, Deadline deadline);
  Outcome Exchange(const std::string& line, const std::string& answer_type, Deadline deadline,
                   EventSocketMessage& answer);
  Outcome Send(const std::string& bytes, Deadline deadline);
  Outcome Receive(Deadline deadline, EventSocketMessage& message);
  Outcome TakeMessage(EventSocketMessage& message, bool& complete);
  Outcome Await(short events, Deadline deadline);
  Outcome Fail(Outcome outcome, const std::string& error);
  void HandLog(const EventSocketMessage& message);
  void HandReceived();

  int socket_ = -1;
  std::string received_;  ///< bytes that no message has used yet
  std::string error_;
  std::function<void(const EventSocketMessage& line)> on_log_;
};

}  // namespace kvx_cli
