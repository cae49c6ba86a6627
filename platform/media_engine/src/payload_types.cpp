#include "payload_types.h"

#include <strings.h>

namespace media_engine {
namespace {

bool Named(const Codec& codec, const char* name) {
  return strcasecmp(codec.name.c_str(), name) == 0;
}
bool IsAmr(const Codec& codec) {
  return Named(codec, "AMR") || Named(codec, "AMR-WB");
}

/// Codecs whose payloads of different bit rates are different formats that do not tell themselves apart.
bool BitRateMatters(const Codec& codec) {
  return Named(codec, "G7221") || Named(codec, "iLBC");
}

bool SameCodec(const Codec& a, const Codec& b) {
  return Named(a, b.name.c_str()) && a.clock_rate == b.clock_rate && (!BitRateMatters(a) || a.bit_rate == b.bit_rate);
}

// RFC 3551, section 6.
constexpr uint8_t kStaticComfortNoiseType = 13;
constexpr uint32_t kStaticComfortNoiseRate = 8000;

void SetCodecs(const std::vector<Codec>& described, std::vector<Codec>& codecs, std::vector<Codec>& comfort_noise) {
  if (described.empty()) return;
  comfort_noise.clear();
  std::vector<Codec> others;
  for (const Codec& codec : described) (Named(codec, "CN") ? comfort_noise : others).push_back(codec);
  if (!others.empty()) codecs = std::move(others);
}

void Update(std::optional<bool>& flag, const std::optional<bool>& described) {
  if (described) flag = described;
}

void SetSilence(const SilenceSettings& described, SilenceSettings& silence) {
  Update(silence.suppress_comfort_noise, described.suppress_comfort_noise);
  Update(silence.g729_annex_b, described.g729_annex_b);
  Update(silence.g723_annex_a, described.g723_annex_a);
}

bool IsNarrow(const Codec& codec, const char* name) {
  return Named(codec, name) && codec.clock_rate == 8000;
}

}  // namespace

std::string PayloadTypes::FaultIn(const std::vector<Codec>& codecs) {
  for (const Codec& codec : codecs) {
    if (codec.name.empty()) return "a codec without a name";
    if (codec.payload_type < 0 || codec.payload_type > 127) {
      return "codec " + codec.name + ": payload type " + std::to_string(codec.payload_type) + " is not in 0-127";
    }
    if (codec.clock_rate <= 0) {
      return "codec " + codec.name + ": clock rate " + std::to_string(codec.clock_rate) + " is not positive";
    }
  }
  return "";
}

void PayloadTypes::SetLocal(const LocalSettings& settings) {
  SetCodecs(settings.codecs, local_codecs_, local_comfort_noise_);
  SetSilence(settings.silence, local_silence_);
  if (settings.amr_octet_align) amr_octet_align_ = *settings.amr_octet_align;
  if (settings.telephone_event) local_events_ = *settings.telephone_event;
  if (settings.telephone_event_payload_type) local_event_type_ = settings.telephone_event_payload_type;
  Rebuild();
}

void PayloadTypes::SetRemote(const RemoteDescription& description) {
  SetCodecs(description.codecs, remote_codecs_, remote_comfort_noise_);
  SetSilence(description.silence, remote_silence_);
  if (description.amr_octet_align) amr_octet_align_ = *description.amr_octet_align;
  if (description.telephone_event) remote_events_ = *description.telephone_event;
  if (description.telephone_event_payload_type) remote_event_type_ = description.telephone_event_payload_type;
  Rebuild();
}

/// A number may be claimed twice: a list of everything we could do holds numbers that the far end has given to
/// something else. What was agreed on therefore claims first.
void PayloadTypes::Rebuild() {
  numbers_.fill(kNothingKnown);
  meanings_.assign(1, Meaning());
  for (std::size_t place = 0; place < local_codecs_.size(); ++place) {
    if (agreed() != nullptr && SameCodec(CodecAt(place), *agreed())) ClaimCodec(place);
  }
  ClaimEvents(local_events_, local_event_type_);
  std::size_t place = 0;
  while (place < local_codecs_.size()) ClaimCodec(place++);
  ClaimComfortNoise(local_comfort_noise_);
  // Many a far end sends with the numbers of its own description.
  while (place < local_codecs_.size() + remote_codecs_.size()) ClaimCodec(place++);
  ClaimEvents(remote_events_, remote_event_type_);
  ClaimComfortNoise(remote_comfort_noise_);
  // Whoever says whether it is in use knows it.
  if (local_silence_.suppress_comfort_noise) {
    Codec comfort_noise;
    comfort_noise.payload_type = kStaticComfortNoiseType;
    ClaimComfortNoise({comfort_noise});
  }
  meanings_.shrink_to_fit();
}

void PayloadTypes::Claim(int payload_type, const Meaning& meaning) {
  uint8_t& number = numbers_[static_cast<std::size_t>(payload_type)];
  if (number != kNothingKnown) return;
  number = static_cast<uint8_t>(meanings_.size());  // one for each number at most
  meanings_.push_back(meaning);
}

void PayloadTypes::ClaimCodec(std::size_t place) {
  const Codec& codec = CodecAt(place);
  Claim(codec.payload_type, {static_cast<uint32_t>(codec.clock_rate), static_cast<uint32_t>(place), Kind::kCodec});
}

void PayloadTypes::ClaimEvents(bool understood, const std::optional<uint8_t>& payload_type) {
  if (!understood || !payload_type || *payload_type > 127) return;
  // An event's packets all carry the time of its beginning, so they say nothing of the clock.
  Claim(*payload_type, {0, 0, Kind::kTelephoneEvent});
}

void PayloadTypes::ClaimComfortNoise(const std::vector<Codec>& described) {
  for (const Codec& codec : described) {
    // Beside a codec of another clock rate its timestamps would mean nothing.
    const bool fits = agreed() == nullptr || agreed()->clock_rate == codec.clock_rate;
    if (fits) Claim(codec.payload_type, {static_cast<uint32_t>(codec.clock_rate), 0, Kind::kComfortNoise});
  }
}

bool PayloadTypes::SuppressesComfortNoise() const {
  return local_silence_.suppress_comfort_noise.value_or(false) ||
         remote_silence_.suppress_comfort_noise.value_or(false);
}

std::optional<uint8_t> PayloadTypes::ComfortNoiseType(uint32_t clock_rate) const {
  if (SuppressesComfortNoise()) return std::nullopt;
  for (const Codec& codec : remote_comfort_noise_) {
    if (static_cast<uint32_t>(codec.clock_rate) == clock_rate) return static_cast<uint8_t>(codec.payload_type);
  }
  const bool in_use = !remote_silence_.suppress_comfort_noise.value_or(true);
  if (in_use && clock_rate == kStaticComfortNoiseRate) return kStaticComfortNoiseType;
  return std::nullopt;
}

/// An annex is in use when both sides have it.
SidFormat PayloadTypes::UnwantedSid(const Codec& codec) const {
  const auto declined = [this](std::optional<bool> SilenceSettings::*annex) {
    return !(local_silence_.*annex).value_or(true) || !(remote_silence_.*annex).value_or(true);
  };
  if (Named(codec, "G729") && declined(&SilenceSettings::g729_annex_b)) return SidFormat::kG729;
  if (Named(codec, "G723") && declined(&SilenceSettings::g723_annex_a)) return SidFormat::kG723;
  return SidFormat::kNone;
}

std::string PayloadTypes::AgreedText() const {
  const Codec* codec = agreed();
  if (codec == nullptr) return "none";
  std::string text = codec->name + "/" + std::to_string(codec->clock_rate);
  if (IsAmr(*codec)) text += std::string(" octet-align=") + (amr_octet_align_ ? "1" : "0");
  if (BitRateMatters(*codec)) text += " bitrate=" + std::to_string(codec->bit_rate);
  return text;
}

PayloadRoute::Way PayloadTypes::WayTo(const Codec& mine, const PayloadTypes& other) const {
  const Codec* theirs = other.agreed();
  if (theirs == nullptr) return PayloadRoute::Way::kNoCounterpart;
  if (SameCodec(mine, *theirs)) {
    const bool unlike = IsAmr(mine) && amr_octet_align_ != other.amr_octet_align_;
    return unlike ? PayloadRoute::Way::kNoCounterpart : PayloadRoute::Way::kAsItIs;
  }
  if (IsNarrow(mine, "PCMU") && IsNarrow(*theirs, "PCMA")) return PayloadRoute::Way::kMuLawToALaw;
  if (IsNarrow(mine, "PCMA") && IsNarrow(*theirs, "PCMU")) return PayloadRoute::Way::kALawToMuLaw;
  return PayloadRoute::Way::kNoCounterpart;
}

bool PayloadTypes::CanCarry(const PayloadTypes& other) const {
  if (agreed() == nullptr || other.agreed() == nullptr) return true;
  return WayTo(*agreed(), other) != PayloadRoute::Way::kNoCounterpart;
}

PayloadRoutes PayloadTypes::RoutesTo(const PayloadTypes& other) const {
  PayloadRoutes routes;
  routes.reserve(meanings_.size());
  for (const Meaning& meaning : meanings_) routes.push_back(RouteTo(other, meaning));
  return routes;
}

PayloadRoute PayloadTypes::RouteTo(const PayloadTypes& other, const Meaning& meaning) const {
  PayloadRoute route;
  if (meaning.kind == Kind::kCodec) {
    const Codec& codec = CodecAt(meaning.codec);
    route.way = WayTo(codec, other);
    route.remove_sid = other.UnwantedSid(codec);
    if (other.agreed() != nullptr) route.payload_type = static_cast<uint8_t>(other.agreed()->payload_type);
  } else if (meaning.kind == Kind::kTelephoneEvent) {
    const bool taken = other.remote_events_ && other.remote_event_type_ && *other.remote_event_type_ <= 127;
    route.telephone_event = true;
    route.way = taken ? PayloadRoute::Way::kAsItIs : PayloadRoute::Way::kNoCounterpart;
    if (taken) route.payload_type = *other.remote_event_type_;
  } else if (meaning.kind == Kind::kComfortNoise) {
    const auto type = SuppressesComfortNoise() ? std::nullopt : other.ComfortNoiseType(meaning.clock_rate);
    route.way = type ? PayloadRoute::Way::kAsItIs : PayloadRoute::Way::kUnwantedSilence;
    if (type) route.payload_type = *type;
  }
  return route;
}

}  // namespace media_engine
