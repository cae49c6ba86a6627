#pragma once

/// Channels: what a leg is (name, direction, variables, flags) and how far it has come (state, hang-up cause). Every
/// call may come from any thread; the channel lives with its session.

#include "switch_types.h"
#include "switch_utils.h"

SWITCH_BEGIN_EXTERN_C

/// Null when unset anywhere: an unset name falls back to the caller's data (caller_id_name, caller_id_number,
/// destination_number, context, uuid, channel_name, direction, ...), then to the global variables. `dup` true: a copy
/// in the session's pool, good until the session ends; false: good until the variable changes. `idx` is -1 for the
/// whole value, else which element of an ARRAY::a|:b value.
SWITCH_DECLARE(const char*)
switch_channel_get_variable_dup(switch_channel_t* channel, const char* varname, switch_bool_t dup, int idx);
#define switch_channel_get_variable(_c, _v) switch_channel_get_variable_dup(_c, _v, SWITCH_TRUE, -1)

/// Null or empty value unsets. With `var_check` a value that refers to a variable is refused (FALSE).
SWITCH_DECLARE(switch_status_t)
switch_channel_set_variable_var_check(switch_channel_t* channel, const char* varname, const char* value,
                                      switch_bool_t var_check);
#define switch_channel_set_variable(_channel, _var, _val) \
  switch_channel_set_variable_var_check(_channel, _var, _val, SWITCH_TRUE)
#define switch_channel_set_variable_safe(_channel, _var, _val) \
  switch_channel_set_variable_var_check(_channel, _var, _val, SWITCH_FALSE)
SWITCH_DECLARE_NONSTD(switch_status_t)
switch_channel_set_variable_printf(switch_channel_t* channel, const char* varname, const char* fmt, ...);

static inline int switch_channel_var_true(switch_channel_t* channel, const char* variable) {
  return switch_true(switch_channel_get_variable_dup(channel, variable, SWITCH_FALSE, -1));
}
static inline int switch_channel_var_false(switch_channel_t* channel, const char* variable) {
  return switch_false(switch_channel_get_variable_dup(channel, variable, SWITCH_FALSE, -1));
}

/// A new event that holds all variables as headers; the caller destroys it.
SWITCH_DECLARE(switch_status_t) switch_channel_get_variables(switch_channel_t* channel, switch_event_t** event);
/// Puts the leg's headers on the event: state, names, uuid, caller data, and every variable as variable_<name>.
SWITCH_DECLARE(void) switch_channel_event_set_data(switch_channel_t* channel, switch_event_t* event);

/// Marks the leg and wakes its thread; tears nothing down and takes no lock that a caller could hold. The first cause
/// stays. Returns the state after the call.
SWITCH_DECLARE(switch_channel_state_t)
switch_channel_perform_hangup(switch_channel_t* channel, const char* file, const char* func, int line,
                              switch_call_cause_t hangup_cause);
#define switch_channel_hangup(channel, hangup_cause) \
  switch_channel_perform_hangup(channel, __FILE__, __SWITCH_FUNC__, __LINE__, hangup_cause)

SWITCH_DECLARE(switch_call_direction_t) switch_channel_direction(switch_channel_t* channel);
SWITCH_DECLARE(switch_core_session_t*) switch_channel_get_session(switch_channel_t* channel);
SWITCH_DECLARE(char*) switch_channel_get_uuid(switch_channel_t* channel);
SWITCH_DECLARE(char*) switch_channel_get_name(switch_channel_t* channel);
SWITCH_DECLARE(switch_status_t) switch_channel_set_name(switch_channel_t* channel, const char* name);
/// The uuid in "signal_bond", else in "originate_signal_bond", a copy in the session's pool; null when unbridged.
SWITCH_DECLARE(const char*) switch_channel_get_partner_uuid(switch_channel_t* channel);

SWITCH_DECLARE(switch_channel_state_t) switch_channel_get_state(switch_channel_t* channel);
/// States below CS_HANGUP may follow each other freely; from there on only upwards. CS_HANGUP itself is reached by a
/// hang-up alone.
SWITCH_DECLARE(switch_channel_state_t)
switch_channel_perform_set_state(switch_channel_t* channel, const char* file, const char* func, int line,
                                 switch_channel_state_t state);
