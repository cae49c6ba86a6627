/// Keeps an eye on an rtpengine daemon: sees to it that there is something to judge it by (DaemonPulse), and tells a
/// listener when it is lost and when it is back.
#pragma once

#include "rtpengine/daemon_pulse.h"
#include "rtpengine/ng_control.h"

#include <cstdint>
#include <mutex>
#include <string>

namespace kelvaro::jsr309::rtpengine {

/// Hears of losses and returns, alternating, beginning with a return when the daemon first answers. Called on the
/// control thread, with no lock held; must return at once and may post.
class DaemonListener {
 public:
  virtual ~DaemonListener() = default;
  /// The daemon answers. After a loss that was silence only, calls of before may still be there; nobody else deletes
  /// them.
  virtual void OnDaemonBack() = 0;
  virtual void OnDaemonLost(const std::string& why) = 0;
};

/// Threads: IsAlive, Epoch and ReportUnknownCall from any. Ownership: control and listener outlive the watch; the watch
/// is handed to NgControl::Start and outlives NgControl::Stop.
class DaemonWatch : public NgListener {
 public:
  DaemonWatch(NgControl& control, milliseconds heartbeat, DaemonListener& listener);

  /// From just before OnDaemonBack until just before OnDaemonLost. Takes no lock under which the listener is called.
  bool IsAlive() const;
  /// How often the daemon was lost. What was made in a former epoch is gone.
  uint64_t Epoch() const;
  /// A call that ought to exist, made in that epoch, is not known to the daemon. If the daemon was restarted, that is
  /// found out and reported soon. If not, only that call is gone: the daemon ended it by itself (a timeout, an
  /// operator), and the others live on.
  void ReportUnknownCall(uint64_t epoch);

  void OnAnswer(NgTime now) override;
  void OnRefused(NgTime now) override;
  NgTime OnTime(NgTime now) override;

 private:
  void Ping();
  void AskForLife();
  void TakeLife(const NgResult& result);
  /// Keeps count of a change; gives the text to tell with a loss. The lock is held.
  std::string Note(DaemonPulse::Change change);
  /// Without the lock.
  void Tell(DaemonPulse::Change change, const std::string& why);

  NgControl& control_;
  DaemonListener& listener_;
  mutable std::mutex mutex_;
  DaemonPulse pulse_;   // guarded by mutex_, its two durations aside
  uint64_t epoch_ = 0;  // guarded by mutex_
};

}  // namespace kelvaro::jsr309::rtpengine
