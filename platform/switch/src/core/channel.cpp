#include "core/session_record.h"

namespace {

using kvx_switch::FireChannelEvent;

/// Sets a leg's progress once: `flag` and call state change and `event` fires, unless the leg has the flag or is over.
switch_status_t mark(switch_channel_t* channel, switch_channel_flag_t flag, switch_channel_callstate_t callstate,
                     switch_time_t kvx_switch::ChannelTimes::*when, switch_event_types_t event, const char* file,
                     const char* func, int line) {
  {
    std::lock_guard<std::mutex> lock(channel->mutex);
    if (channel->state >= CS_HANGUP) return SWITCH_STATUS_FALSE;
    if (channel->flags[flag]) return SWITCH_STATUS_SUCCESS;
    channel->flags[flag] = 1;
    if (!(channel->times.*when)) channel->times.*when = switch_time_now();
  }
  FireChannelEvent(channel, event, file, func, line);
  switch_channel_perform_set_callstate(channel, callstate, file, func, line);
  return SWITCH_STATUS_SUCCESS;
}

/// How long the leg was there and, from its answer on, was talked through: whole seconds, as billing reads them.
void SetDurations(switch_channel_t& channel) {
  const kvx_switch::ChannelTimes& times = channel.times;
  const auto seconds = [&times](switch_time_t from) {
    return std::to_string(from ? (times.hung_up - from) / 1000000 : 0);
  };
  channel.variables.Set("duration", seconds(times.created).c_str());
  channel.variables.Set("billsec", seconds(times.answered).c_str());
}

bool known(switch_channel_flag_t flag) {
  return flag > 0 && flag < CF_FLAG_MAX;
}

}  // namespace

namespace kvx_switch {

bool IsHungUp(const switch_channel_t* channel) {
  return channel->state >= CS_HANGUP;
}

void WaitForHangupTold(switch_channel_t* channel) {
  std::unique_lock<std::mutex> lock(channel->mutex);
  channel->hangup_was_told.wait(lock, [channel] { return channel->hangup_told; });
}

}  // namespace kvx_switch

switch_channel_state_t switch_channel_perform_hangup(switch_channel_t* channel, const char* file, const char* func,
                                                     int line, switch_call_cause_t hangup_cause) {
  switch_channel_state_t before;
  {
    std::lock_guard<std::mutex> lock(channel->mutex);
    before = static_cast<switch_channel_state_t>(channel->state.load());
    if (before >= CS_HANGUP) return before;
    channel->cause = hangup_cause;
    channel->state = CS_HANGUP;
    channel->callstate = CCS_HANGUP;
    channel->times.hung_up = switch_time_now();
    channel->variables.Set("hangup_cause", switch_channel_cause2str(hangup_cause));
    SetDurations(*channel);
  }
  switch_log_printf(SWITCH_CHANNEL_ID_SESSION, file, func, line, reinterpret_cast<const char*>(channel->session),
                    SWITCH_LOG_NOTICE, "Hangup %s [%s] [%s]\n", switch_channel_get_name(channel),
                    switch_channel_state_name(before), switch_channel_cause2str(hangup_cause));
  FireChannelEvent(channel, SWITCH_EVENT_CHANNEL_STATE, file, func, line);
  FireChannelEvent(channel, SWITCH_EVENT_CHANNEL_CALLSTATE, file, func, line);
  FireChannelEvent(channel, SWITCH_EVENT_CHANNEL_HANGUP, file, func, line);
  channel->session->tasks.Wake();
  // The last touch: the leg may end and be gone from here on.
  std::lock_guard<std::mutex> lock(channel->mutex);
  channel->hangup_told = true;
  channel->hangup_was_told.notify_all();
  return CS_HANGUP;
}

switch_call_direction_t switch_channel_direction(switch_channel_t* channel) {
  return channel->direction;
}
switch_core_session_t* switch_channel_get_session(switch_channel_t* channel) {
  return channel->session;
}
char* switch_channel_get_uuid(switch_channel_t* channel) {
  return channel->session->uuid;
}

char* switch_channel_get_name(switch_channel_t* channel) {
  static char kNone[] = "";
  char* name = channel->name;
  return name ? name : kNone;
}

switch_status_t switch_channel_set_name(switch_channel_t* channel, const char* name) {
  channel->name = switch_core_strdup(channel->session->pool, switch_str_nil(name));
  return SWITCH_STATUS_SUCCESS;
}

