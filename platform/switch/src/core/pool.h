#pragma once

#include <utility>

#include <switch.h>

namespace kvx_switch {

/// Has `cleanup(data)` called when the pool is destroyed, before any memory is freed; last added first.
void AddPoolCleanup(switch_memory_pool_t* pool, void (*cleanup)(void*), void* data);
/// Takes back what AddPoolCleanup added for `data`; false when there is none.
bool RemovePoolCleanup(switch_memory_pool_t* pool, void* data);

/// An object that ends with the pool at the latest.
template <typename T, typename... Args>
T* NewInPool(switch_memory_pool_t* pool, Args&&... args) {
  T* object = new T(std::forward<Args>(args)...);
  AddPoolCleanup(
      pool, [](void* data) { delete static_cast<T*>(data); }, object);
  return object;
}

/// Ends an object of NewInPool before its pool goes.
template <typename T>
void DeleteInPool(switch_memory_pool_t* pool, T* object) {
  if (RemovePoolCleanup(pool, object)) delete object;
}

}  // namespace kvx_switch
