/// Two joined endpoints without worker and engine: packets go straight in, and what would be sent comes out.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "participant.h"

namespace fuzz {

/// The address that the far end described, another port of its host, or another host.
enum class RtcpFrom { kFarEnd, kOtherPort, kStranger };

class Call {
 public:
  /// Longer packets are left out.
  static constexpr std::size_t kLongest = 2048;

  Call();
  ~Call();

  /// The one leg speaks G.711 mu-law and AMR, the other A-law and AMR under other numbers; both have telephone events.
  void Describe();

  /// As it comes from the network: in memory of exactly the size that is promised.
  void TakeRtp(bool first_leg, bool stranger, const uint8_t* packet, std::size_t length);
  void TakeRtcp(bool first_leg, RtcpFrom from, const uint8_t* packet, std::size_t length);
  void Wait(media_engine::milliseconds time) { now_ += time; }

  /// A packet of speech each way.
  void Talk();
  /// Reports that are due go out.
  void RunTimers();
  /// Puts that leg's SSRC, its far end's, and the stamp of its last turn of the timers in the place of the words that
  /// stand for them.
  void FillIn(bool first_leg, std::vector<uint8_t>& packet) const;
  media_engine::EndpointStatistics Statistics(bool first_leg) const;

 private:
  struct Leg {
    std::unique_ptr<media_engine::Participant> participant;
    media_engine::SocketAddress far_end;
  };
  Leg MakeLeg(const char* far_end);
  media_engine::SocketAddress SourceOfRtcp(bool first_leg, RtcpFrom from) const;
  void Check(const Leg& to, const media_engine::Handover& handover, const uint8_t* memory, std::size_t size) const;

  media_engine::TimePoint now_{media_engine::seconds{1000}};
  media_engine::TimePoint timers_ran_ = now_;
  uint16_t spoken_ = 0;  // packets of Talk
  Leg a_, b_;
};

}  // namespace fuzz
