#include <pthread.h>

#include <switch.h>

#include "core/pool.h"
#include "core/read_write_lock.h"

using kvx_switch::DeleteInPool;
using kvx_switch::NewInPool;

struct switch_mutex {
  switch_mutex(switch_memory_pool_t* owner, unsigned int flags) : pool(owner) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes,
                              flags & SWITCH_MUTEX_NESTED ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_NORMAL);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
  }
  ~switch_mutex() { pthread_mutex_destroy(&mutex); }

  switch_memory_pool_t* const pool;
  pthread_mutex_t mutex;
};

struct switch_thread_cond {
  explicit switch_thread_cond(switch_memory_pool_t* owner) : pool(owner) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&cond, &attributes);
    pthread_condattr_destroy(&attributes);
  }
  ~switch_thread_cond() { pthread_cond_destroy(&cond); }

  switch_memory_pool_t* const pool;
  pthread_cond_t cond;
};

struct switch_thread_rwlock {
  explicit switch_thread_rwlock(switch_memory_pool_t* owner) : pool(owner) {}

  switch_memory_pool_t* const pool;
  kvx_switch::ReadWriteLock lock;
};

namespace {

switch_status_t success_if(bool good) {
  return good ? SWITCH_STATUS_SUCCESS : SWITCH_STATUS_FALSE;
}

}  // namespace

switch_status_t switch_mutex_init(switch_mutex_t** lock, unsigned int flags, switch_memory_pool_t* pool) {
  *lock = NewInPool<switch_mutex>(pool, pool, flags);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_mutex_lock(switch_mutex_t* lock) {
  return success_if(pthread_mutex_lock(&lock->mutex) == 0);
}

switch_status_t switch_mutex_trylock(switch_mutex_t* lock) {
  return success_if(pthread_mutex_trylock(&lock->mutex) == 0);
}

switch_status_t switch_mutex_unlock(switch_mutex_t* lock) {
  return success_if(pthread_mutex_unlock(&lock->mutex) == 0);
}

switch_status_t switch_mutex_destroy(switch_mutex_t* lock) {
  DeleteInPool(lock->pool, lock);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_thread_rwlock_create(switch_thread_rwlock_t** rwlock, switch_memory_pool_t* pool) {
  *rwlock = NewInPool<switch_thread_rwlock>(pool, pool);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_thread_rwlock_rdlock(switch_thread_rwlock_t* rwlock) {
  rwlock->lock.LockRead();
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_thread_rwlock_wrlock(switch_thread_rwlock_t* rwlock) {
  rwlock->lock.LockWrite();
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_thread_rwlock_tryrdlock(switch_thread_rwlock_t* rwlock) {
  return success_if(rwlock->lock.TryLockRead());
}

switch_status_t switch_thread_rwlock_trywrlock(switch_thread_rwlock_t* rwlock) {
  return success_if(rwlock->lock.TryLockWrite());
}

switch_status_t switch_thread_rwlock_unlock(switch_thread_rwlock_t* rwlock) {
  return success_if(rwlock->lock.Unlock());
}

switch_status_t switch_thread_rwlock_destroy(switch_thread_rwlock_t* rwlock) {
  DeleteInPool(rwlock->pool, rwlock);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_thread_cond_create(switch_thread_cond_t** cond, switch_memory_pool_t* pool) {
  *cond = NewInPool<switch_thread_cond>(pool, pool);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_thread_cond_wait(switch_thread_cond_t* cond, switch_mutex_t* mutex) {
  return success_if(pthread_cond_wait(&cond->cond, &mutex->mutex) == 0);
}

switch_status_t switch_thread_cond_timedwait(switch_thread_cond_t* cond, switch_mutex_t* mutex,
                                             switch_interval_time_t timeout) {
  constexpr int64_t kNanosecondsPerSecond = 1000000000;
  timespec until;
  clock_gettime(CLOCK_MONOTONIC, &until);
  if (timeout < 0) timeout = 0;
  const int64_t nanoseconds = until.tv_nsec + (timeout % 1000000) * 1000;
  until.tv_sec += timeout / 1000000 + nanoseconds / kNanosecondsPerSecond;
  until.tv_nsec = nanoseconds % kNanosecondsPerSecond;
  const int result = pthread_cond_timedwait(&cond->cond, &mutex->mutex, &until);
  return result == ETIMEDOUT ? SWITCH_STATUS_TIMEOUT : success_if(result == 0);
}

switch_status_t switch_thread_cond_signal(switch_thread_cond_t* cond) {
  return success_if(pthread_cond_signal(&cond->cond) == 0);
}

switch_status_t switch_thread_cond_broadcast(switch_thread_cond_t* cond) {
  return success_if(pthread_cond_broadcast(&cond->cond) == 0);
}

switch_status_t switch_thread_cond_destroy(switch_thread_cond_t* cond) {
  DeleteInPool(cond->pool, cond);
  return SWITCH_STATUS_SUCCESS;
}
