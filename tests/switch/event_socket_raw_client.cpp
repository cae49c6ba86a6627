#include "event_socket_raw_client.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace event_socket_test {
namespace {

constexpr std::chrono::seconds kPatience{10};

size_t body_length(const std::string& head) {
  const std::string name = "Content-Length: ";
  const size_t at = head.find(name);
  return at == std::string::npos ? 0 : std::strtoul(head.c_str() + at + name.size(), nullptr, 10);
}

}  // namespace

RawClient::RawClient(const std::string& address, int receive_buffer) {
  const size_t colon = address.rfind(':');
  if (colon == std::string::npos) return;
  std::string host = address.substr(0, colon);
  if (host.front() == '[') host = host.substr(1, host.size() - 2);
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), address.c_str() + colon + 1, &hints, &found) != 0) return;
  socket_ = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (receive_buffer != 0) {
    setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof(receive_buffer));
  }
  if (connect(socket_, found->ai_addr, found->ai_addrlen) != 0) {
    close(socket_);
    socket_ = -1;
  }
  freeaddrinfo(found);
}

RawClient::~RawClient() {
  if (socket_ >= 0) close(socket_);
}

bool RawClient::Send(const std::string& bytes) {
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t count = send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return false;
    sent += static_cast<size_t>(count);
  }
  return true;
}

void RawClient::EndSending() {
  shutdown(socket_, SHUT_WR);
}

RawClient::Read RawClient::ReadMore(std::chrono::steady_clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  pollfd waiting{socket_, POLLIN, 0};
  if (poll(&waiting, 1, static_cast<int>(std::max<int64_t>(left.count(), 0))) <= 0) return Read::kNothing;
  char bytes[65536];
  const ssize_t count = recv(socket_, bytes, sizeof(bytes), 0);
  if (count <= 0) return Read::kEnd;
  received_.append(bytes, static_cast<size_t>(count));
  return Read::kBytes;
}

std::string RawClient::Message() {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  for (;;) {
    const size_t head_end = received_.find("\n\n");
    if (head_end != std::string::npos) {
      const size_t length = head_end + 2 + body_length(received_.substr(0, head_end));
      if (received_.size() >= length) {
        const std::string message = received_.substr(0, length);
        received_.erase(0, length);
        return message;
      }
    }
    if (ReadMore(deadline) != Read::kBytes) {
      std::string incomplete;
      incomplete.swap(received_);
      return incomplete;
    }
  }
}

std::string RawClient::Rest() {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  Read read = Read::kBytes;
  while (read == Read::kBytes) read = ReadMore(deadline);
  std::string rest;
  rest.swap(received_);
  return read == Read::kEnd ? rest : rest + "[still open]";
}

bool RawClient::LogIn(const std::string& password) {
  if (Message() != "Content-Type: auth/request\n\n") return false;
  return Send("auth " + password + "\n\n") && Message() == "Content-Type: command/reply\nReply-Text: +OK accepted\n\n";
}

}  // namespace event_socket_test