switch_channel_state_t switch_channel_get_state(switch_channel_t* channel) {
  return static_cast<switch_channel_state_t>(channel->state.load());
}

switch_channel_state_t switch_channel_perform_set_state(switch_channel_t* channel, const char* file, const char* func,
                                                        int line, switch_channel_state_t state) {
  switch_channel_state_t before;
  bool allowed;
  {
    std::lock_guard<std::mutex> lock(channel->mutex);
    before = static_cast<switch_channel_state_t>(channel->state.load());
    if (state == before) return before;
    allowed = before < CS_HANGUP ? state < CS_HANGUP && state != CS_NEW : state > before && state < CS_NONE;
    if (allowed) channel->state = state;
  }
  if (!allowed) {
    // A leg that was hung up meanwhile is no mistake of the caller's.
    switch_log_printf(SWITCH_CHANNEL_ID_SESSION, file, func, line, reinterpret_cast<const char*>(channel->session),
                      before >= CS_HANGUP ? SWITCH_LOG_DEBUG : SWITCH_LOG_WARNING, "%s: no change of state %s -> %s\n",
                      switch_channel_get_name(channel), switch_channel_state_name(before),
                      switch_channel_state_name(state));
    return before;
  }
  FireChannelEvent(channel, SWITCH_EVENT_CHANNEL_STATE, file, func, line, state);
  channel->session->tasks.Wake();
  return state;
}

switch_channel_callstate_t switch_channel_get_callstate(switch_channel_t* channel) {
  std::lock_guard<std::mutex> lock(channel->mutex);
  return channel->callstate;
}

void switch_channel_perform_set_callstate(switch_channel_t* channel, switch_channel_callstate_t callstate,
                                          const char* file, const char* func, int line) {
  {
    std::lock_guard<std::mutex> lock(channel->mutex);
    if (channel->callstate == callstate || channel->callstate == CCS_HANGUP) return;
    channel->callstate = callstate;
  }
  FireChannelEvent(channel, SWITCH_EVENT_CHANNEL_CALLSTATE, file, func, line);
}

int switch_channel_test_ready(switch_channel_t* channel, switch_bool_t check_ready, switch_bool_t check_media) {
  const int state = channel->state;
  if (state >= CS_HANGUP || (check_ready && state == CS_NEW)) return 0;
  if (!check_media) return 1;
  std::lock_guard<std::mutex> lock(channel->mutex);
  return channel->flags[CF_ANSWERED] || channel->flags[CF_EARLY_MEDIA];
}

switch_call_cause_t switch_channel_get_cause(switch_channel_t* channel) {
  std::lock_guard<std::mutex> lock(channel->mutex);
  return channel->cause;
}

switch_status_t switch_channel_perform_mark_answered(switch_channel_t* channel, const char* file, const char* func,
                                                     int line) {
  return mark(channel, CF_ANSWERED, CCS_ACTIVE, &kvx_switch::ChannelTimes::answered, SWITCH_EVENT_CHANNEL_ANSWER, file,
              func, line);
}

switch_status_t switch_channel_perform_mark_pre_answered(switch_channel_t* channel, const char* file, const char* func,
                                                         int line) {
  return mark(channel, CF_EARLY_MEDIA, CCS_EARLY, &kvx_switch::ChannelTimes::progress_media,
              SWITCH_EVENT_CHANNEL_PROGRESS_MEDIA, file, func, line);
}

switch_status_t switch_channel_perform_mark_ring_ready_value(switch_channel_t* channel, switch_ring_ready_t,
                                                             const char* file, const char* func, int line) {
  return mark(channel, CF_RING_READY, CCS_RINGING, &kvx_switch::ChannelTimes::progress, SWITCH_EVENT_CHANNEL_PROGRESS,
              file, func, line);
}

uint32_t switch_channel_test_flag(switch_channel_t* channel, switch_channel_flag_t flag) {
  if (!known(flag)) return 0;
  std::lock_guard<std::mutex> lock(channel->mutex);
  return channel->flags[flag];
}

void switch_channel_set_flag_value(switch_channel_t* channel, switch_channel_flag_t flag, uint32_t value) {
  if (!known(flag)) return;
  std::lock_guard<std::mutex> lock(channel->mutex);
  channel->flags[flag] = value;
}

void switch_channel_clear_flag(switch_channel_t* channel, switch_channel_flag_t flag) {
  switch_channel_set_flag_value(channel, flag, 0);
}
