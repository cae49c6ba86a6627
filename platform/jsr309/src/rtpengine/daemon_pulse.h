/// Whether an rtpengine daemon is there, and is still the one that has our calls: the judgement alone.
///
/// A daemon keeps its calls in its memory only: when it ends, they are gone, and one that was started again knows none
/// of them although it answers.
///
/// A daemon that is there is lost
///   - when it answered nothing for the heartbeat's time, or
///   - when its host said twice, with no answer between, that nobody listens there, or
///   - when it was restarted: the number of statistics it gave does not rise, or, where a daemon does not count them,
///     its uptime falls. (The uptime alone would follow a clock that is set back.)
/// and is back when it answers again and has told its figures, in the third case at once. Without these figures a
/// restart soon after would go unnoticed, with calls on it that nobody has. Until then it is neither.
#pragma once

#include "rtpengine/ng_control.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kelvaro::jsr309::rtpengine {

/// What a "statistics" reply says about the daemon's life; none of what it does not say.
struct DaemonLife {
  std::optional<int64_t> uptime;            ///< seconds
  std::optional<int64_t> statistics_given;  ///< since its start, to whomever
};
DaemonLife ReadDaemonLife(const Dictionary& statistics_reply);

/// Time is handed in. Threads: one at a time.
class DaemonPulse {
 public:
  enum class Change {
    kNone,
    kBack,         ///< it is there (again)
    kLost,         ///< everything on it is gone
    kLostAndBack,  ///< it was restarted
  };
  enum class Request { kNone, kPing, kStatistics };

  explicit DaemonPulse(milliseconds heartbeat);

  void TakeAnswer(NgTime now);
  Change TakeRefusal(NgTime now);
  Change TakeTime(NgTime now);
  /// What became of the statistics that TakeDue asked for last.
  Change TakeLife(const DaemonLife& life);
  void TakeNoLife();
  /// Somebody missed a call: statistics are due now. When they tell nothing comparable, that counts as a restart.
  void Suspect();

  /// What is to be sent now; to be called until there is nothing.
  Request TakeDue(NgTime now);
  /// When to call TakeTime and TakeDue next, at the latest.
  NgTime Next() const;

  bool alive() const { return alive_; }
  /// Of the last loss.
  const std::string& why() const { return why_; }
  milliseconds heartbeat() const { return heartbeat_; }
  milliseconds interval() const { return interval_; }

 private:
  Change Lose(const std::string& why);
  /// None when the two cannot be compared.
  std::optional<bool> WasRestarted(const DaemonLife& life, std::string& why) const;

  const milliseconds heartbeat_;
  const milliseconds interval_;  // between pings: four fit into a heartbeat
  bool alive_ = false;
  bool greeted_ = false;  // it has answered since the last loss
  std::string why_;
  int refusals_ = 0;  // since the last answer
  // When it was first asked since the last answer: who was asleep himself, this process, has missed no answer.
  std::optional<NgTime> asked_;
  NgTime next_ping_ = NgTime::min(), next_statistics_ = NgTime::min();
  bool statistics_asked_ = false;   // and not yet taken
  bool suspected_ = false;          // since statistics were asked for last
  bool judging_suspicion_ = false;  // by the statistics that were asked for
  DaemonLife life_;                 // as last told since the last loss
};

}  // namespace kelvaro::jsr309::rtpengine
