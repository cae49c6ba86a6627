#include "console/event_socket_connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

namespace kvx_switch {
namespace {

constexpr size_t kReadBytes = 16 * 1024;
/// Of events before the client's next request has its turn.
constexpr size_t kEventBytes = 64 * 1024;
/// Strangers get room for a password and no body.
constexpr EventSocketRequestParser::Limits kBeforeLogin{1024, 0};
constexpr EventSocketRequestParser::Limits kAfterLogin{64 * 1024, 1024 * 1024};

}  // namespace

EventSocketConnection::EventSocketConnection(FileDescriptor socket, EventSocketDialogue dialogue, EventOutbox& outbox,
                                             EventSocketPatience patience, const WakeEvent& stop)
    : socket_(std::move(socket)),
      dialogue_(std::move(dialogue)),
      parser_(kBeforeLogin),
      outbox_(outbox),
      patience_(patience),
      stop_(stop) {}

void EventSocketConnection::Run() {
  const Clock::time_point login_deadline = Clock::now() + patience_.login;
  bool connected = Send(dialogue_.Greeting());
  while (connected && !dialogue_.over()) {
    const Clock::time_point deadline = dialogue_.logged_in() ? Clock::time_point::max() : login_deadline;
    switch (Await(POLLIN, deadline, Heed::kStopAndEvents)) {
      case Awaited::kReady:
        connected = Read() && AnswerRequests() && (dialogue_.over() || SendEvents());
        break;
      case Awaited::kEvents:
        connected = SendEvents();
        break;
      case Awaited::kStopped:
        connected = TakeLeave("The switch is stopping, goodbye.");
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

/// Before the answer that ends the connection come the events that wait: they were promised.
bool EventSocketConnection::AnswerRequests() {
  while (!dialogue_.over() && !stop_.Raised()) {
    EventSocketRequest request;
    const EventSocketRequestParser::Result result = parser_.Next(request);
    if (result == EventSocketRequestParser::Result::kMore) return true;
    const bool readable = result == EventSocketRequestParser::Result::kRequest;
    std::string answer = readable ? dialogue_.Answer(request) : dialogue_.AnswerUnreadable(result);
    if (dialogue_.over()) answer.insert(0, outbox_.Take(std::numeric_limits<size_t>::max()));
    if (!Send(answer)) return false;
    if (dialogue_.logged_in()) parser_.SetLimits(kAfterLogin);
  }
  return true;
}

bool EventSocketConnection::SendEvents() {
  return Send(outbox_.Take(kEventBytes));
}

/// What the client was promised comes before the last words.
bool EventSocketConnection::TakeLeave(const char* reason) {
  return Send(outbox_.Take(std::numeric_limits<size_t>::max()) + dialogue_.Farewell(reason));
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
    const Awaited awaited = Await(POLLOUT, deadline, stopping ? Heed::kNothing : Heed::kStop);
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
  while (Await(POLLIN, deadline, Heed::kNothing) == Awaited::kReady) {
    char bytes[kReadBytes];
    const ssize_t count = recv(socket_.get(), bytes, sizeof(bytes), 0);
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) return;
  }
}

EventSocketConnection::Awaited EventSocketConnection::Await(short events, Clock::time_point deadline, Heed heed) const {
  pollfd waiting[] = {{socket_.get(), events, 0},
                      {heed == Heed::kNothing ? -1 : stop_.descriptor(), POLLIN, 0},
                      {heed == Heed::kStopAndEvents ? outbox_.filled().descriptor() : -1, POLLIN, 0}};
  for (;;) {
    int timeout = -1;
    if (deadline != Clock::time_point::max()) {
      // One more than the rest, which is cut: a wait must not end just before its deadline.
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count() + 1;
      timeout = static_cast<int>(std::max<int64_t>(left, 0));
    }
    const int ready = poll(waiting, 3, timeout);
    if (ready > 0 && waiting[1].revents != 0) return Awaited::kStopped;
    if (ready > 0) return waiting[0].revents != 0 ? Awaited::kReady : Awaited::kEvents;
    if (ready == 0) return Awaited::kTooLate;
    if (errno != EINTR) return Awaited::kTooLate;
  }
}

}  // namespace kvx_switch
