#include "event_socket_client.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include <strings.h>

namespace kvx_cli {
namespace {

constexpr size_t kMaxHeadBytes = 64 * 1024;
constexpr size_t kMaxBodyBytes = 64 * 1024 * 1024;
constexpr size_t kReadBytes = 16 * 1024;

std::string trimmed(const std::string& text) {
  const char* blanks = " \t\r";
  const size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// Where the empty line behind a message's headers ends; npos while it has not arrived.
size_t end_of_head(const std::string& bytes) {
  for (size_t line = 0;;) {
    const size_t end = bytes.find('\n', line);
    if (end == std::string::npos) return end;
    const bool empty = end == line || (end == line + 1 && bytes[line] == '\r');
    if (empty) return end + 1;
    line = end + 1;
  }
}

bool parse_length(const std::string& text, size_t& length) {
  if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos) return false;
  length = std::stoul(text);
  return length <= kMaxBodyBytes;
}

void parse_head(const std::string& head, EventSocketMessage& message) {
  for (size_t line = 0; line < head.size();) {
    const size_t end = std::min(head.find('\n', line), head.size());
    const std::string text = head.substr(line, end - line);
    const size_t colon = text.find(':');
    if (colon != std::string::npos) {
      message.headers.emplace_back(trimmed(text.substr(0, colon)), trimmed(text.substr(colon + 1)));
    }
    line = end + 1;
  }
}

std::string without_line_end(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return text;
}

}  // namespace

std::string EventSocketMessage::Header(const std::string& name) const {
  for (const auto& header : headers) {
    if (strcasecmp(header.first.c_str(), name.c_str()) == 0) return header.second;
  }
  return "";
}

EventSocketClient::~EventSocketClient() {
  Close();
}

void EventSocketClient::Close() {
  if (socket_ >= 0) close(socket_);
  socket_ = -1;
  received_.clear();
}

Outcome EventSocketClient::Fail(Outcome outcome, const std::string& error) {
  error_ = error;
  Close();
  return outcome;
}

Outcome EventSocketClient::Connect(const std::string& host, uint16_t port, const std::string& password,
                                   std::chrono::milliseconds timeout) {
  Close();
  const Deadline deadline = std::chrono::steady_clock::now() + timeout;
  const Outcome opened = Open(host, port, deadline);
  return opened == Outcome::kDone ? LogIn(password, deadline) : opened;
}

Outcome EventSocketClient::Open(const std::string& host, uint16_t port, Deadline deadline) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int failure = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (failure != 0) return Fail(Outcome::kUnreachable, gai_strerror(failure));
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> addresses(found, &freeaddrinfo);

  Outcome outcome = Outcome::kUnreachable;
  for (const addrinfo* address = found; address != nullptr; address = address->ai_next) {
    socket_ = socket(address->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socket_ < 0) {
      error_ = std::strerror(errno);
      continue;
    }
    int reason = connect(socket_, address->ai_addr, address->ai_addrlen) == 0 ? 0 : errno;
    if (reason == EINPROGRESS) {
      outcome = Await(POLLOUT, deadline);
      if (outcome != Outcome::kDone) return outcome;
      socklen_t length = sizeof(reason);
      getsockopt(socket_, SOL_SOCKET, SO_ERROR, &reason, &length);
    }
    if (reason == 0) {
      const int on = 1;
      setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
      return Outcome::kDone;
    }
    outcome = Fail(Outcome::kUnreachable, std::strerror(reason));
  }
  return Outcome::kUnreachable;
}

Outcome EventSocketClient::LogIn(const std::string& password, Deadline deadline) {
  EventSocketMessage greeting;
  Outcome outcome = Receive(deadline, greeting);
  if (outcome != Outcome::kDone) return outcome;
  if (greeting.Header("Content-Type") != "auth/request") {
    return Fail(Outcome::kProtocolError, "the peer does not speak the event-socket protocol");
  }
  EventSocketMessage reply;
  outcome = Exchange("auth " + password, "command/reply", deadline, reply);
  if (outcome != Outcome::kDone) return outcome;
  const std::string text = reply.Header("Reply-Text");
  if (text.rfind("+OK", 0) != 0) return Fail(Outcome::kWrongPassword, text);
  return Outcome::kDone;
}

Outcome EventSocketClient::Api(const std::string& line, std::chrono::milliseconds timeout, std::string& output) {
  EventSocketMessage answer;
  const Outcome outcome = Exchange("api " + line, "api/response", std::chrono::steady_clock::now() + timeout, answer);
  if (outcome == Outcome::kDone) output = answer.body;
  return outcome;
}

Outcome EventSocketClient::Command(const std::string& line, std::chrono::milliseconds timeout,
                                   EventSocketMessage& reply) {
  return Exchange(line, "command/reply", std::chrono::steady_clock::now() + timeout, reply);
}

