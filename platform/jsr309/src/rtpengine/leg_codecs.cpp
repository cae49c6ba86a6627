#include "rtpengine/leg_codecs.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <set>
#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

constexpr int kHighestType = 127;
constexpr int kLowestDynamicType = 96;
constexpr int kEventRate = 8000;

/// What Debian's build of the daemon encodes.
constexpr const char* kEncoded[] = {"PCMU", "PCMA", "G722", "G723", "G729", "G729a", "GSM", "speex", "opus"};

bool Named(const MediaCodec& codec, const char* name) {
  return strcasecmp(codec.name.c_str(), name) == 0;
}
bool IsAmr(const MediaCodec& codec) {
  return Named(codec, "AMR") || Named(codec, "AMR-WB");
}
/// Codecs whose payloads of different bit rates are different formats that do not tell themselves apart.
bool BitRateMatters(const MediaCodec& codec) {
  return Named(codec, "G7221") || Named(codec, "iLBC");
}
bool SameCodec(const MediaCodec& one, const MediaCodec& other) {
  return Named(one, other.name.c_str()) && one.sample_rate == other.sample_rate &&
         (!BitRateMatters(one) || one.bit_rate == other.bit_rate);
}
bool IsG711(const MediaCodec& codec) {
  return codec.sample_rate == 8000 && (Named(codec, "PCMU") || Named(codec, "PCMA"));
}
bool IsEncoded(const MediaCodec& codec) {
  return std::any_of(std::begin(kEncoded), std::end(kEncoded), [&](const char* name) { return Named(codec, name); });
}

/// Audio without comfort noise, which is no codec to agree on.
void SetCodecs(const MediaConfig& config, std::vector<MediaCodec>& codecs) {
  std::vector<MediaCodec> described;
  for (const MediaCodec& codec : config.GetCodecs()) {
    if (!codec.video && !Named(codec, "CN")) described.push_back(codec);
  }
  if (!described.empty()) codecs = std::move(described);
}

NgCodec LineOf(const MediaCodec& codec, int payload_type) {
  return {payload_type, codec.name, codec.sample_rate, codec.channels, codec.format_parameters.value_or("")};
}
NgCodec EventLine(int payload_type) {
  return {payload_type, "telephone-event", kEventRate, 0, "0-15"};
}

/// The highest types that neither leg uses for anything.
std::vector<NgCodec> BusLines(const LegCodecs& one, const LegCodecs& other) {
  std::set<int> taken;
  for (const LegCodecs* leg : {&one, &other}) {
    for (const NgCodec& line : LegLines(*leg)) taken.insert(line.payload_type);
  }
  std::array<int, 2> free{};
  int candidate = kHighestType;
  for (int& type : free) {
    while (candidate > kLowestDynamicType && taken.count(candidate) != 0) --candidate;
    type = candidate--;
  }
  std::vector<NgCodec> lines = {LineOf(*one.agreed(), free[0])};
  if (one.outgoing_events() && other.outgoing_events()) lines.push_back(EventLine(free[1]));
  return lines;
}

bool EventsMeet(const std::optional<uint8_t>& sent, const std::optional<uint8_t>& taken) {
  return !sent || !taken || *sent == *taken;
}

std::string TypesText(const LegCodecs& one, const LegCodecs& other) {
  return std::to_string(one.incoming_type()) + " and " + std::to_string(other.incoming_type());
}

}  // namespace

void LegCodecs::SetLocal(const MediaConfig& config) {
  SetCodecs(config, local_);
  if (config.GetAMROctetAlign()) octet_align_ = *config.GetAMROctetAlign();
  if (config.GetRfc2833Flag()) local_events_ = *config.GetRfc2833Flag();
  if (config.GetRfc2833Payload()) local_event_type_ = config.GetRfc2833Payload();
}

void LegCodecs::SetRemote(const MediaConfig& config) {
  SetCodecs(config, remote_);
  if (config.GetAMROctetAlign()) octet_align_ = *config.GetAMROctetAlign();
  if (config.GetRfc2833Flag()) remote_events_ = *config.GetRfc2833Flag();
  if (config.GetRfc2833Payload()) remote_event_type_ = config.GetRfc2833Payload();
}

