/// Tells when a far end has been silent for too long: since it stopped sending (inactive), or without ever having
/// begun since it was told where to send to (pending).
///
/// Threads: none of its own; used by the thread that owns the endpoint.
#pragma once

#include "media_engine/clock.h"

namespace media_engine {

class SilenceWatch {
 public:
  enum class Verdict { kQuiet, kInactive, kPending };

  /// 0 is off.
  void SetInactiveTimeout(seconds timeout) { inactive_ = timeout; }
  void SetPendingTimeout(seconds timeout) { pending_ = timeout; }

  /// The far end was told where to send to.
  void Described(TimePoint now);
  /// What flows where has changed; a silence before counts no more.
  void Restart(TimePoint now);
  void Received(TimePoint now);
  /// A verdict other than kQuiet once per silence. expected: the far end's media is wanted now.
  Verdict Check(TimePoint now, bool expected);
  bool received() const { return received_; }
  /// Before that there will be no verdict, whatever happens; max: none without another timeout or description.
  TimePoint NextVerdict(TimePoint now) const;

 private:
  seconds inactive_{0}, pending_{0};
  bool described_ = false;
  bool received_ = false;
  bool reported_ = false;  // this silence
  TimePoint since_{};
};

}  // namespace media_engine
