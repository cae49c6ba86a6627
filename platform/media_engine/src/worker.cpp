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

constexpr int kEventsPerTurn = 64;
// Packets do not wait for more than these.
constexpr int kChecksPerTurn = 64;

// What epoll gives back for a socket is its participant's address, in whose lowest bits stands which socket it is.
constexpr uint64_t kMailTag = 0;
constexpr uint64_t kKindBits = 3;
static_assert(alignof(Participant) > kKindBits);

template <typename Kind>
uint64_t TagOf(Participant& participant, Kind kind) {
  return reinterpret_cast<uint64_t>(&participant) | static_cast<uint64_t>(kind);
}

/// Asks for the first lines of a participant, where most of what a packet touches stands, and which thousands of others
/// have driven out of the processor's caches since the last one. Of an address where there is none, nothing comes.
void FetchAhead(uint64_t tag) {
  constexpr uint64_t kLine = 64, kLines = 9;
  for (uint64_t line = 0; line < kLines; ++line) {
    __builtin_prefetch(reinterpret_cast<const void*>((tag & ~kKindBits) + line * kLine));
  }
}

}  // namespace

Worker::Worker(std::shared_ptr<ServerContext> server, std::shared_ptr<Mailbox> mailbox, Coalescing coalescing)
    : server_(std::move(server)),
      mailbox_(std::move(mailbox)),
      epoll_fd_(epoll_create1(EPOLL_CLOEXEC)),
      now_(server_->Now()),
      coalescing_(coalescing) {
  mailbox_->set_worker(this);
  if (epoll_fd_ >= 0 && mailbox_->event_fd() >= 0) AddToEpoll(mailbox_->event_fd(), kMailTag);
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
  const milliseconds until_playout =
      playout_timers_.empty() ? longest_wait : playout_timers_.RestAfter(server_->Now(), longest_wait);
  std::array<epoll_event, kEventsPerTurn> events;
  mailbox_->helm().Leave();
  // A pause is shorter than the millisecond by which rests are reckoned.
  const milliseconds left = Pause(until_playout) ? std::max(rest_ - milliseconds{1}, milliseconds{0}) : rest_;
  const int wait = mailbox_->HasMail() ? 0 : static_cast<int>(left.count());
  int count = epoll_wait(epoll_fd_, events.data(), kEventsPerTurn, wait);
  if (mailbox_->helm().Return()) {
    // Somebody may have closed what these events are about; what is still there is reported again.
    count = epoll_wait(epoll_fd_, events.data(), kEventsPerTurn, 0);
  }
  now_ = server_->Now();
  ++turn_;
  const auto end = events.begin() + std::max(count, 0);
  // What comes in from now on waits for the next turn, behind the packets that came before it.
  const bool mail = mailbox_->HasMail() || std::any_of(events.begin(), end, [](const epoll_event& event) {
                      return event.data.u64 == kMailTag;
                    });
  backlog_.BeginTurn(static_cast<std::size_t>(end - events.begin()), events.size());
  for (auto event = events.begin(); event != end; ++event) FetchAhead(event->data.u64);
  std::size_t packets = 0;
  for (auto event = events.begin(); event != end; ++event) {
    // What was there before a request is taken before it.
    if (event->data.u64 != kMailTag) packets += Serve(event->data.u64, mail);
  }
  mover_.MoveGathered(now_);
  pause_ = coalescing_.RestAfter(packets, residents_.size());
  PlayDue();
  // Tasks close sockets, so they come after every event that may name one.
  if (mail) RunTasks(mailbox_->Take());
  RunChecks();
  gauges_.beats.fetch_add(1, std::memory_order_relaxed);
}

milliseconds Worker::RestWithin(milliseconds longest) const {
  if (check_timers_.NextDue(now_) != nullptr) return milliseconds{0};
  const milliseconds rest = residents_.empty() ? longest : std::min(longest, Participant::kCheckInterval);
  return playout_timers_.empty() ? rest : playout_timers_.RestAfter(server_->Now(), rest);
}

/// Requests are not kept waiting.
bool Worker::Pause(milliseconds longest) {
  const std::chrono::nanoseconds pause = std::min<std::chrono::nanoseconds>(pause_, longest);
  if (pause <= std::chrono::nanoseconds{0} || mailbox_->HasMail()) return false;
  pollfd mail{mailbox_->event_fd(), POLLIN, 0};
  const timespec limit{0, static_cast<long>(pause.count())};
  ppoll(&mail, 1, &limit, nullptr);
  return true;
}

