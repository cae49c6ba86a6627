/// When a worker lets packets gather before it serves them.
///
/// A busy server that is woken for every single packet spends half its time going to sleep and waking up. Speech does
/// not notice some hundred microseconds. So after a turn that brought few packets the worker rests, and the next turn
/// finds several; after a turn that brought many it goes on at once, so that the highest rate costs nothing. With few
/// endpoints there is nothing to be saved, and packets are served as they come.
///
/// Pure logic. Threads: none of its own; used by the worker's thread.
#pragma once

#include <chrono>
#include <cstddef>

#include "media_engine/clock.h"

namespace media_engine {

class Coalescing {
 public:
  /// Endpoints on the worker, from which on it rests.
  static constexpr std::size_t kLeastEndpoints = 200;
  /// Packets in a turn, from which on it does not.
  static constexpr std::size_t kManyPackets = 32;

  /// 0: never.
  explicit Coalescing(std::chrono::microseconds rest) : rest_(rest) {}

  bool enabled() const { return rest_ > std::chrono::microseconds{0}; }
  /// How long to rest after a turn. Not after one without packets: then the next is a packet's to begin.
  std::chrono::microseconds RestAfter(std::size_t packets, std::size_t endpoints) const {
    const bool few = packets > 0 && packets < kManyPackets;
    return few && endpoints >= kLeastEndpoints ? rest_ : std::chrono::microseconds{0};
  }

 private:
  std::chrono::microseconds rest_;
};

}  // namespace media_engine
