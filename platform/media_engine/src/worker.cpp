#include "worker.h"

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

#include "server_context.h"

namespace media_engine {
namespace {

// Timeouts are whole seconds; being late by this does not matter.
constexpr milliseconds kTimerInterval{100};
constexpr int kEventsPerTurn = 64;

bool AddToEpoll(int epoll_fd, int fd, void* tag) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.ptr = tag;
  return epoll_ctl(epoll_fd, EPOLL_CTL_ADD, fd, &event) == 0;
}

}  // namespace

Worker::Worker(std::shared_ptr<ServerContext> server, std::shared_ptr<Mailbox> mailbox)
    : server_(std::move(server)),
      mailbox_(std::move(mailbox)),
      epoll_fd_(epoll_create1(EPOLL_CLOEXEC)),
      now_(server_->Now()),
      next_timers_(now_) {
  mailbox_->set_worker(this);
  if (epoll_fd_ >= 0 && mailbox_->event_fd() >= 0) AddToEpoll(epoll_fd_, mailbox_->event_fd(), nullptr);
}

Worker::~Worker() {
  Finish();
}

Outcome Worker::Ready() const {
  if (epoll_fd_ >= 0 && mailbox_->event_fd() >= 0) return Outcome::Done();
  return Outcome::Refused(std::string("no file descriptors for a worker: ") + std::strerror(errno));
}

void Worker::RunOnce(milliseconds longest_wait) {
  rest_ = RestWithin(longest_wait);
  std::array<epoll_event, kEventsPerTurn> events;
  mailbox_->helm().Leave();
  const int wait = mailbox_->HasMail() ? 0 : static_cast<int>(rest_.count());
  int count = epoll_wait(epoll_fd_, events.data(), kEventsPerTurn, wait);
  if (mailbox_->helm().Return()) {
    // Somebody may have closed what these events are about; what is still there is reported again.
    count = epoll_wait(epoll_fd_, events.data(), kEventsPerTurn, 0);
  }
  now_ = server_->Now();
  bool mail = false;
  for (int i = 0; i < count; ++i) {
    if (events[static_cast<std::size_t>(i)].data.ptr == nullptr) {
      mail = true;
    } else {
      Serve(*static_cast<const SocketTag*>(events[static_cast<std::size_t>(i)].data.ptr));
    }
  }
  PlayDue();
  // Tasks close sockets, so they come after every event that may name one.
  if (mail || mailbox_->HasMail()) RunTasks(mailbox_->Take());
  if (now_ >= next_timers_) RunTimers();
  gauges_.beats.fetch_add(1, std::memory_order_relaxed);
}

milliseconds Worker::RestWithin(milliseconds longest) const {
  const milliseconds rest = residents_.empty() ? longest : std::min(longest, kTimerInterval);
  return playout_timers_.empty() ? rest : playout_timers_.RestAfter(server_->Now(), rest);
}

void Worker::Serve(const SocketTag& tag) {
  if (tag.rtcp) {
    mover_.TakeRtcp(*tag.participant, now_);
  } else {
    mover_.MoveRtp(*tag.participant, now_);
  }
}

Worker::Help Worker::HelpOut() {
  now_ = server_->Now();
  if (IsDue()) return {};
  Mailbox::Tasks tasks = mailbox_->TakeAsHelper();
  if (tasks.empty()) return {};
  RunTasks(std::move(tasks));
  return {true, RestWithin(rest_) < rest_};
}

bool Worker::IsDue() const {
  if (now_ >= next_timers_ || playout_timers_.NextDue(now_) != nullptr) return true;
  pollfd ready{epoll_fd_, POLLIN, 0};
  return poll(&ready, 1, 0) != 0;
}

void Worker::RunTasks(Mailbox::Tasks tasks) {
  for (std::unique_ptr<Task>& task : tasks) {
    try {
      task->Run(*this);
    } catch (const std::exception& error) {
      server_->Log(LogLevel::kError, std::string("a request failed: ") + error.what());
    }
    task.reset();
  }
}

void Worker::RunTimers() {
  next_timers_ = now_ + kTimerInterval;
  for (auto& [route, resident] : residents_) {
    resident.participant->CheckSilence(now_);
    resident.participant->RunRtcp(now_);
  }
}

void Worker::PlayDue() {
  while (const PlayoutTimer* timer = playout_timers_.NextDue(now_)) mover_.PlayOut(*timer->owner(), now_);
}

void Worker::Finish() {
  while (!residents_.empty()) Close(*residents_.begin()->first);
  for (auto& [key, session] : sessions_) session.route->MarkClosed();
  sessions_.clear();
  gauges_.sessions = 0;
  mailbox_->Close();
  if (epoll_fd_ >= 0) close(std::exchange(epoll_fd_, -1));
}

void Worker::OpenSession(const std::shared_ptr<SessionRoute>& session) {
  sessions_[session.get()].route = session;
}

void Worker::CloseSession(const SessionRoute& session) {
  const auto found = sessions_.find(&session);
  if (found == sessions_.end()) return;
  const SessionRecord record = std::move(found->second);
  sessions_.erase(found);
  record.route->MarkClosed();
  for (const Participant* member : record.members) Close(*member->route());
  --gauges_.sessions;
}

