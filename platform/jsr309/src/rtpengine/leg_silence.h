/// Tells when a far end has been silent for too long: since it stopped sending (inactive), or without ever having begun
/// since it was told where to send to (pending).
///
/// The daemon tells nothing by itself; its count of packets is looked at now and then. Time is handed in.
///
/// A value.
#pragma once

#include "rtpengine/ng_control.h"

#include <algorithm>
#include <cstdint>

namespace kelvaro::jsr309::rtpengine {

class LegSilence {
 public:
  enum class Verdict { kQuiet, kInactive, kPending };

  /// 0 is off.
  void SetInactiveTimeout(std::chrono::seconds timeout) { inactive_ = timeout; }
  void SetPendingTimeout(std::chrono::seconds timeout) { pending_ = timeout; }

  /// The far end was told where to send to.
  void Described(NgTime now) {
    described_ = true;
    if (!received_) Restart(now);
  }
  /// What flows where has changed; a silence before counts no more.
  void Restart(NgTime now) {
    since_ = now;
    reported_ = false;
  }
  /// The daemon's count of packets from the far end, as it was at that time. A count that fell is that of a new port.
  void Counted(uint64_t packets, NgTime now) {
    const bool more = packets > packets_;
    packets_ = packets;
    if (!more) return;
    received_ = true;
    Restart(now);
  }
  /// A verdict other than kQuiet once per silence. expected: the far end's media is wanted now.
  Verdict Check(NgTime now, bool expected) {
    const std::chrono::seconds timeout = received_ ? inactive_ : pending_;
    if (!described_ || !expected || reported_ || timeout.count() == 0 || now - since_ < timeout) return Verdict::kQuiet;
    reported_ = true;
    return received_ ? Verdict::kInactive : Verdict::kPending;
  }

  /// How often to look; 0 for never.
  milliseconds Interval() const {
    const auto shorter =
        inactive_.count() == 0 || pending_.count() == 0 ? std::max(inactive_, pending_) : std::min(inactive_, pending_);
    if (!described_ || shorter.count() == 0) return milliseconds(0);
    return std::clamp(std::chrono::duration_cast<milliseconds>(shorter) / 8, milliseconds(100), milliseconds(4000));
  }

 private:
  std::chrono::seconds inactive_{0}, pending_{0};
  bool described_ = false;
  bool received_ = false;
  bool reported_ = false;  // this silence
  uint64_t packets_ = 0;
  NgTime since_{};
};

}  // namespace kelvaro::jsr309::rtpengine