std::size_t Worker::Serve(uint64_t tag, bool all) {
  Participant& participant = *reinterpret_cast<Participant*>(tag & ~kKindBits);
  const PortPair& ports = *participant.ports();
  const auto kind = static_cast<SocketKind>(tag & kKindBits);
  const bool rtcp = kind == SocketKind::kRtcp;
  const UdpSocket& socket = kind == SocketKind::kExpress ? ports.express() : rtcp ? ports.rtcp() : ports.rtp();
  const auto protocol = rtcp ? PacketMover::Protocol::kRtcp : PacketMover::Protocol::kRtp;
  std::size_t packets = 0;
  // Served in the last turn and ready again: packets are piling up.
  if (all || (!rtcp && participant.ServedAgainIn(turn_))) {
    mover_.MoveGathered(now_);
    packets = mover_.GatherAll(participant, socket, protocol);
  } else if (mover_.room() > 1 && backlog_.TakesAll()) {
    packets = mover_.GatherAll(participant, socket, protocol);
    backlog_.Took(packets);
  } else {
    packets = mover_.Gather(participant, socket, protocol);
  }
  if (mover_.room() == 0) mover_.MoveGathered(now_);
  return packets;
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
  if (check_timers_.NextDue(now_) != nullptr || playout_timers_.NextDue(now_) != nullptr) return true;
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

void Worker::RunChecks() {
  for (int i = 0; i < kChecksPerTurn; ++i) {
    const EndpointTimer* const timer = check_timers_.NextDue(now_);
    if (timer == nullptr) return;
    Participant& participant = *timer->owner();
    participant.Check(now_);
    if (!participant.ReviewExpress()) continue;
    const bool watched = AddToEpoll(participant.ports()->express().fd(), TagOf(participant, SocketKind::kExpress));
    if (!watched) participant.CloseExpress();
  }
}

void Worker::PlayDue() {
  while (const EndpointTimer* timer = playout_timers_.NextDue(now_)) mover_.PlayOut(*timer->owner(), now_);
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
  residents_[one->route().get()] = std::move(participant);
  session->second.members.push_back(one);
  one->AttachTimers(check_timers_, playout_timers_);
  ++gauges_.endpoints;
  if (one->ports() == nullptr || Watch(*one)) return true;
  server_->Log(LogLevel::kError,
               one->route()->name() + " ends: its sockets cannot be watched: " + std::strerror(errno));
  Close(*one->route());
  return false;
}

bool Worker::AddToEpoll(int fd, uint64_t tag) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = tag;
  return epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, fd, &event) == 0;
}

bool Worker::Watch(Participant& participant) {
  const PortPair& ports = *participant.ports();
  return AddToEpoll(ports.rtp().fd(), TagOf(participant, SocketKind::kRtp)) &&
         AddToEpoll(ports.rtcp().fd(), TagOf(participant, SocketKind::kRtcp));
}

void Worker::Unwatch(const Participant& participant) {
  if (participant.ports() == nullptr) return;
  const PortPair& ports = *participant.ports();
  for (const UdpSocket* socket : {&ports.rtp(), &ports.rtcp(), &ports.express()}) {
    if (socket->is_open()) epoll_ctl(epoll_fd_, EPOLL_CTL_DEL, socket->fd(), nullptr);
  }
}

Participant* Worker::Find(const EndpointRoute& endpoint) {
  const auto found = residents_.find(&endpoint);
  return found == residents_.end() ? nullptr : found->second.get();
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
  std::unique_ptr<Participant> participant = std::move(found->second);
  residents_.erase(found);
  participant->Separate(now_);
  participant->DetachTimers();
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
  const bool watched = Watch(participant);
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
  std::unique_ptr<Participant> leaving = std::move(found->second);
  residents_.erase(found);
  --gauges_.endpoints;
  leaving->Separate(now_);
  leaving->DetachTimers();
  LeaveSession(*leaving);
  Unwatch(*leaving);
  leaving->CloseExpress();  // which is soon made anew there
  leaving->server().AddEmigrant(route);
  const auto make_move = [&leaving](const std::shared_ptr<SessionRoute>& to) {
    leaving->set_session(to.get());
    return MakeTask(
        [participant = std::move(leaving), to](Worker& worker) mutable { worker.Admit(std::move(participant)); });
  };
  const std::unique_ptr<Task> unsent = route->MoveHome(make_move);
}

}  // namespace media_engine
