#include "core/pool.h"

#include <mutex>
#include <new>
#include <vector>

// Every allocation is a block of its own, so that tools that watch the heap see one that is overrun.
struct switch_memory_pool {
  struct Cleanup {
    void (*function)(void*);
    void* data;
  };
  std::mutex mutex;
  std::vector<void*> blocks;      // guarded by mutex
  std::vector<Cleanup> cleanups;  // guarded by mutex
};

namespace kvx_switch {

void AddPoolCleanup(switch_memory_pool_t* pool, void (*cleanup)(void*), void* data) {
  std::lock_guard<std::mutex> lock(pool->mutex);
  pool->cleanups.push_back({cleanup, data});
}

bool RemovePoolCleanup(switch_memory_pool_t* pool, void* data) {
  std::lock_guard<std::mutex> lock(pool->mutex);
  for (auto it = pool->cleanups.begin(); it != pool->cleanups.end(); ++it) {
    if (it->data == data) {
      pool->cleanups.erase(it);
      return true;
    }
  }
  return false;
}

}  // namespace kvx_switch

switch_status_t switch_core_perform_new_memory_pool(switch_memory_pool_t** pool, const char*, const char*, int) {
  *pool = new (std::nothrow) switch_memory_pool;
  return *pool ? SWITCH_STATUS_SUCCESS : SWITCH_STATUS_MEMERR;
}

switch_status_t switch_core_perform_destroy_memory_pool(switch_memory_pool_t** pool, const char*, const char*, int) {
  if (!pool || !*pool) return SWITCH_STATUS_FALSE;
  switch_memory_pool_t* doomed = *pool;
  *pool = nullptr;
  for (;;) {
    switch_memory_pool::Cleanup cleanup;
    {
      std::lock_guard<std::mutex> lock(doomed->mutex);
      if (doomed->cleanups.empty()) break;
      cleanup = doomed->cleanups.back();
      doomed->cleanups.pop_back();
    }
    cleanup.function(cleanup.data);
  }
  for (void* block : doomed->blocks) free(block);
  delete doomed;
  return SWITCH_STATUS_SUCCESS;
}

void* switch_core_perform_alloc(switch_memory_pool_t* pool, switch_size_t memory, const char*, const char*, int) {
  switch_assert(pool != nullptr);
  void* block = calloc(1, memory ? memory : 1);
  switch_assert(block != nullptr);
  std::lock_guard<std::mutex> lock(pool->mutex);
  pool->blocks.push_back(block);
  return block;
}

char* switch_core_perform_strdup(switch_memory_pool_t* pool, const char* todup, const char* file, const char* func,
                                 int line) {
  if (!todup) return nullptr;
  const size_t size = strlen(todup) + 1;
  return static_cast<char*>(memcpy(switch_core_perform_alloc(pool, size, file, func, line), todup, size));
}

char* switch_core_vsprintf(switch_memory_pool_t* pool, const char* fmt, va_list ap) {
  va_list again;
  va_copy(again, ap);
  const int length = vsnprintf(nullptr, 0, fmt, again);
  va_end(again);
  if (length < 0) return nullptr;
  const size_t size = static_cast<size_t>(length) + 1;
  char* text = static_cast<char*>(switch_core_alloc(pool, size));
  vsnprintf(text, size, fmt, ap);
  return text;
}

char* switch_core_sprintf(switch_memory_pool_t* pool, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  char* text = switch_core_vsprintf(pool, fmt, ap);
  va_end(ap);
  return text;
}