Outcome EventSocketClient::Exchange(const std::string& line, const std::string& answer_type, Deadline deadline,
                                    EventSocketMessage& answer) {
  if (line.find_first_of("\r\n") != std::string::npos) {
    error_ = "a command is one line";
    return Outcome::kProtocolError;
  }
  const Outcome sent = Send(line + "\n\n", deadline);
  if (sent != Outcome::kDone) return sent;
  for (;;) {
    EventSocketMessage message;
    const Outcome outcome = Receive(deadline, message);
    if (outcome != Outcome::kDone) return outcome;
    const std::string type = message.Header("Content-Type");
    if (type == answer_type) {
      answer = std::move(message);
      return Outcome::kDone;
    }
    HandLog(message);
    // A refusal of an API command comes as a reply to the line itself, for instance when it is too long.
    if (type == "command/reply") return Fail(Outcome::kProtocolError, message.Header("Reply-Text"));
  }
}

void EventSocketClient::HandLog(const EventSocketMessage& message) {
  if (on_log_ && message.Header("Content-Type") == "log/data") on_log_(message);
}

Outcome EventSocketClient::Await(short events, Deadline deadline) {
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd waiting{socket_, events, 0};
    const int ready = poll(&waiting, 1, static_cast<int>(std::clamp<int64_t>(left.count(), 0, 60 * 1000)));
    if (ready > 0) return Outcome::kDone;
    if (ready < 0 && errno != EINTR) return Fail(Outcome::kDisconnected, std::strerror(errno));
    if (left.count() <= 0) return Fail(Outcome::kTimedOut, "no answer in time");
  }
}

Outcome EventSocketClient::Send(const std::string& bytes, Deadline deadline) {
  if (socket_ < 0) return Fail(Outcome::kDisconnected, "not connected");
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t now = send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (now >= 0) {
      sent += static_cast<size_t>(now);
    } else if (errno == EAGAIN) {
      const Outcome outcome = Await(POLLOUT, deadline);
      if (outcome != Outcome::kDone) return outcome;
    } else if (errno != EINTR) {
      return Fail(Outcome::kDisconnected, std::strerror(errno));
    }
  }
  return Outcome::kDone;
}

Outcome EventSocketClient::Receive(Deadline deadline, EventSocketMessage& message) {
  for (;;) {
    bool complete = false;
    Outcome outcome = TakeMessage(message, complete);
    if (complete || outcome != Outcome::kDone) return outcome;

    outcome = Await(POLLIN, deadline);
    if (outcome != Outcome::kDone) return outcome;
    char bytes[kReadBytes];
    const ssize_t count = recv(socket_, bytes, sizeof(bytes), 0);
    if (count > 0) {
      received_.append(bytes, static_cast<size_t>(count));
    } else if (count == 0) {
      return Fail(Outcome::kDisconnected, "the switch closed the connection");
    } else if (errno != EINTR && errno != EAGAIN) {
      return Fail(Outcome::kDisconnected, std::strerror(errno));
    }
  }
}

Outcome EventSocketClient::TakeMessage(EventSocketMessage& message, bool& complete) {
  const size_t head_end = end_of_head(received_);
  if (std::min(head_end, received_.size()) > kMaxHeadBytes) {
    return Fail(Outcome::kProtocolError, "a header block of more than " + std::to_string(kMaxHeadBytes) + " bytes");
  }
  if (head_end == std::string::npos) return Outcome::kDone;

  EventSocketMessage taken;
  parse_head(received_.substr(0, head_end), taken);
  size_t length = 0;
  const std::string announced = taken.Header("Content-Length");
  if (!announced.empty() && !parse_length(announced, length)) {
    return Fail(Outcome::kProtocolError, "a body of \"" + announced + "\" bytes");
  }
  if (received_.size() - head_end < length) return Outcome::kDone;
  taken.body = received_.substr(head_end, length);
  received_.erase(0, head_end + length);

  const std::string type = taken.Header("Content-Type");
  if (type == "text/disconnect-notice" || type == "text/rude-rejection") {
    return Fail(Outcome::kDisconnected, without_line_end(taken.body));
  }
  message = std::move(taken);
  complete = true;
  return Outcome::kDone;
}

bool EventSocketClient::Connected() {
  HandReceived();  // what came along with the last answer
  while (socket_ >= 0) {
    char bytes[kReadBytes];
    const ssize_t count = recv(socket_, bytes, sizeof(bytes), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) return true;
    if (count <= 0) {
      Fail(Outcome::kDisconnected, "the switch closed the connection");
      break;
    }
    received_.append(bytes, static_cast<size_t>(count));
    HandReceived();
  }
  return false;
}

void EventSocketClient::HandReceived() {
  bool complete = true;
  while (complete && socket_ >= 0) {
    EventSocketMessage unasked;
    complete = false;
    TakeMessage(unasked, complete);
    if (complete) HandLog(unasked);
  }
}

}  // namespace kvx_cli
