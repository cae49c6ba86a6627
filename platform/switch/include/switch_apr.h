#pragma once

/// Locks, conditions, threads, time and uuids as the switch API hands them out. All objects come from a memory pool
/// and end with it at the latest. Every wait and interval is in microseconds.

#include "switch_types.h"

SWITCH_BEGIN_EXTERN_C

typedef struct switch_mutex switch_mutex_t;
typedef struct switch_thread_rwlock switch_thread_rwlock_t;
typedef struct switch_thread_cond switch_thread_cond_t;
typedef struct switch_thread switch_thread_t;
typedef struct switch_threadattr switch_threadattr_t;
typedef void* (*switch_thread_start_t)(switch_thread_t*, void*);

typedef struct {
  unsigned char data[16];  ///< in network order, as printed
} switch_uuid_t;

/// A point in time taken apart; ranges as in struct tm, tm_usec 0 to 999999, tm_gmtoff in seconds east of UTC.
typedef struct {
  int32_t tm_usec;
  int32_t tm_sec;
  int32_t tm_min;
  int32_t tm_hour;
  int32_t tm_mday;
  int32_t tm_mon;
  int32_t tm_year;
  int32_t tm_wday;
  int32_t tm_yday;
  int32_t tm_isdst;
  int32_t tm_gmtoff;
} switch_time_exp_t;

#define SWITCH_MUTEX_DEFAULT 0x0
#define SWITCH_MUTEX_NESTED 0x1
#define SWITCH_MUTEX_UNNESTED 0x2

SWITCH_DECLARE(switch_status_t)
switch_mutex_init(switch_mutex_t** lock, unsigned int flags, switch_memory_pool_t* pool);
SWITCH_DECLARE(switch_status_t) switch_mutex_lock(switch_mutex_t* lock);
SWITCH_DECLARE(switch_status_t) switch_mutex_trylock(switch_mutex_t* lock);
SWITCH_DECLARE(switch_status_t) switch_mutex_unlock(switch_mutex_t* lock);
SWITCH_DECLARE(switch_status_t) switch_mutex_destroy(switch_mutex_t* lock);

/// Readers come first: a thread that holds a read lock may take another one while a writer waits. Either kind of lock
/// may be given back by another thread than the one that took it.
SWITCH_DECLARE(switch_status_t)
switch_thread_rwlock_create(switch_thread_rwlock_t** rwlock, switch_memory_pool_t* pool);
SWITCH_DECLARE(switch_status_t) switch_thread_rwlock_rdlock(switch_thread_rwlock_t* rwlock);
SWITCH_DECLARE(switch_status_t) switch_thread_rwlock_wrlock(switch_thread_rwlock_t* rwlock);
SWITCH_DECLARE(switch_status_t) switch_thread_rwlock_tryrdlock(switch_thread_rwlock_t* rwlock);
SWITCH_DECLARE(switch_status_t) switch_thread_rwlock_trywrlock(switch_thread_rwlock_t* rwlock);
SWITCH_DECLARE(switch_status_t) switch_thread_rwlock_unlock(switch_thread_rwlock_t* rwlock);
SWITCH_DECLARE(switch_status_t) switch_thread_rwlock_destroy(switch_thread_rwlock_t* rwlock);

SWITCH_DECLARE(switch_status_t)
switch_thread_cond_create(switch_thread_cond_t** cond, switch_memory_pool_t* pool);
SWITCH_DECLARE(switch_status_t) switch_thread_cond_wait(switch_thread_cond_t* cond, switch_mutex_t* mutex);
SWITCH_DECLARE(switch_status_t)
switch_thread_cond_timedwait(switch_thread_cond_t* cond, switch_mutex_t* mutex, switch_interval_time_t timeout);
SWITCH_DECLARE(switch_status_t) switch_thread_cond_signal(switch_thread_cond_t* cond);
SWITCH_DECLARE(switch_status_t) switch_thread_cond_broadcast(switch_thread_cond_t* cond);
SWITCH_DECLARE(switch_status_t) switch_thread_cond_destroy(switch_thread_cond_t* cond);

/// A thread that nobody joins is joined when its pool goes: the switch has no detached threads.
SWITCH_DECLARE(switch_status_t)
switch_threadattr_create(switch_threadattr_t** new_attr, switch_memory_pool_t* pool);
SWITCH_DECLARE(switch_status_t) switch_threadattr_stacksize_set(switch_threadattr_t* attr, switch_size_t stacksize);
SWITCH_DECLARE(switch_status_t)
switch_thread_create(switch_thread_t** new_thread, switch_threadattr_t* attr, switch_thread_start_t func, void* data,
                     switch_memory_pool_t* pool);
SWITCH_DECLARE(switch_status_t) switch_thread_join(switch_status_t* retval, switch_thread_t* thread);

SWITCH_DECLARE(switch_time_t) switch_time_now(void);
SWITCH_DECLARE(void) switch_sleep(switch_interval_time_t t);
#define switch_yield(t) switch_sleep(t);
SWITCH_DECLARE(switch_status_t) switch_time_exp_lt(switch_time_exp_t* result, switch_time_t input);
SWITCH_DECLARE(switch_status_t) switch_time_exp_gmt(switch_time_exp_t* result, switch_time_t input);
/// `retsize` receives the length written; 0 when the text does not fit.
SWITCH_DECLARE(switch_status_t)
switch_strftime(char* s, switch_size_t* retsize, switch_size_t max, const char* format, switch_time_exp_t* tm);

/// Random uuids (RFC 4122 version 4). `buffer` holds 37 bytes at least.
SWITCH_DECLARE(void) switch_uuid_get(switch_uuid_t* uuid);
SWITCH_DECLARE(void) switch_uuid_format(char* buffer, const switch_uuid_t* uuid);
SWITCH_DECLARE(switch_status_t) switch_uuid_parse(switch_uuid_t* uuid, const char* uuid_str);

/// Copies at most `dst_size - 1` bytes and always terminates; returns the position of the terminator.
SWITCH_DECLARE(char*) switch_copy_string(char* dst, const char* src, switch_size_t dst_size);
SWITCH_DECLARE_NONSTD(int)
switch_snprintf(char* buf, switch_size_t len, const char* format, ...) PRINTF_FUNCTION(3, 4);

SWITCH_END_EXTERN_C
