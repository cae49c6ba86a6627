/// What NgControl is made of: socket, thread, and the lock around the book of requests.
#pragma once

#include "rtpengine/ng_complaints.h"
#include "rtpengine/ng_control.h"
#include "rtpengine/ng_requests.h"
#include "rtpengine/ng_socket.h"

#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace kelvaro::jsr309::rtpengine {

class NgControl::Channel {
 public:
  Channel(const NgControlSettings& settings, std::shared_ptr<GuardedLogger> logger);
  ~Channel() { Stop(); }

  bool Start(NgListener* listener, std::string& error);
  /// The number of the request, which lacks number and datagram; 0, and why, when it is refused. An empty reason: it is
  /// not wanted.
  uint64_t Add(NgRequest request, const Dictionary& message, const NgCondition& wanted, std::string& error);
  /// See NgRequests::Abandon.
  std::string Abandon(uint64_t number);
  void WakeListener();
  void Stop();

  NgCounters Counters() const;
  const std::string& name() const { return name_; }
  /// Whether this is the control thread.
  bool IsOwnThread() const;
  /// Into the log, unless the channel was stopped.
  void Complain(const std::string& text);

 private:
  void Run();
  /// Sends and tells; no lock is held.
  void Do(NgBatch& batch);
  /// What has come, answers before refusals: a daemon that answers and ends did so in this order.
  void ReceiveAll();
  void TakeDatagram(std::string_view datagram);
  /// A reply to that number, if the cookie is one of ours.
  uint64_t NumberOf(const std::string& cookie) const;
  void CallListener();
  /// How long there is nothing to do.
  milliseconds Rest();
  void EndAll();

  const NgControlSettings settings_;
  const std::string name_, cookie_prefix_;
  NgComplaints complaints_;
  NgSocket socket_;
  std::thread thread_;
  std::once_flag stopped_;

  mutable std::mutex mutex_;
  NgRequests requests_;            // guarded by mutex_
  NgCounters counters_;            // guarded by mutex_
  bool running_ = false;           // guarded by mutex_
  bool listener_is_due_ = false;   // guarded by mutex_
  bool refused_ = false;           // guarded by mutex_; the listener does not know yet
  uint64_t last_number_ = 0;       // guarded by mutex_
  NgTime waits_until_ = NgTime();  // guarded by mutex_; what the thread will wake up for by itself

  // The control thread's own, once it runs.
  NgListener* listener_ = nullptr;
  NgTime listener_next_ = NgTime::max();
};

}  // namespace kelvaro::jsr309::rtpengine
