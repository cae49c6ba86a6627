#include <pthread.h>

#include <string>

#include <switch.h>

#include "core/guard.h"
#include "core/pool.h"

struct switch_threadattr {
  size_t stack_size = 0;  ///< bytes; 0: the system's own
};

struct switch_thread {
  ~switch_thread() {
    if (!started || joined) return;
    if (pthread_equal(pthread_self(), thread)) {
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "A thread destroys the pool that holds it\n");
      pthread_detach(thread);
      return;
    }
    pthread_join(thread, nullptr);
  }

  pthread_t thread{};
  switch_thread_start_t function = nullptr;
  void* data = nullptr;
  bool started = false;
  bool joined = false;
};

namespace {

void* run(void* object) {
  auto* thread = static_cast<switch_thread*>(object);
  std::string what;
  if (!kvx_switch::RunGuarded([&] { thread->function(thread, thread->data); }, what)) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_CRIT, "An exception left a thread: %s\n", what.c_str());
  }
  return nullptr;
}

}  // namespace

switch_status_t switch_threadattr_create(switch_threadattr_t** new_attr, switch_memory_pool_t* pool) {
  *new_attr = kvx_switch::NewInPool<switch_threadattr>(pool);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_threadattr_stacksize_set(switch_threadattr_t* attr, switch_size_t stacksize) {
  attr->stack_size = stacksize;
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_thread_create(switch_thread_t** new_thread, switch_threadattr_t* attr,
                                     switch_thread_start_t func, void* data, switch_memory_pool_t* pool) {
  auto* thread = kvx_switch::NewInPool<switch_thread>(pool);
  thread->function = func;
  thread->data = data;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  if (attr && attr->stack_size) pthread_attr_setstacksize(&attributes, attr->stack_size);
  // Before the thread runs, so that it finds itself in its own record.
  *new_thread = thread;
  const int result = pthread_create(&thread->thread, &attributes, run, thread);
  pthread_attr_destroy(&attributes);
  if (result != 0) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_CRIT, "Cannot start a thread: %s\n", strerror(result));
    *new_thread = nullptr;
    return SWITCH_STATUS_GENERR;
  }
  thread->started = true;
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_thread_join(switch_status_t* retval, switch_thread_t* thread) {
  if (!thread->started || thread->joined || pthread_equal(pthread_self(), thread->thread)) return SWITCH_STATUS_FALSE;
  pthread_join(thread->thread, nullptr);
  thread->joined = true;
  if (retval) *retval = SWITCH_STATUS_SUCCESS;
  return SWITCH_STATUS_SUCCESS;
}
