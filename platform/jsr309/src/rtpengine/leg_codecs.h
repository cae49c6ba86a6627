/// What a leg speaks, and how two legs hear each other through daemons that pass packets on as they come.
///
/// A daemon carries payloads from the one side of a call to the other. Under which payload types they leave it can
/// change in one way only: when a side's answer shares no payload type with what was offered, it takes the whole stream
/// apart, codec and telephone-events, and puts it together again under the other side's types. That needs a codec that
/// it can encode. So two legs are joined as they are where their types allow it, and through types of the bus between
/// them, which neither leg uses, where not.
///
/// Values without shared state; any thread.
#pragma once

#include "kelvaro/jsr309/media_config.h"
#include "rtpengine/ng_description.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelvaro::jsr309::rtpengine {

/// What both sides have said of a leg's codecs.
class LegCodecs {
 public:
  void SetLocal(const MediaConfig& config);
  void SetRemote(const MediaConfig& config);
  /// Empty, or what is wrong with the record's codecs.
  static std::string FaultIn(const MediaConfig& config);

  /// The codec that goes to the far end, and that it is therefore expected to send; null when none is agreed.
  const MediaCodec* agreed() const;
  /// "AMR/8000 octet-align=1", for people.
  std::string AgreedText() const;
  /// Under which type the far end takes the codec, and under which it sends it.
  int outgoing_type() const;
  int incoming_type() const;
  /// Telephone-events; none when that side has said that it does not take them.
  std::optional<uint8_t> outgoing_events() const { return remote_events_ ? remote_event_type_ : std::nullopt; }
  std::optional<uint8_t> incoming_events() const { return local_events_ ? local_event_type_ : outgoing_events(); }
  int packet_time_ms() const;
  bool octet_align() const { return octet_align_; }

 private:
  std::vector<MediaCodec> local_, remote_;
  bool octet_align_ = false;
  bool local_events_ = false, remote_events_ = false;
  std::optional<uint8_t> local_event_type_, remote_event_type_;
};

/// How a pair is joined.
struct BusPlan {
  enum class Way { kAsItIs, kTranslated, kImpossible };
  Way way = Way::kAsItIs;
  std::string reason;               ///< of kImpossible
  std::string loss;                 ///< what does not get through, when something does not
  std::vector<NgCodec> translated;  ///< of kTranslated: what both buses speak
};
BusPlan PlanBus(const LegCodecs& one, const LegCodecs& other);

/// Codec and events of a leg, as the daemon is told that its far end takes and sends them.
std::vector<NgCodec> LegLines(const LegCodecs& codecs);

}  // namespace kelvaro::jsr309::rtpengine
