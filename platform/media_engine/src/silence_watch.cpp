#include "silence_watch.h"

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

}  // namespace media_engine