#define switch_channel_set_state(channel, state) \
  switch_channel_perform_set_state(channel, __FILE__, __SWITCH_FUNC__, __LINE__, state)
SWITCH_DECLARE(const char*) switch_channel_state_name(switch_channel_state_t state);

SWITCH_DECLARE(switch_channel_callstate_t) switch_channel_get_callstate(switch_channel_t* channel);
SWITCH_DECLARE(void)
switch_channel_perform_set_callstate(switch_channel_t* channel, switch_channel_callstate_t callstate, const char* file,
                                     const char* func, int line);
#define switch_channel_set_callstate(channel, state) \
  switch_channel_perform_set_callstate(channel, state, __FILE__, __SWITCH_FUNC__, __LINE__)
SWITCH_DECLARE(const char*) switch_channel_callstate2str(switch_channel_callstate_t callstate);

/// Not hung up; with `check_ready` also past CS_NEW; with `check_media` also answered or with early media.
SWITCH_DECLARE(int)
switch_channel_test_ready(switch_channel_t* channel, switch_bool_t check_ready, switch_bool_t check_media);
#define switch_channel_ready(_channel) switch_channel_test_ready(_channel, SWITCH_TRUE, SWITCH_FALSE)
#define switch_channel_media_ready(_channel) switch_channel_test_ready(_channel, SWITCH_TRUE, SWITCH_TRUE)
#define switch_channel_up(_channel) (switch_channel_get_state(_channel) < CS_HANGUP)
#define switch_channel_down(_channel) (switch_channel_get_state(_channel) >= CS_HANGUP)

SWITCH_DECLARE(switch_call_cause_t) switch_channel_get_cause(switch_channel_t* channel);
/// Static text: the enumerator without SWITCH_CAUSE_; "UNKNOWN" for none of them.
SWITCH_DECLARE(const char*) switch_channel_cause2str(switch_call_cause_t cause);
/// A name in any case or a number; SWITCH_CAUSE_NONE for a null text, NORMAL_CLEARING for an unknown name.
SWITCH_DECLARE(switch_call_cause_t) switch_channel_str2cause(const char* str);

/// What the signalling reports of a leg: each sets flag and call state and fires its event, once.
SWITCH_DECLARE(switch_status_t)
switch_channel_perform_mark_answered(switch_channel_t* channel, const char* file, const char* func, int line);
#define switch_channel_mark_answered(channel) \
  switch_channel_perform_mark_answered(channel, __FILE__, __SWITCH_FUNC__, __LINE__)
SWITCH_DECLARE(switch_status_t)
switch_channel_perform_mark_pre_answered(switch_channel_t* channel, const char* file, const char* func, int line);
#define switch_channel_mark_pre_answered(channel) \
  switch_channel_perform_mark_pre_answered(channel, __FILE__, __SWITCH_FUNC__, __LINE__)
SWITCH_DECLARE(switch_status_t)
switch_channel_perform_mark_ring_ready_value(switch_channel_t* channel, switch_ring_ready_t rv, const char* file,
                                             const char* func, int line);
#define switch_channel_mark_ring_ready(channel) \
  switch_channel_perform_mark_ring_ready_value(channel, SWITCH_RING_READY_RINGING, __FILE__, __SWITCH_FUNC__, __LINE__)

SWITCH_DECLARE(uint32_t) switch_channel_test_flag(switch_channel_t* channel, switch_channel_flag_t flag);
SWITCH_DECLARE(void)
switch_channel_set_flag_value(switch_channel_t* channel, switch_channel_flag_t flag, uint32_t value);
#define switch_channel_set_flag(_c, _f) switch_channel_set_flag_value(_c, _f, 1)
SWITCH_DECLARE(void) switch_channel_clear_flag(switch_channel_t* channel, switch_channel_flag_t flag);

SWITCH_END_EXTERN_C
