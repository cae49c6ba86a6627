/// Holds a stream's packets back until they can leave as evenly, and in the order, in which they were sent.
///
/// Every packet has a time at which it was sent, told by its RTP timestamp, and a time at which it came. Their
/// difference is its transit time, up to a constant that nobody knows. A packet is played, which is to say handed on,
/// when the shortest transit time seen lately, plus the delay, has passed since it was sent. The fastest packets are
/// therefore held for the delay, the slower ones for less, and one that is slower by more than the delay is too late:
/// it is dropped and counted. Packets are played in the order of their numbers; lost ones are not waited for.
///
/// Static: the delay is the initial one. Adaptive: it is what all but one in a hundred of the last 256 packets would
/// have needed, between the minimum and the maximum (the percentile method of Moon, Kurose and Towsley, "Packet audio
/// playout delay adjustment", Multimedia Systems 6, 1998, over a shorter window). It grows as soon as that asks for it,
/// and shrinks when a hundred packets have been seen. A change of delay, and the drift of the clocks, take effect where
/// nobody hears it: at once when a pause in the speech ends (marker, or nothing sent for 150 ms) or when the buffer has
/// run empty, and otherwise by a twentieth of the time that is played.
///
/// Packets whose timestamps do not tell when they were sent, telephone events (RFC 4733) above all, which all carry
/// the time of the event's beginning, are held for the delay from their arrival, and keep their place in the order.
///
/// Another SSRC, another numbering, or timestamps that leap by more than 2 s begin the measurements anew, with the
/// initial delay; what is held is still played. When all packets have been too late for 250 ms, the way through the
/// network has become longer for good, and the measurements begin anew too.
///
/// Memory is taken when the buffer is made; nothing is allocated afterwards. Nothing is held longer than the maximum.
///
/// Threads: none of its own; used by the thread that owns the endpoint.
#pragma once

#include <cstdint>
#include <vector>

#include "jitter_plan.h"
#include "media_engine/statistics.h"
#include "payload_store.h"
#include "rtp_header.h"
#include "transit_window.h"

namespace media_engine {

class JitterBuffer {
 public:
  enum class Verdict { kHeld, kLate, kDuplicate, kOverflow };

  /// Not with a plan of mode kNone.
  explicit JitterBuffer(const JitterPlan& plan);

  /// Takes a copy of the packet, or says why not; counted either way. clock_rate: ticks of the timestamp per second; 0
  /// for a packet whose timestamp does not tell when it was sent.
  Verdict Put(const RtpHeader& header, const uint8_t* packet, uint32_t clock_rate, TimePoint now);
  /// When the next packet is to be played; TimePoint::max() when nothing is held.
  TimePoint NextDue() const;
  /// The next packet that is due, without contributing sources, extension and padding; the header says where the
  /// payload lies, what comes before is left for a header. False when none is due.
  bool Take(TimePoint now, RtpHeader& header, uint8_t* packet);
  /// The stream ends here: drops what is held, and begins anew with the next packet.
  void Discard();

  const JitterPlan& plan() const { return plan_; }
  /// Adds its counters, and tells the delay.
  void AddTo(EndpointStatistics& statistics) const;

 private:
  using microseconds = std::chrono::microseconds;

  struct Held {
    int64_t number = 0;
    microseconds sent{0};    // by the timestamp; on our clock but for the transit time
    microseconds latest{0};  // when it is played at the latest
    bool begins = false;     // after a pause: the offset may leap here
    RtpHeader header;
    PayloadStore::Key payload = 0;
  };

  // Numbering.
  bool Continues(const RtpHeader& header, uint32_t clock_rate) const;
  void Restart(const RtpHeader& header);
  Verdict CountPassed(const Held& one, bool timed, microseconds arrival);

  // Times.
  microseconds SentAt(uint32_t timestamp);
  void StartMeasuring(microseconds delay);
  void Anchor(Held& one, microseconds arrival);
  void Measure(Held& one, uint32_t clock_rate, microseconds arrival);
  void Adapt();
  microseconds Target() const { return window_.shortest() + delay_; }
  /// What is added to the time of sending of a packet that comes now.
  microseconds OffsetFor(const Held& one) const { return one.begins || begins_held_ > 0 ? Target() : offset_; }
  bool InTime(Held& one, microseconds arrival);
  void Approach(microseconds played);

  // Held packets.
  Verdict Insert(Held& one, const uint8_t* packet, bool timed, microseconds arrival);
  void KeepInOrder(std::size_t place);
  void NotePlayed(int64_t number);

  const JitterPlan plan_;
  std::vector<Held> held_;  // by number
  std::size_t begins_held_ = 0;
  PayloadStore store_;

  bool started_ = false;
  uint32_t ssrc_ = 0;
  int64_t highest_ = 0;  // numbers go on without wrapping, over restarts too
  int64_t played_ = 0;
  uint64_t played_before_ = 0;  // bit n: number played_ - n was played

  uint32_t clock_rate_ = 0;  // 0: no timestamp of this source seen yet
  int64_t ticks_ = 0;        // the last timestamp, without wrapping
  int64_t anchor_ticks_ = 0;
  microseconds anchor_{0};  // when anchor_ticks_ was sent
  microseconds last_sent_{0};

  TransitWindow window_;
  microseconds delay_;
  microseconds offset_;  // in force: what is added to the time of sending
  microseconds last_played_{0};
  bool all_late_ = false;
  microseconds all_late_since_{0};

  /// What EndpointStatistics has of the jitter buffer.
  struct Counters {
    uint64_t late = 0, duplicates = 0, overflows = 0, discarded = 0, reordered = 0;
  };
  Counters counters_;
};

}  // namespace media_engine
