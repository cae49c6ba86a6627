/// What the sessions and endpoints of one rtpengine server share with it.
///
/// A daemon must not keep calls that nobody knows any more: each would hold four ports until a timeout of hours. The
/// context has the names of all calls that may be on the daemon, from before the first request for one until its end
/// was confirmed, and ends again what could not be ended: when the daemon was out of reach, or gave no answer in time.
///
/// Threads: all operations from any thread; OnTime and the listeners on the control thread. Lives as long as any
/// session or endpoint; after Stop nothing is asked any more.
#pragma once

#include "kelvaro/jsr309/driver.h"
#include "rtpengine/daemon_watch.h"
#include "rtpengine/ng_control.h"
#include "rtpengine/ng_frame.h"

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kelvaro::jsr309::rtpengine {

class RtpengineEndpoint;

/// The driver's own settings of a server.
struct RtpengineSettings {
  std::string control_host;     ///< as configured: an address or a name
  std::string control_address;  ///< numeric
  uint16_t control_port = 0;
  std::string interface;  ///< by its name in the daemon's settings; empty for the daemon's first
  milliseconds heartbeat{2000};
};

/// The book-keeping of all sessions and endpoints of a driver, held for a few instructions; nobody is called under it.
struct RtpengineBooks {
  std::mutex mutex;
};

/// Waits for requests that were posted. Threads: any.
class PostedRequests {
 public:
  void Add() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++under_way_;
  }
  void Done() {
    const std::lock_guard<std::mutex> lock(mutex_);
    --under_way_;
    idle_.notify_all();
  }
  /// False when the time is over.
  bool Wait(NgTime deadline) {
    std::unique_lock<std::mutex> lock(mutex_);
    return idle_.wait_until(lock, deadline, [this] { return under_way_ == 0; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable idle_;
  int under_way_ = 0;  // guarded by mutex_
};

class RtpengineContext : private NgListener {
 public:
  RtpengineContext(const MediaServerSettings& settings, const RtpengineSettings& own,
                   std::shared_ptr<RtpengineBooks> books, DaemonListener& listener,
                   std::shared_ptr<GuardedLogger> logger);

  bool Start(std::string& error);
  /// Whether the daemon takes calls by then.
  bool AwaitAnswer(NgTime deadline);
  /// Ends every call and then the control channel, within that time.
  void Stop(milliseconds limit);

  const MediaServerSettings& settings() const { return settings_; }
  const std::string& interface() const { return own_.interface; }
  /// The daemon's, for messages.
  const std::string& Name() const { return control_.Name(); }
  /// Of the server's addresses: AF_INET or AF_INET6.
  int family() const { return family_; }
  RtpengineBooks& books() const { return *books_; }
  NgTime DeadlineFrom(NgTime now) const { return now + milliseconds(settings_.request_timeout_ms); }

  bool IsAlive() const { return watch_.IsAlive(); }
  uint64_t Epoch() const { return watch_.Epoch(); }
  /// Whether what was made in that epoch may still be there.
  bool Has(uint64_t epoch) const { return IsAlive() && Epoch() == epoch; }

  /// A call of that epoch that ought to be there is not.
  void ReportUnknownCall(uint64_t epoch) { watch_.ReportUnknownCall(epoch); }

  /// The reply of a daemon that did what was asked; none, and why, otherwise. epoch: of the call that is meant.
  std::optional<Dictionary> Ask(const Dictionary& request, uint64_t epoch, NgTime deadline, std::string& error);
  /// Does not wait. posted, when there is one, counts the request until it is over.
  void Post(const Dictionary& request, uint64_t epoch, const std::shared_ptr<PostedRequests>& posted);
  /// Does not wait; done is called on the control thread, unless the request is refused at once.
  bool Query(const Dictionary& request, NgDone done);

  /// A name for a new call of that epoch, which counts as being there from now on.
  std::string NewCall(uint64_t epoch);
  /// The call is about to be ended: whatever else is asked of it from now on is refused.
  void CondemnCall(const std::string& call_id);
  /// Waits for the daemon. Whether it has no such call now; if it did not say so, that is asked for again and again.
  bool EndCall(const std::string& call_id, NgTime deadline, std::string& error);
  /// Does not wait.
  void DropCall(const std::string& call_id);
  /// The daemon is there again: what was made before it was lost is not to stay.
  void EndFormerCalls();

  /// Looks at the endpoint's packets from now on, when it wants them looked at; the first time at once. Again when what
  /// it wants has changed.
  void Watch(const std::weak_ptr<RtpengineEndpoint>& endpoint);

  void Log(LogLevel level, const std::string& text) const;
  /// Names a setting that was asked for and is not there: once per name, however many calls ask for it.
  void NameUnsupported(const std::string& setting, const std::string& consequence);

 private:
  struct Watched {
    std::weak_ptr<RtpengineEndpoint> endpoint;
    NgTime next;  // look
  };

  void OnAnswer(NgTime now) override { watch_.OnAnswer(now); }
  void OnRefused(NgTime now) override { watch_.OnRefused(now); }
  NgTime OnTime(NgTime now) override;
  NgTime LookAtEndpoints(NgTime now);
  std::vector<std::pair<std::size_t, std::shared_ptr<RtpengineEndpoint>>> TakeDueEndpoints(NgTime now);
  NgCondition WantedFor(const Dictionary& request);
  void EndCondemned(NgTime now);
  void PostDelete(const std::string& call_id);
  /// What became of a delete: whether the daemon has no such call now.
  void DeleteIsOver(const std::string& call_id, bool gone);
  bool WaitForNoCalls(NgTime deadline);

  const MediaServerSettings settings_;
  const RtpengineSettings own_;
  const int family_;
  const std::string prefix_;  // of the names of our calls
  const std::shared_ptr<RtpengineBooks> books_;
  const std::shared_ptr<GuardedLogger> logger_;

  std::mutex mutex_;
  std::condition_variable fewer_calls_;
  uint64_t last_call_ = 0;                 // guarded by mutex_
  std::map<std::string, uint64_t> calls_;  // guarded by mutex_; name, epoch
  std::set<std::string> condemned_;        // guarded by mutex_; of calls_, to be ended
  std::multiset<std::string> deletes_;     // guarded by mutex_; calls whose delete is under way
  NgTime next_condemned_{};                // guarded by mutex_
  std::vector<Watched> watched_;           // guarded by mutex_; taken out on the control thread only
  std::set<std::string> named_;            // guarded by mutex_
  bool stopped_ = false;                   // guarded by mutex_

  NgControl control_;
  DaemonWatch watch_;
};

}  // namespace kelvaro::jsr309::rtpengine
