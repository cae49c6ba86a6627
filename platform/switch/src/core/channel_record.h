#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <switch.h>

#include "core/session.h"

namespace kvx_switch {

/// Names in any case, in the order they were first set. Values keep their place in memory until they change.
class VariableStore {
 public:
  const char* Find(const char* name) const;
  void Set(const char* name, const char* value);
  void Remove(const char* name);

  template <typename Visit>
  void ForEach(Visit visit) const {
    for (const auto& variable : variables_) visit(variable->name, variable->value);
  }

 private:
  struct Variable {
    std::string name;
    std::string value;
  };
  std::vector<std::unique_ptr<Variable>> variables_;
};

/// When a leg came how far; microseconds since the epoch, 0: not yet.
struct ChannelTimes {
  switch_time_t created = 0;
  switch_time_t progress = 0;
  switch_time_t progress_media = 0;
  switch_time_t answered = 0;
  switch_time_t hung_up = 0;
};

}  // namespace kvx_switch

/// The lock is held for looking and writing only, never across a call: any thread may hang a leg up under any lock.
struct switch_channel {
  switch_channel(switch_core_session_t* owner, switch_call_direction_t call_direction)
      : session(owner), direction(call_direction) {}

  switch_core_session_t* const session;
  const switch_call_direction_t direction;
  std::atomic<char*> name{nullptr};  // in the session's pool
  std::atomic<int> state{CS_NEW};    // changed under mutex
  mutable std::mutex mutex;
  switch_channel_callstate_t callstate = CCS_DOWN;  // guarded by mutex
  switch_call_cause_t cause = SWITCH_CAUSE_NONE;    // guarded by mutex
  uint32_t flags[CF_FLAG_MAX] = {};                 // guarded by mutex
  kvx_switch::VariableStore variables;              // guarded by mutex
  kvx_switch::CallerData caller;                    // guarded by mutex
  bool hangup_told = false;                         // guarded by mutex; its log line and events are out
  std::condition_variable hangup_was_told;
  kvx_switch::ChannelTimes times;  // guarded by mutex
};

namespace kvx_switch {

/// Fires an event that carries the leg's headers.
/// `announced`: the state that the event tells of; none: the present one.
void FireChannelEvent(switch_channel_t* channel, switch_event_types_t id, const char* file, const char* func, int line,
                      std::optional<switch_channel_state_t> announced = std::nullopt);

/// The partner's uuid in the leg's own variables, "" when there is none.
std::string PartnerUuid(const switch_channel_t* channel);

bool IsHungUp(const switch_channel_t* channel);

/// Waits until whoever hung the leg up has said so to everybody: the end of a leg is told after its hang-up, and the
/// leg lives until the hang-up is done with it. For a leg that is hung up.
void WaitForHangupTold(switch_channel_t* channel);

}  // namespace kvx_switch
