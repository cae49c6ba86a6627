/// Which payload type means what, on each side of an endpoint, and how a packet of one endpoint gets through another.
///
/// Payload types are agreed per leg and per direction: 96 may be AMR towards us, 97 AMR towards the far end, and 96
/// iLBC on the other leg. So a packet's payload type is turned into a codec by what was said towards its sender, and
/// back into a payload type by what the other far end said. RFC 4733 events take the same way beside the codec, and so
/// does comfort noise (RFC 3389) of the codec's clock rate, where neither leg suppresses it.
///
/// Threads: none of their own; used by the thread that owns the endpoint.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "media_engine/description.h"
#include "silence_frames.h"

namespace media_engine {

/// What becomes of a received payload type on the way to the joined endpoint.
struct PayloadRoute {
  enum class Way : uint8_t { kUnknown, kNoCounterpart, kUnwantedSilence, kAsItIs, kMuLawToALaw, kALawToMuLaw };
  Way way = Way::kUnknown;
  SidFormat remove_sid = SidFormat::kNone;
  bool telephone_event = false;
  uint8_t payload_type = 0;  // on the other side
};

/// What a received payload type means to an endpoint that is joined. Found in tables, and worth remembering: the next
/// packet's is the same nearly always.
struct PayloadMeaning {
  static constexpr uint8_t kNone = 0xff;  // no payload type
  uint32_t clock_rate = 0;
  PayloadRoute route;
  uint8_t payload_type = kNone;
};

/// By what PayloadTypes::MeaningOf says of the received payload type.
using PayloadRoutes = std::vector<PayloadRoute>;

/// One endpoint's agreements.
class PayloadTypes {
 public:
  void SetLocal(const LocalSettings& settings);
  void SetRemote(const RemoteDescription& description);

  /// The codec that is sent to the far end, and that it is therefore expected to send; null when none is agreed.
  const Codec* agreed() const { return remote_codecs_.empty() ? nullptr : &remote_codecs_.front(); }
  /// "AMR/8000 octet-align=1", for people.
  std::string AgreedText() const;
  /// The clock of a received payload type's timestamps; 0 when it is not known or when they do not advance evenly.
  uint32_t ClockRateOf(uint8_t payload_type) const { return meanings_[MeaningOf(payload_type)].clock_rate; }
  bool Understands(uint8_t payload_type) const { return MeaningOf(payload_type) != kNothingKnown; }
  /// Its place in the routes from here, as long as no description comes.
  std::size_t MeaningOf(uint8_t payload_type) const { return numbers_[payload_type]; }

  /// How packets from here get to the other.
  PayloadRoutes RoutesTo(const PayloadTypes& other) const;
  /// Whether the two agreed codecs can be carried into each other; true as long as either has none.
  bool CanCarry(const PayloadTypes& other) const;

  /// Empty, or what is wrong with the list.
  static std::string FaultIn(const std::vector<Codec>& codecs);

 private:
  static constexpr uint8_t kNothingKnown = 0;
  enum class Kind : uint8_t { kNothing, kCodec, kTelephoneEvent, kComfortNoise };
  struct Meaning {
    uint32_t clock_rate = 0;
    uint32_t codec = 0;  // of a codec: its place among the local ones and, behind them, the remote ones
    Kind kind = Kind::kNothing;
  };

  void Rebuild();
  /// Unless the number has a meaning already.
  void Claim(int payload_type, const Meaning& meaning);
  void ClaimCodec(std::size_t place);
  void ClaimEvents(bool understood, const std::optional<uint8_t>& payload_type);
  void ClaimComfortNoise(const std::vector<Codec>& described);
  const Codec& CodecAt(std::size_t place) const {
    return place < local_codecs_.size() ? local_codecs_[place] : remote_codecs_[place - local_codecs_.size()];
  }
  PayloadRoute RouteTo(const PayloadTypes& other, const Meaning& meaning) const;
  PayloadRoute::Way WayTo(const Codec& mine, const PayloadTypes& other) const;
  bool SuppressesComfortNoise() const;
  /// Under which payload type comfort noise of that clock rate goes to the far end, if at all.
  std::optional<uint8_t> ComfortNoiseType(uint32_t clock_rate) const;
  SidFormat UnwantedSid(const Codec& codec) const;

  std::vector<Codec> local_codecs_, remote_codecs_;
  std::vector<Codec> local_comfort_noise_, remote_comfort_noise_;
  SilenceSettings local_silence_, remote_silence_;
  bool amr_octet_align_ = false;
  bool local_events_ = false, remote_events_ = false;
  std::optional<uint8_t> local_event_type_, remote_event_type_;
  std::array<uint8_t, 128> numbers_{};        // by received payload type: place in meanings_
  std::vector<Meaning> meanings_{Meaning()};  // the first is that of all numbers that have none
};

}  // namespace media_engine
