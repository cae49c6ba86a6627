/// When a worker takes all packets of a socket instead of one.
///
/// At 50 packets a second there is hardly ever a second packet in a socket, and asking for it costs something. But when
/// the worker has been kept from its work, by whatever, every socket has several; taken one by one they cost as much as
/// ever and more, since by then they have left the processor's caches, and a worker that is busy does not catch up. So
/// while turns are full it asks for more now and then, and as long as that is worth it, each time.
///
/// Pure logic. Threads: none of its own; used by the worker's thread.
#pragma once

#include <cstddef>

namespace media_engine {

class Backlog {
 public:
  /// The turn that begins brought that many ready sockets, of so many at most.
  void BeginTurn(std::size_t ready, std::size_t most) {
    full_ = ready >= most;
    if (!full_) several_ = 0;
  }
  /// Whether to take all there is in the next socket.
  bool TakesAll() { return full_ && (several_ >= kWorthIt || ++looks_ % kLooks == 0); }
  /// What there was, when all was taken.
  void Took(std::size_t packets) { several_ += ((packets > 1 ? kAlways : 0) - several_) / kMemory; }

 private:
  static constexpr unsigned kLooks = 8;  // one socket of so many is looked through, while it is not known what there is
  static constexpr double kAlways = 1, kWorthIt = 0.2, kMemory = 8;

  bool full_ = false;
  unsigned looks_ = 0;
  double several_ = 0;  // the share of sockets, of late, that had more than one packet
};

}  // namespace media_engine
