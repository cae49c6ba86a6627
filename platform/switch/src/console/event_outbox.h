#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "console/wake_event.h"

namespace kvx_switch {

/// Events come when they come and a client reads when it likes. This holds what one client has not taken yet, up to a
/// limit: beyond it new messages are dropped and counted, so that whoever puts them in never waits. Any thread puts,
/// one takes.
class EventOutbox {
 public:
  struct Limits {
    size_t messages = 10000;
    size_t bytes = 8 * 1024 * 1024;
  };

  explicit EventOutbox(Limits limits) : limits_(limits) {}  ///< throws std::system_error without a free descriptor

  /// False when the message was dropped. Never waits.
  bool Put(std::string message);
  /// Messages in their order, one at least when there is any, and no more than reach `bytes`; "" when there is none.
  std::string Take(size_t bytes);
  void Clear();

  uint64_t dropped() const;
  /// Raised while there is something to take.
  const WakeEvent& filled() const { return filled_; }

 private:
  const Limits limits_;
  WakeEvent filled_;
  mutable std::mutex mutex_;
  std::deque<std::string> messages_;  // guarded by mutex_
  size_t bytes_ = 0;                  // guarded by mutex_
  uint64_t dropped_ = 0;              // guarded by mutex_
};

}  // namespace kvx_switch
