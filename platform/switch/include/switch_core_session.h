#pragma once

/// Sessions: one per leg, each with a thread of its own. A session found by its uuid comes with a read lock that keeps
/// it alive; whoever located it gives the lock back, on any thread. A leg on its own thread needs no lock for itself.

#include "switch_apr.h"
#include "switch_types.h"

SWITCH_BEGIN_EXTERN_C

/// Null for a null or unknown uuid and for legs in CS_HANGUP or later.
SWITCH_DECLARE(switch_core_session_t*)
switch_core_session_perform_locate(const char* uuid_str, const char* file, const char* func, int line);
#define switch_core_session_locate(uuid_str) \
  switch_core_session_perform_locate(uuid_str, __FILE__, __SWITCH_FUNC__, __LINE__)
/// Also finds legs that are hanging up, until they are unregistered.
SWITCH_DECLARE(switch_core_session_t*)
switch_core_session_perform_force_locate(const char* uuid_str, const char* file, const char* func, int line);
#define switch_core_session_force_locate(uuid_str) \
  switch_core_session_perform_force_locate(uuid_str, __FILE__, __SWITCH_FUNC__, __LINE__)

/// FALSE for a leg that is hanging up; the second takes the lock even then.
SWITCH_DECLARE(switch_status_t) switch_core_session_read_lock(switch_core_session_t* session);
SWITCH_DECLARE(switch_status_t) switch_core_session_read_lock_hangup(switch_core_session_t* session);
SWITCH_DECLARE(void) switch_core_session_rwunlock(switch_core_session_t* session);

/// The leg named by "signal_bond", else "originate_signal_bond", read-locked; FALSE and null when there is none.
SWITCH_DECLARE(switch_status_t)
switch_core_session_perform_get_partner(switch_core_session_t* session, switch_core_session_t** partner,
                                        const char* file, const char* func, int line);
#define switch_core_session_get_partner(_session, _partner) \
  switch_core_session_perform_get_partner(_session, _partner, __FILE__, __SWITCH_FUNC__, __LINE__)

SWITCH_DECLARE(switch_channel_t*) switch_core_session_get_channel(switch_core_session_t* session);
/// Lives with the session; whoever holds the text of a leg that is renamed keeps the old one.
SWITCH_DECLARE(char*) switch_core_session_get_uuid(switch_core_session_t* session);
SWITCH_DECLARE(switch_memory_pool_t*) switch_core_session_get_pool(switch_core_session_t* session);

SWITCH_DECLARE(void*)
switch_core_perform_session_alloc(switch_core_session_t* session, switch_size_t memory, const char* file,
                                  const char* func, int line);
#define switch_core_session_alloc(_session, _memory) \
  switch_core_perform_session_alloc(_session, _memory, __FILE__, __SWITCH_FUNC__, __LINE__)
SWITCH_DECLARE(char*)
switch_core_perform_session_strdup(switch_core_session_t* session, const char* todup, const char* file,
                                   const char* func, int line);
#define switch_core_session_strdup(_session, _todup) \
  switch_core_perform_session_strdup(_session, _todup, __FILE__, __SWITCH_FUNC__, __LINE__)
SWITCH_DECLARE_NONSTD(char*)
switch_core_session_sprintf(switch_core_session_t* session, const char* fmt, ...) PRINTF_FUNCTION(2, 3);

/// A session without a thread yet; no lock held. Takes over `*pool` and nulls it. Null when the switch is full,
/// paused or shutting down, or the uuid is in use; then the pool stays the caller's.
SWITCH_DECLARE(switch_core_session_t*)
switch_core_session_request_uuid(switch_endpoint_interface_t* endpoint_interface, switch_call_direction_t direction,
                                 switch_originate_flag_t originate_flags, switch_memory_pool_t** pool,
                                 const char* use_uuid);
#define switch_core_session_request(_ep, _d, _f, _p) switch_core_session_request_uuid(_ep, _d, _f, _p, NULL)
/// For a session whose thread was never launched; waits for its readers.
SWITCH_DECLARE(void)
switch_core_session_perform_destroy(switch_core_session_t** session, const char* file, const char* func, int line);
#define switch_core_session_destroy(session) \
  switch_core_session_perform_destroy(session, __FILE__, __SWITCH_FUNC__, __LINE__)
/// Starts the leg's thread, once; the core destroys the session when the leg is over. A leg that no signalling drives
/// does nothing until it is hung up.
SWITCH_DECLARE(switch_status_t) switch_core_session_thread_launch(switch_core_session_t* session);
SWITCH_DECLARE(unsigned int) switch_core_session_running(switch_core_session_t* session);
SWITCH_DECLARE(unsigned int) switch_core_session_started(switch_core_session_t* session);
SWITCH_DECLARE(switch_status_t) switch_core_session_wake_session_thread(switch_core_session_t* session);

/// FALSE when another leg has that uuid or it does not fit.
SWITCH_DECLARE(switch_status_t)
switch_core_session_set_uuid(switch_core_session_t* session, const char* use_uuid);

SWITCH_DECLARE(uint32_t) switch_core_session_count(void);
/// Hangs up every leg there is; new ones are still taken.
SWITCH_DECLARE(void) switch_core_session_hupall(switch_call_cause_t cause);

SWITCH_DECLARE(switch_status_t)
switch_core_session_set_private_class(switch_core_session_t* session, void* private_info, switch_pvt_class_t index);
SWITCH_DECLARE(void*)
switch_core_session_get_private_class(switch_core_session_t* session, switch_pvt_class_t index);
#define switch_core_session_set_private(_s, _p) switch_core_session_set_private_class(_s, _p, SWITCH_PVT_PRIMARY)
#define switch_core_session_get_private(_s) switch_core_session_get_private_class(_s, SWITCH_PVT_PRIMARY)

/// The session keeps the pointer, not a copy.
SWITCH_DECLARE(switch_status_t)
switch_core_session_set_read_codec(switch_core_session_t* session, switch_codec_t* codec);
SWITCH_DECLARE(switch_codec_t*) switch_core_session_get_read_codec(switch_core_session_t* session);
SWITCH_DECLARE(switch_status_t)
switch_core_session_set_write_codec(switch_core_session_t* session, switch_codec_t* codec);
SWITCH_DECLARE(switch_codec_t*) switch_core_session_get_write_codec(switch_core_session_t* session);

SWITCH_END_EXTERN_C
