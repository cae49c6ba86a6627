#include "silence_watch.h"

#include <algorithm>

namespace media_engine {

void SilenceWatch::Described(TimePoint now) {
  described_ = true;
  if (!received_) Restart(now);
}

void SilenceWatch::Restart(TimePoint now) {
  since_ = now;
  reported_ = false;
}

void SilenceWatch::Received(TimePoint now) {
  received_ = true;
  Restart(now);
}

SilenceWatch::Verdict SilenceWatch::Check(TimePoint now, bool expected) {
  const seconds timeout = received_ ? inactive_ : pending_;
  if (!described_ || !expected || reported_ || timeout == seconds{0} || now - since_ < timeout) {
    return Verdict::kQuiet;
  }
  reported_ = true;
  return received_ ? Verdict::kInactive : Verdict::kPending;
}

TimePoint SilenceWatch::NextVerdict(TimePoint now) const {
  if (!described_) return TimePoint::max();
  TimePoint next = TimePoint::max();
  const seconds timeout = received_ ? inactive_ : pending_;
  // A silence that has been reported, or that nobody minds, ends before another begins.
  if (timeout != seconds{0}) next = (reported_ || since_ + timeout <= now ? now : since_) + timeout;
  if (!received_ && inactive_ != seconds{0}) next = std::min(next, now + inactive_);
  return next;
}

}  // namespace media_engine
