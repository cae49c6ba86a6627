#include "console/event_socket_connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace kvx_switch {
namespace {

constexpr size_t kReadBytes = 16 * 1024;
/// Strangers get room for a password and no body.
constexpr EventSocketRequestParser::Limits kBeforeLogin{1024, 0};
constexpr EventSocketRequestParser::Limits kAfterLogin{64 * 1024, 1024 * 1024};

}  // namespace

EventSocketConnection::EventSocketConnection(FileDescriptor socket, EventSocketDialogue dialogue,
                                             EventSocketPatience patience, const WakeEvent& stop)
    : socket_(std::move(socket)),
      dialogue_(std::move(dialogue)),
      parser_(kBeforeLogin),
      patience_(patience),
      stop_(stop) {}

void EventSocketConnection::Run() {
  const Clock::time_point login_deadline = Clock::now() + patience_.login;
  bool connected = Send(dialogue_.Greeting());
  while (connected && !dialogue_.over()) {
    const Clock::time_point deadline = dialogue_.logged_in() ? Clock::time_point::max() : login_deadline;
    switch (Await(POLLIN, deadline, true)) {
      case Awaited::kReady:
        connected = Read() && AnswerRequests();
        break;
      case Awaited::kStopped:
        connected = Send(dialogue_.Farewell("The switch is stopping, goodbye."));
        break;
      case Awaited::kTooLate:
        connected = Send(dialogue_.Farewell("No password in time, goodbye."));
        break;
    }
  }
  if (connected) Linger();
  socket_ = FileDescriptor();
}

bool EventSocketConnection::Read() {
  char bytes[kReadBytes];
  const ssize_t count = recv(socket_.get(), bytes, sizeof(bytes), 0);
  if (count > 0) parser_.Feed({bytes, static_cast<size_t>(count)});
  return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

bool EventSocketConnection::AnswerRequests() {
  while (!dialogue_.over() && !stop_.Raised()) {
    EventSocketRequest request;
    const EventSocketRequestParser::Result result = parser_.Next(request);
    if (result == EventSocketRequestParser::Result::kMore) return true;
    const bool readable = result == EventSocketRequestParser::Result::kRequest;
    if (!Send(readable ? dialogue_.Answer(request) : dialogue_.AnswerUnreadable(result))) return false;
    if (dialogue_.logged_in()) parser_.SetLimits(kAfterLogin);
  }
  return true;
}

bool EventSocketConnection::Send(const std::string& bytes) {
  Clock::time_point deadline = Clock::now() + patience_.send;
  bool stopping = false;
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t count = send(socket_.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count > 0) {
      sent += static_cast<size_t>(count);
      if (!stopping) deadline = Clock::now() + patience_.send;
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return false;
    const Awaited awaited = Await(POLLOUT, deadline, !stopping);
    if (awaited == Awaited::kTooLate) return false;
    if (awaited == Awaited::kStopped) {
      stopping = true;
      deadline = std::min(deadline, Clock::now() + patience_.farewell);
    }
  }
  return true;
}

/// A socket that is closed with unread bytes in it resets the connection, and the client may lose the last words sent.
void EventSocketConnection::Linger() {
  shutdown(socket_.get(), SHUT_WR);
  const Clock::time_point deadline = Clock::now() + patience_.farewell;
  while (Await(POLLIN, deadline, false) == Awaited::kReady) {
    char bytes[kReadBytes];
    const ssize_t count = recv(socket_.get(), bytes, sizeof(bytes), 0);
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) return;
  }
}

EventSocketConnection::Awaited EventSocketConnection::Await(short events, Clock::time_point deadline,
                                                            bool heed_stop) const {
  pollfd waiting[] = {{socket_.get(), events, 0}, {heed_stop ? stop_.descriptor() : -1, POLLIN, 0}};
  for (;;) {
    int timeout = -1;
    if (deadline != Clock::time_point::max()) {
      // One more than the rest, which is cut: a wait must not end just before its deadline.
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count() + 1;
      timeout = static_cast<int>(std::max<int64_t>(left, 0));
    }
    const int ready = poll(waiting, 2, timeout);
    if (ready > 0) return waiting[1].revents != 0 ? Awaited::kStopped : Awaited::kReady;
    if (ready == 0) return Awaited::kTooLate;
    if (errno != EINTR) return Awaited::kTooLate;
  }
}

}  // namespace kvx_switch
