#include "event_listener.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace end_to_end {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kReplyPatience{10};

std::string decoded(const std::string& text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      plain += static_cast<char>(std::strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
      i += 2;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

/// "Name: value" lines up to an empty one; what is behind that stays in `text`.
std::vector<std::pair<std::string, std::string>> take_headers(std::string& text) {
  std::vector<std::pair<std::string, std::string>> headers;
  const std::size_t end = text.find("\n\n");
  std::istringstream lines(text.substr(0, end));
  text.erase(0, end == std::string::npos ? end : end + 2);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t colon = line.find(": ");
    if (colon == std::string::npos) throw std::runtime_error("no header of the event socket: " + line);
    headers.emplace_back(line.substr(0, colon), line.substr(colon + 2));
  }
  return headers;
}

}  // namespace

std::string HeardEvent::Header(const std::string& name) const {
  const auto found =
      std::find_if(headers.begin(), headers.end(), [&name](const auto& header) { return header.first == name; });
  return found == headers.end() ? "" : found->second;
}

long HeardEvent::Number(const std::string& name) const {
  const std::string value = Header(name);
  char* end = nullptr;
  const long number = std::strtol(value.c_str(), &end, 10);
  return value.empty() || *end != '\0' ? -1 : number;
}

EventListener::EventListener(const test_support::UdpAddress& event_socket, const std::string& names) {
  socket_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(event_socket.port);
  inet_pton(AF_INET, event_socket.address.c_str(), &address.sin_addr);
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    close(socket_);
    throw std::runtime_error("cannot connect to the event socket at " + event_socket.ToString());
  }
  ReadReply("auth/request");
  if (Command("auth kelvaro") != "+OK accepted") throw std::runtime_error("the event socket refuses the password");
  if (Command("event plain " + names).rfind("+OK", 0) != 0) throw std::runtime_error("no events named " + names);
}

EventListener::~EventListener() {
  close(socket_);
}

void EventListener::Send(const std::string& bytes) {
  if (send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("the event socket takes no commands");
  }
}

std::string EventListener::Command(const std::string& line) {
  Send(line + "\n\n");
  return ReadReply("command/reply").headers["Reply-Text"];
}

EventListener::Message EventListener::ReadReply(const std::string& type) {
  Message message;
  while (Read(Clock::now() + kReplyPatience, message)) {
    if (message.headers["Content-Type"] == type) return message;
  }
  throw std::runtime_error("the event socket does not answer with " + type);
}

/// One message; an event is put by as well.
bool EventListener::Read(Clock::time_point deadline, Message& message) {
  for (;;) {
    const std::size_t head_end = received_.find("\n\n");
    if (head_end != std::string::npos) {
      std::string rest = received_;
      message = {};
      for (auto& [name, value] : take_headers(rest)) message.headers[name] = value;
      const std::size_t length = std::strtoul(message.headers["Content-Length"].c_str(), nullptr, 10);
      if (rest.size() >= length) {
        message.body = rest.substr(0, length);
        received_.erase(0, head_end + 2 + length);
        if (message.headers["Content-Type"] == "text/event-plain") {
          HeardEvent event;
          event.body = message.body;
          event.headers = take_headers(event.body);
          for (auto& header : event.headers) header.second = decoded(header.second);
          events_.push_back(std::move(event));
        }
        return true;
      }
    }
    if (!ReadMore(deadline)) return false;
  }
}

bool EventListener::ReadMore(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  pollfd polled{socket_, POLLIN, 0};
  if (poll(&polled, 1, static_cast<int>(std::max<long>(left, 0))) <= 0) return false;
  char bytes[65536];
  const ssize_t count = recv(socket_, bytes, sizeof(bytes), 0);
  if (count <= 0) throw std::runtime_error("the event socket was closed");
  received_.append(bytes, static_cast<std::size_t>(count));
  return true;
}

const std::vector<HeardEvent>& EventListener::WaitUntil(
    std::chrono::milliseconds limit, const std::function<bool(const std::vector<HeardEvent>& heard)>& done) {
  const auto deadline = Clock::now() + limit;
  Message message;
  while (!done(events_) && Read(deadline, message)) {
  }
  return events_;
}

const std::vector<HeardEvent>& EventListener::WaitFor(std::size_t count, std::chrono::milliseconds limit) {
  return WaitUntil(limit, [count](const std::vector<HeardEvent>& heard) { return heard.size() >= count; });
}

}  // namespace end_to_end
