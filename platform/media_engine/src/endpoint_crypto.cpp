#include "endpoint_crypto.h"

#include <utility>

namespace media_engine {

bool EndpointCrypto::Protect(Protocol protocol, uint8_t* packet, std::size_t& length) {
  if (blocked()) {
    ++counters_.missing;
    return false;
  }
  if (!Protects()) return true;
  const SrtpVerdict verdict = local_.outgoing->Apply(protocol, packet, length);
  if (verdict == SrtpVerdict::kDone) return true;
  if (verdict == SrtpVerdict::kExpired) TellOnce(told_expired_locally_, "the keys we send with have served their time");
  if (verdict == SrtpVerdict::kReplayed) {
    ++counters_.duplicates;
  } else {
    Count(verdict);
  }
  return false;
}

bool EndpointCrypto::Unprotect(Protocol protocol, uint8_t* packet, std::size_t& length, TimePoint now) {
  if (blocked()) {
    ++counters_.missing;
    return false;
  }
  if (!Protects()) return true;
  const SrtpVerdict verdict = TryAll(protocol, packet, length, now);
  if (verdict == SrtpVerdict::kDone) return true;
  if (verdict == SrtpVerdict::kExpired) TellOnce(told_expired_remotely_, "the far end's keys have served their time");
  if (verdict == SrtpVerdict::kUnauthentic) {
    TellOnce(told_unauthentic_, "a packet is not protected with the far end's keys");
  }
  Count(verdict);
  return false;
}

/// The verdict that counts is that of the keys that stand. A packet that some refuse is left as it was for the others.
SrtpVerdict EndpointCrypto::TryAll(Protocol protocol, uint8_t* packet, std::size_t& length, TimePoint now) {
  DropFormerKeys(now);
  if (length > kLongestPacket) return SrtpVerdict::kUnauthentic;
  const SrtpVerdict verdict = incoming_->Apply(protocol, packet, length);
  if (verdict == SrtpVerdict::kDone) {
    if (protocol == Protocol::kRtp) continued_.reset();
    NewKeysAreInUse(now);
    return verdict;
  }
  if (continued_ && continued_->Apply(protocol, packet, length) == SrtpVerdict::kDone) {
    incoming_ = std::move(continued_);
    NewKeysAreInUse(now);
    return SrtpVerdict::kDone;
  }
  if (former_ && former_->Apply(protocol, packet, length) == SrtpVerdict::kDone) return SrtpVerdict::kDone;
  return verdict;
}

void EndpointCrypto::NewKeysAreInUse(TimePoint now) {
  if (former_ && !former_until_) former_until_ = now + kFormerKeysTime;
}

void EndpointCrypto::DropFormerKeys(TimePoint now) {
  if (former_ && former_until_ && now > *former_until_) former_.reset();
}

void EndpointCrypto::Count(SrtpVerdict verdict) {
  switch (verdict) {
    case SrtpVerdict::kDone:
      return;
    case SrtpVerdict::kUnauthentic:
      ++counters_.unauthentic;
      return;
    case SrtpVerdict::kReplayed:
      ++counters_.replayed;
      return;
    case SrtpVerdict::kExpired:
      ++counters_.key_expired;
      return;
    case SrtpVerdict::kSourcesExceeded:
      ++counters_.sources_exceeded;
      return;
    case SrtpVerdict::kFailed:
      ++counters_.unsendable;
      return;
  }
}

void EndpointCrypto::TellOnce(bool& told, const char* what) {
  if (!std::exchange(told, true)) warn_(std::string(what) + ": dropped, and from now on only counted");
}

void EndpointCrypto::AddTo(EndpointStatistics& statistics) const {
  statistics.srtp_unauthentic += counters_.unauthentic;
  statistics.srtp_replayed += counters_.replayed;
  statistics.srtp_sources_exceeded += counters_.sources_exceeded;
  statistics.srtp_key_expired += counters_.key_expired;
  statistics.srtp_missing += counters_.missing;
  statistics.srtp_unsendable += counters_.unsendable;
  statistics.srtp_duplicates += counters_.duplicates;
}

}  // namespace media_engine
