/// The loop that serves a share of a server's sessions: packets, requests, timers.
///
/// Threads: everything here runs on one thread, except what says otherwise. Nothing waits but RunOnce. While that
/// waits, another thread may take the helm and do requests in the worker's place.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "backlog.h"
#include "coalescing.h"
#include "endpoint_route.h"
#include "packet_mover.h"
#include "participant.h"

namespace media_engine {

/// What others want to know of a worker. Threads: from any thread.
struct WorkerGauges {
  std::atomic<std::size_t> sessions{0};  ///< counted up by whoever posts a session, so that a burst spreads out
  std::atomic<std::size_t> endpoints{0};
  std::atomic<uint64_t> beats{0};  ///< advances as long as the worker serves
};

class Worker {
 public:
  Worker(std::shared_ptr<ServerContext> server, std::shared_ptr<Mailbox> mailbox,
         Coalescing coalescing = Coalescing(std::chrono::microseconds{0}));
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// Whether the system gave what the loop needs; asked once, before the first turn.
  Outcome Ready() const;
  /// One turn of the loop. Waits for something to do, as long as that at most.
  void RunOnce(milliseconds longest_wait);
  /// Ends every session and endpoint, and refuses requests from now on.
  void Finish();
  WorkerGauges& gauges() { return gauges_; }  ///< any thread

  /// What came of help: whether there was anything to do, and whether the worker is to wake earlier than it meant to.
  struct Help {
    bool done = false;
    bool wake = false;
  };
  /// For a thread that has the helm: runs the tasks that are there, unless packets or timers come before them, which
  /// are the worker's own.
  Help HelpOut();

  // What tasks do.
  TimePoint now() const { return now_; }
  void OpenSession(const std::shared_ptr<SessionRoute>& session);
  void CloseSession(const SessionRoute& session);
  /// False when the session has ended; the participant then ends too.
  bool Admit(std::unique_ptr<Participant> participant);
  /// Null when the endpoint is not here.
  Participant* Find(const EndpointRoute& endpoint);
  void Close(const EndpointRoute& endpoint);
  /// Takes the endpoint out, to be destroyed by somebody who has time for that, on any thread; null when it is not
  /// here.
  std::unique_ptr<Participant> Detach(const EndpointRoute& endpoint);
  /// The endpoint of that session whose RTP port this is; null when there is none.
  Participant* FindByPort(const SessionRoute& session, const SocketAddress& rtp) const;
  Outcome DescribeLocal(Participant& participant, const LocalSettings& settings, std::unique_ptr<PortPair>& offered);
  /// Gives the endpoint a port pair, unless it has one.
  Outcome GivePorts(Participant& participant, std::unique_ptr<PortPair>& offered);
  /// Brings the endpoint into its home session, here or elsewhere.
  void BringHome(const EndpointRoute& endpoint);

 private:
  /// Which of a participant's sockets is ready.
  enum class SocketKind : uint64_t { kRtp, kRtcp, kExpress };
  struct SessionRecord {
    std::shared_ptr<SessionRoute> route;
    std::vector<Participant*> members;
  };

  /// How many packets were taken.
  std::size_t Serve(uint64_t tag, bool all);
  /// How long there is nothing to do by the clock, at most that.
  milliseconds RestWithin(milliseconds longest) const;
  /// Lets packets gather, as long as that at most; false when there is no reason to.
  bool Pause(milliseconds longest);
  /// Whether there is something to do besides tasks.
  bool IsDue() const;
  void RunTasks(Mailbox::Tasks tasks);
  void RunChecks();
  void PlayDue();
  bool AddToEpoll(int fd, uint64_t tag);
  bool Watch(Participant& participant);
  /// Watches the endpoint's sockets, unless its ports are still those.
  Outcome WatchNewPorts(Participant& participant, const PortPair* former);
  void Unwatch(const Participant& participant);
  void LeaveSession(const Participant& participant);
  void MoveWithin(Participant& participant, const SessionRoute& home);
  void MoveAway(const std::shared_ptr<EndpointRoute>& route);

  const std::shared_ptr<ServerContext> server_;
  const std::shared_ptr<Mailbox> mailbox_;
  int epoll_fd_;  // -1 when finished
  WorkerGauges gauges_;
  PacketMover mover_;
  TimePoint now_;
  uint64_t turn_ = 1;
  Backlog backlog_;
  const Coalescing coalescing_;
  std::chrono::microseconds pause_{0};  // before the next turn
  milliseconds rest_{0};                // the present one, or the last
  EndpointTimers playout_timers_;       // of residents with a jitter buffer
  EndpointTimers check_timers_;         // of all residents
  // Keys stay valid: the records hold what they point to.
  std::unordered_map<const EndpointRoute*, std::unique_ptr<Participant>> residents_;
  std::unordered_map<const SessionRoute*, SessionRecord> sessions_;
};

}  // namespace media_engine
