#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <switch.h>

namespace {

class Locks : public testing::Test {
 protected:
  void SetUp() override { switch_core_new_memory_pool(&pool_); }
  void TearDown() override { switch_core_destroy_memory_pool(&pool_); }
  switch_memory_pool_t* pool_ = nullptr;
};

/// The result of a call on another thread.
template <typename Call>
auto elsewhere(Call call) {
  decltype(call()) result{};
  std::thread([&] { result = call(); }).join();
  return result;
}

TEST_F(Locks, NestedMutexMayBeTakenTwiceByOneThread) {
  switch_mutex_t* mutex = nullptr;
  ASSERT_EQ(switch_mutex_init(&mutex, SWITCH_MUTEX_NESTED, pool_), SWITCH_STATUS_SUCCESS);
  switch_mutex_lock(mutex);
  EXPECT_EQ(switch_mutex_trylock(mutex), SWITCH_STATUS_SUCCESS);
  switch_mutex_unlock(mutex);
  EXPECT_EQ(elsewhere([&] { return switch_mutex_trylock(mutex); }), SWITCH_STATUS_FALSE);
  switch_mutex_unlock(mutex);
  EXPECT_EQ(elsewhere([&] {
              const switch_status_t status = switch_mutex_trylock(mutex);
              switch_mutex_unlock(mutex);
              return status;
            }),
            SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_mutex_destroy(mutex), SWITCH_STATUS_SUCCESS);
}

TEST_F(Locks, PlainMutexIsTakenOnce) {
  switch_mutex_t* mutex = nullptr;
  switch_mutex_init(&mutex, SWITCH_MUTEX_UNNESTED, pool_);
  switch_mutex_lock(mutex);
  EXPECT_EQ(switch_mutex_trylock(mutex), SWITCH_STATUS_FALSE);
  switch_mutex_unlock(mutex);
}

TEST_F(Locks, ReadersShareAndKeepTheWriterOut) {
  switch_thread_rwlock_t* lock = nullptr;
  switch_thread_rwlock_create(&lock, pool_);
  EXPECT_EQ(switch_thread_rwlock_rdlock(lock), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(elsewhere([&] { return switch_thread_rwlock_tryrdlock(lock); }), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_thread_rwlock_trywrlock(lock), SWITCH_STATUS_FALSE);
  switch_thread_rwlock_unlock(lock);
  EXPECT_EQ(switch_thread_rwlock_trywrlock(lock), SWITCH_STATUS_FALSE);
  switch_thread_rwlock_unlock(lock);
  EXPECT_EQ(switch_thread_rwlock_trywrlock(lock), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(switch_thread_rwlock_tryrdlock(lock), SWITCH_STATUS_FALSE);
  switch_thread_rwlock_unlock(lock);
  EXPECT_EQ(switch_thread_rwlock_unlock(lock), SWITCH_STATUS_FALSE);
}

TEST_F(Locks, AnotherThreadMayGiveAReadLockBack) {
  switch_thread_rwlock_t* lock = nullptr;
  switch_thread_rwlock_create(&lock, pool_);
  switch_thread_rwlock_rdlock(lock);
  std::atomic<bool> written{false};
  std::thread writer([&] {
    switch_thread_rwlock_wrlock(lock);
    written = true;
    switch_thread_rwlock_unlock(lock);
  });
  EXPECT_FALSE(written);
  EXPECT_EQ(elsewhere([&] { return switch_thread_rwlock_unlock(lock); }), SWITCH_STATUS_SUCCESS);
  writer.join();
  EXPECT_TRUE(written);
}

TEST_F(Locks, ConditionWakesAWaiter) {
  switch_mutex_t* mutex = nullptr;
  switch_thread_cond_t* condition = nullptr;
  switch_mutex_init(&mutex, SWITCH_MUTEX_DEFAULT, pool_);
  switch_thread_cond_create(&condition, pool_);
  bool ready = false;
  std::thread waker([&] {
    switch_mutex_lock(mutex);
    ready = true;
    switch_thread_cond_signal(condition);
    switch_mutex_unlock(mutex);
  });
  switch_mutex_lock(mutex);
  while (!ready) EXPECT_EQ(switch_thread_cond_wait(condition, mutex), SWITCH_STATUS_SUCCESS);
  switch_mutex_unlock(mutex);
  waker.join();
}

TEST_F(Locks, ConditionGivesUpAfterItsTime) {
  switch_mutex_t* mutex = nullptr;
  switch_thread_cond_t* condition = nullptr;
  switch_mutex_init(&mutex, SWITCH_MUTEX_DEFAULT, pool_);
  switch_thread_cond_create(&condition, pool_);
  switch_mutex_lock(mutex);
  EXPECT_EQ(switch_thread_cond_timedwait(condition, mutex, 1000), SWITCH_STATUS_TIMEOUT);
  switch_mutex_unlock(mutex);
}

TEST_F(Locks, ThreadRunsItsBodyAndIsJoinedOnce) {
  int value = 0;
  switch_thread_t* thread = nullptr;
  switch_threadattr_t* attributes = nullptr;
  switch_threadattr_create(&attributes, pool_);
  switch_threadattr_stacksize_set(attributes, 256 * 1024);
  const auto body = [](switch_thread_t*, void* data) -> void* {
    *static_cast<int*>(data) = 42;
    return nullptr;
  };
  ASSERT_EQ(switch_thread_create(&thread, attributes, body, &value, pool_), SWITCH_STATUS_SUCCESS);
  switch_status_t result = SWITCH_STATUS_FALSE;
  EXPECT_EQ(switch_thread_join(&result, thread), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(result, SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(value, 42);
  EXPECT_EQ(switch_thread_join(&result, thread), SWITCH_STATUS_FALSE);
}

}  // namespace
