/// Whether an rtpengine daemon is there, and is still the one that has our calls.
///
/// A daemon keeps its calls in its memory only: when it ends, they are gone, and one that was started again knows none
/// of them although it answers. DaemonPulse judges from what is seen of the daemon; DaemonWatch sees to it that there
/// is something to see and tells a listener.
///
/// A daemon that is there is lost
///   - when it answered nothing for heartbeat_ms, or
///   - when its host said twice, with no answer between, that nobody listens there, or
///   - when it was restarted: the number of statistics it gave falls, or, where a daemon does not count them, its
///   uptime.
///     (The uptime alone would follow a clock that is set back.)
/// and is back with the next answer, in the third case at once. Until the first answer it is neither.
#pragma once

#include "rtpengine/ng_control.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>

namespace kelvaro::jsr309::rtpengine {

/// What a "statistics" reply says about the daemon's life. Fields that it does not say are none.
struct DaemonLife {
  std::optional<int64_t> uptime;            ///< seconds
  std::optional<int64_t> statistics_given;  ///< since its start, to whomever
  std::optional<int64_t> sessions;          ///< calls that it has now
};
DaemonLife ReadDaemonLife(const Dictionary& statistics_reply);

/// The judgement alone; time is handed in. Threads: one at a time.
class DaemonPulse {
 public:
  enum class Change {
    kNone,
    kBack,         ///< it is there (again)
    kLost,         ///< everything on it is gone
    kLostAndBack,  ///< it was restarted
  };
  enum class Request { kNone, kPing, kStatistics };

  DaemonPulse(milliseconds heartbeat, NgTime now);

  Change TakeAnswer(NgTime now);
  Change TakeRefusal(NgTime now);
  /// Of statistics that were asked for after those taken before.
  Change TakeLife(const DaemonLife& life, NgTime now);
  Change TakeTime(NgTime now);
  /// Somebody missed a call: statistics are due now.
  void Suspect(NgTime now);

  /// What is to be sent now; asks for it once.
  Request TakeDue(NgTime now);
  /// When to call TakeTime and TakeDue next, at the latest.
  NgTime Next() const;
  bool alive() const { return alive_; }

 private:
  const milliseconds heartbeat_;
  const milliseconds interval_;  ///< between pings: four fit into a heartbeat
  bool alive_ = false;
  int refusals_ = 0;  ///< since the last answer
  NgTime last_answer_;
  NgTime next_ping_;
  NgTime next_statistics_;
  DaemonLife life_;
};

/// Hears of losses and returns, alternating, beginning with a return when the daemon first answers. Called on the
/// control thread, with no lock held; must return at once and may post.
class DaemonListener {
 public:
  virtual ~DaemonListener() = default;
  /// The daemon answers. Calls of before a loss may still be there after one that was only out of reach: they are the
  /// listener's to delete.
  virtual void OnDaemonBack() = 0;
  virtual void OnDaemonLost(const std::string& why) = 0;
};

/// Threads: IsAlive, Epoch and ReportUnknownCall from any thread. Ownership: control, watch, listener; NgControl::Start
/// is given the watch, and NgControl::Stop comes before its end.
class DaemonWatch : public NgListener {
 public:
  DaemonWatch(NgControl& control, milliseconds heartbeat, DaemonListener& listener);

  /// From just before OnDaemonBack until just before OnDaemonLost. Takes no lock under which the listener is called.
  bool IsAlive() const;
  /// How often the daemon was lost. What was made in a former epoch is gone.
  uint64_t Epoch() const;
  /// A call that ought to exist, made in that epoch, is not known to the daemon. A daemon that was restarted is found
  /// out and reported soon. When it was not, only that call is gone: the daemon ended it by itself (its timeouts, an
  /// operator), and the others live on.
  void ReportUnknownCall(uint64_t epoch);

  void OnAnswer(NgTime now) override;
  void OnRefused(NgTime now) override;
  NgTime OnTime(NgTime now) override;

 private:
  void Tell(DaemonPulse::Change change, const std::string& why);

  NgControl& control_;
  const milliseconds heartbeat_;
  DaemonListener& listener_;
  mutable std::mutex mutex_;
  DaemonPulse pulse_;   // guarded by mutex_
  uint64_t epoch_ = 0;  // guarded by mutex_
};

}  // namespace kelvaro::jsr309::rtpengine
