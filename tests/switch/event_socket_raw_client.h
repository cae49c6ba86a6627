#pragma once

#include <chrono>
#include <string>

namespace event_socket_test {

/// A client of the event socket that sends what it is told, byte for byte, and shows what came back. Every wait is
/// bounded; what does not come in time shows as text that is missing.
class RawClient {
 public:
  /// `address` as the server tells it, "127.0.0.1:8021" or "[::1]:8021". `receive_buffer` other than 0 makes the
  /// kernel take no more than about that many bytes for us.
  explicit RawClient(const std::string& address, int receive_buffer = 0);
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  bool connected() const { return socket_ >= 0; }
  /// False when the server has closed the connection.
  bool Send(const std::string& bytes);
  void EndSending();
  /// One message: headers, empty line, body. What has come so far when the rest does not come.
  std::string Message();
  /// Everything until the server closes; ends with "[still open]" when it does not.
  std::string Rest();
  /// Reads the greeting, sends the password, reads the answer. False when it was not accepted.
  bool LogIn(const std::string& password);

 private:
  enum class Read { kBytes, kEnd, kNothing };
  Read ReadMore(std::chrono::steady_clock::time_point deadline);

  int socket_ = -1;
  std::string received_;
};

}  // namespace event_socket_test