bool Worker::Admit(std::unique_ptr<Participant> participant) {
  const auto session = sessions_.find(participant->session());
  if (session == sessions_.end()) return false;
  Participant* one = participant.get();
  Resident& resident = residents_[one->route().get()];
  resident.participant = std::move(participant);
  resident.rtp = {one, false};
  resident.rtcp = {one, true};
  session->second.members.push_back(one);
  one->AttachPlayout(playout_timers_);
  ++gauges_.endpoints;
  if (one->ports() == nullptr || Watch(resident)) return true;
  server_->Log(LogLevel::kError,
               one->route()->name() + " ends: its sockets cannot be watched: " + std::strerror(errno));
  Close(*one->route());
  return false;
}

bool Worker::Watch(Resident& resident) {
  const PortPair& ports = *resident.participant->ports();
  return AddToEpoll(epoll_fd_, ports.rtp().fd(), &resident.rtp) &&
         AddToEpoll(epoll_fd_, ports.rtcp().fd(), &resident.rtcp);
}

void Worker::Unwatch(const Participant& participant) {
  if (participant.ports() == nullptr) return;
  epoll_ctl(epoll_fd_, EPOLL_CTL_DEL, participant.ports()->rtp().fd(), nullptr);
  epoll_ctl(epoll_fd_, EPOLL_CTL_DEL, participant.ports()->rtcp().fd(), nullptr);
}

Participant* Worker::Find(const EndpointRoute& endpoint) {
  const auto found = residents_.find(&endpoint);
  return found == residents_.end() ? nullptr : found->second.participant.get();
}

Participant* Worker::FindByPort(const SessionRoute& session, const SocketAddress& rtp) const {
  const auto found = sessions_.find(&session);
  if (found == sessions_.end()) return nullptr;
  for (Participant* member : found->second.members) {
    if (member->ports() != nullptr && member->ports()->address() == rtp) return member;
  }
  return nullptr;
}

void Worker::LeaveSession(const Participant& participant) {
  const auto session = sessions_.find(participant.session());
  if (session == sessions_.end()) return;
  std::vector<Participant*>& members = session->second.members;
  members.erase(std::remove(members.begin(), members.end(), &participant), members.end());
}

void Worker::Close(const EndpointRoute& endpoint) {
  Detach(endpoint);
}

std::unique_ptr<Participant> Worker::Detach(const EndpointRoute& endpoint) {
  const auto found = residents_.find(&endpoint);
  if (found == residents_.end()) return nullptr;
  // Out of the map first: what the participant holds, its route included, goes with it.
  std::unique_ptr<Participant> participant = std::move(found->second.participant);
  residents_.erase(found);
  participant->Separate(now_);
  participant->DetachPlayout();
  LeaveSession(*participant);
  Unwatch(*participant);
  participant->route()->MarkClosed();
  --gauges_.endpoints;
  return participant;
}

Outcome Worker::DescribeLocal(Participant& participant, const LocalSettings& settings,
                              std::unique_ptr<PortPair>& offered) {
  const PortPair* const former = participant.ports();
  if (Outcome outcome = participant.DescribeLocal(settings, offered, now_); !outcome) return outcome;
  participant.AttachPlayout(playout_timers_);
  return WatchNewPorts(participant, former);
}

Outcome Worker::GivePorts(Participant& participant, std::unique_ptr<PortPair>& offered) {
  const PortPair* const former = participant.ports();
  if (!participant.TakePorts(offered, false)) return Outcome::Refused("the endpoint has no ports");
  return WatchNewPorts(participant, former);
}

Outcome Worker::WatchNewPorts(Participant& participant, const PortPair* former) {
  if (participant.ports() == former) return Outcome::Done();
  const bool watched = Watch(residents_.at(participant.route().get()));
  participant.route()->set_has_ports(watched);
  if (watched) return Outcome::Done();
  participant.DropPorts();
  return Outcome::Refused(std::string("the sockets cannot be watched: ") + std::strerror(errno));
}

void Worker::BringHome(const EndpointRoute& endpoint) {
  Participant* participant = Find(endpoint);
  if (participant == nullptr) return;
  const std::shared_ptr<EndpointRoute> route = participant->route();
  const std::shared_ptr<SessionRoute> home = route->home();
  if (participant->session() == home.get()) return;
  if (home->mailbox() == mailbox_) {
    MoveWithin(*participant, *home);
  } else {
    MoveAway(route);
  }
}

void Worker::MoveWithin(Participant& participant, const SessionRoute& home) {
  const auto session = sessions_.find(&home);
  if (session == sessions_.end()) return Close(*participant.route());
  LeaveSession(participant);
  participant.SeparateUnlessIn(home, now_);
  participant.set_session(&home);
  session->second.members.push_back(&participant);
}

void Worker::MoveAway(const std::shared_ptr<EndpointRoute>& route) {
  const auto found = residents_.find(route.get());
  std::unique_ptr<Participant> leaving = std::move(found->second.participant);
  residents_.erase(found);
  --gauges_.endpoints;
  leaving->Separate(now_);
  leaving->DetachPlayout();
  LeaveSession(*leaving);
  Unwatch(*leaving);
  leaving->server().AddEmigrant(route);
  const auto make_move = [&leaving](const std::shared_ptr<SessionRoute>& to) {
    leaving->set_session(to.get());
    return MakeTask(
        [participant = std::move(leaving), to](Worker& worker) mutable { worker.Admit(std::move(participant)); });
  };
  const std::unique_ptr<Task> unsent = route->MoveHome(make_move);
}

}  // namespace media_engine