std::string LegCodecs::FaultIn(const MediaConfig& config) {
  for (const MediaCodec& codec : config.GetCodecs()) {
    if (codec.video) continue;
    if (codec.name.empty()) return "a codec without a name";
    if (codec.payload_type < 0 || codec.payload_type > kHighestType) {
      return "codec " + codec.name + ": payload type " + std::to_string(codec.payload_type) + " is not in 0-127";
    }
    if (codec.sample_rate <= 0) {
      return "codec " + codec.name + ": clock rate " + std::to_string(codec.sample_rate) + " is not positive";
    }
  }
  const std::optional<uint8_t> events = config.GetRfc2833Payload();
  if (!events || *events <= kHighestType) return "";
  return "telephone-event payload type " + std::to_string(*events) + " is not in 0-127";
}

const MediaCodec* LegCodecs::agreed() const {
  if (!remote_.empty()) return &remote_.front();
  return local_.empty() ? nullptr : &local_.front();
}

std::string LegCodecs::AgreedText() const {
  const MediaCodec* const codec = agreed();
  if (codec == nullptr) return "none";
  std::string text = codec->name + "/" + std::to_string(codec->sample_rate);
  if (IsAmr(*codec)) text += std::string(" octet-align=") + (octet_align_ ? "1" : "0");
  if (BitRateMatters(*codec)) text += " bitrate=" + std::to_string(codec->bit_rate);
  return text;
}

int LegCodecs::outgoing_type() const {
  return agreed() == nullptr ? 0 : agreed()->payload_type;
}

int LegCodecs::incoming_type() const {
  const MediaCodec* const codec = agreed();
  if (codec == nullptr) return 0;
  for (const MediaCodec& ours : local_) {
    if (SameCodec(ours, *codec)) return ours.payload_type;
  }
  return codec->payload_type;
}

int LegCodecs::packet_time_ms() const {
  return agreed() == nullptr ? 0 : agreed()->packet_time_ms;
}

BusPlan PlanBus(const LegCodecs& one, const LegCodecs& other) {
  BusPlan plan;
  const MediaCodec *const a = one.agreed(), *const b = other.agreed();
  if (a == nullptr || b == nullptr) return plan;
  const bool same = SameCodec(*a, *b) && (!IsAmr(*a) || one.octet_align() == other.octet_align());
  if (!same && !(IsG711(*a) && IsG711(*b))) {
    plan.way = BusPlan::Way::kImpossible;
    plan.reason = "codecs " + one.AgreedText() + " and " + other.AgreedText() + " cannot be carried into each other";
    return plan;
  }
  const bool codec_meets =
      same && one.incoming_type() == other.outgoing_type() && other.incoming_type() == one.outgoing_type();
  const bool events_meet = EventsMeet(one.incoming_events(), other.outgoing_events()) &&
                           EventsMeet(other.incoming_events(), one.outgoing_events());
  if (codec_meets && events_meet) return plan;
  if (IsEncoded(*a)) {
    plan.way = BusPlan::Way::kTranslated;
    plan.translated = BusLines(one, other);
  } else if (codec_meets) {
    plan.loss = "telephone-events under payload types that differ, beside " + one.AgreedText();
  } else {
    plan.way = BusPlan::Way::kImpossible;
    plan.reason = one.AgreedText() + " under payload types " + TypesText(one, other) +
                  " cannot be carried: rtpengine gives no other payload type to a codec that it does not encode";
  }
  return plan;
}

std::vector<NgCodec> LegLines(const LegCodecs& codecs) {
  std::vector<NgCodec> lines;
  const auto add = [&lines](NgCodec line) {
    const auto same = [&line](const NgCodec& other) { return other.payload_type == line.payload_type; };
    if (std::none_of(lines.begin(), lines.end(), same)) lines.push_back(std::move(line));
  };
  if (const MediaCodec* const codec = codecs.agreed()) {
    add(LineOf(*codec, codecs.outgoing_type()));
    if (codecs.outgoing_events()) add(EventLine(*codecs.outgoing_events()));
    add(LineOf(*codec, codecs.incoming_type()));
    if (codecs.incoming_events()) add(EventLine(*codecs.incoming_events()));
  } else {
    add({0, "PCMU", kEventRate, 0, ""});  // a description has to name one
  }
  return lines;
}

}  // namespace kelvaro::jsr309::rtpengine
