#pragma once

#include <atomic>
#include <memory>

#include <switch.h>

#include <switch_media_server.h>

#include "core/channel_record.h"
#include "core/read_write_lock.h"
#include "core/session.h"
#include "core/task_queue.h"

/// A leg. It lies outside its own pool, so that the pool can go first.
struct switch_core_session {
  switch_core_session(uint64_t number, switch_memory_pool_t* own_pool, switch_call_direction_t direction)
      : id(number), pool(own_pool), channel(this, direction) {}

  const uint64_t id;  ///< counts legs, in the order of their making
  switch_memory_pool_t* pool;
  std::atomic<char*> uuid{nullptr};  // in the pool
  switch_channel channel;
  kvx_switch::ReadWriteLock lock;
  kvx_switch::TaskQueue tasks;
  std::atomic<bool> started{false};
  std::atomic<bool> running{false};
  switch_media_connection_t media_connection{};
  std::atomic<switch_codec_t*> read_codec{nullptr};
  std::atomic<switch_codec_t*> write_codec{nullptr};
  std::atomic<void*> private_slots[2] = {};
};
