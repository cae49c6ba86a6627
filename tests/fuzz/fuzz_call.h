/// Two joined endpoints without worker and engine: packets go straight in, and what would be sent comes out.
#pragma once

#include <memory>

#include "participant.h"

namespace fuzz {

class Call {
 public:
  Call();
  ~Call();

  /// The one leg speaks G.711 mu-law and AMR, the other A-law and AMR under other numbers; both have telephone events.
  void Describe();

  /// As it comes from the network: in memory of exactly the size that is promised.
  void TakeRtp(bool first_leg, bool stranger, const uint8_t* packet, std::size_t length);
  void TakeRtcp(bool first_leg, bool stranger, const uint8_t* packet, std::size_t length);
  void Wait(media_engine::milliseconds time) { now_ += time; }

 private:
  struct Leg {
    std::unique_ptr<media_engine::Participant> participant;
    media_engine::SocketAddress far_end;
  };
  Leg MakeLeg(const char* far_end);
  void Check(const Leg& to, const media_engine::Handover& handover, const uint8_t* memory, std::size_t size) const;

  media_engine::TimePoint now_{media_engine::seconds{1000}};
  Leg a_, b_;
};

}  // namespace fuzz
