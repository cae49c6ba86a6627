#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include <switch.h>

#include "core/pool.h"

namespace {

class MemoryPool : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(switch_core_new_memory_pool(&pool_), SWITCH_STATUS_SUCCESS); }
  void TearDown() override {
    if (pool_) switch_core_destroy_memory_pool(&pool_);
  }
  switch_memory_pool_t* pool_ = nullptr;
};

TEST_F(MemoryPool, GivesZeroedAlignedMemoryOfAnySize) {
  for (const switch_size_t size : {0, 1, 7, 8192, 100000}) {
    auto* bytes = static_cast<unsigned char*>(switch_core_alloc(pool_, size));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(bytes) % alignof(std::max_align_t), 0u);
    for (switch_size_t i = 0; i < size; ++i) ASSERT_EQ(bytes[i], 0);
    memset(bytes, 0xAA, size);
  }
}

TEST_F(MemoryPool, CopiesAndFormatsText) {
  const std::string original = "text";
  char* copy = switch_core_strdup(pool_, original.c_str());
  EXPECT_STREQ(copy, "text");
  EXPECT_NE(copy, original.c_str());
  EXPECT_EQ(switch_core_strdup(pool_, nullptr), nullptr);
  EXPECT_STREQ(switch_core_sprintf(pool_, "%s-%d", "leg", 7), "leg-7");
  EXPECT_EQ(std::string(switch_core_sprintf(pool_, "%01000d", 1)).size(), 1000u);
}

TEST_F(MemoryPool, DestroyNullsThePointerAndRefusesNone) {
  EXPECT_EQ(switch_core_destroy_memory_pool(&pool_), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(pool_, nullptr);
  EXPECT_EQ(switch_core_destroy_memory_pool(&pool_), SWITCH_STATUS_FALSE);
}

TEST_F(MemoryPool, EndsItsObjectsLastMadeFirst) {
  std::vector<int> order;
  struct Noted {
    Noted(std::vector<int>& where, int what) : order(where), number(what) {}
    ~Noted() { order.push_back(number); }
    std::vector<int>& order;
    int number;
  };
  kvx_switch::NewInPool<Noted>(pool_, order, 1);
  auto* second = kvx_switch::NewInPool<Noted>(pool_, order, 2);
  kvx_switch::NewInPool<Noted>(pool_, order, 3);
  kvx_switch::DeleteInPool(pool_, second);
  EXPECT_EQ(order, std::vector<int>({2}));
  switch_core_destroy_memory_pool(&pool_);
  EXPECT_EQ(order, std::vector<int>({2, 3, 1}));
}

TEST_F(MemoryPool, ServesSeveralThreads) {
  constexpr int kEach = 1000;
  std::vector<std::thread> threads;
  std::vector<std::vector<char*>> texts(4);
  for (size_t t = 0; t < texts.size(); ++t) {
    threads.emplace_back([this, t, &texts] {
      for (int i = 0; i < kEach; ++i) texts[t].push_back(switch_core_sprintf(pool_, "%zu/%d", t, i));
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (size_t t = 0; t < texts.size(); ++t) {
    for (int i = 0; i < kEach; ++i) {
      ASSERT_EQ(texts[t][static_cast<size_t>(i)], std::to_string(t) + "/" + std::to_string(i));
    }
  }
}

TEST_F(MemoryPool, JoinsThreadsThatNobodyJoined) {
  static std::atomic<bool> finished;
  finished = false;
  switch_thread_t* thread = nullptr;
  const auto body = [](switch_thread_t*, void*) -> void* {
    switch_sleep(20000);
    finished = true;
    return nullptr;
  };
  ASSERT_EQ(switch_thread_create(&thread, nullptr, body, nullptr, pool_), SWITCH_STATUS_SUCCESS);
  switch_core_destroy_memory_pool(&pool_);
  EXPECT_TRUE(finished);
}

class HashTable : public testing::Test {
 protected:
  void TearDown() override { switch_core_hash_destroy(&hash_); }
  switch_hash_t* hash_ = nullptr;
};

TEST_F(HashTable, FindsByExactKey) {
  int one = 1, two = 2;
  switch_core_hash_init(&hash_);
  switch_core_hash_insert(hash_, "key", &one);
  switch_core_hash_insert(hash_, "KEY", &two);
  EXPECT_EQ(switch_core_hash_find(hash_, "key"), &one);
  EXPECT_EQ(switch_core_hash_find(hash_, "KEY"), &two);
  EXPECT_EQ(switch_core_hash_find(hash_, "Key"), nullptr);
  EXPECT_EQ(switch_core_hash_delete(hash_, "key"), &one);
  EXPECT_EQ(switch_core_hash_find(hash_, "key"), nullptr);
  EXPECT_EQ(switch_core_hash_delete(hash_, "key"), nullptr);
}

TEST_F(HashTable, FindsInAnyCaseWhenAskedTo) {
  int one = 1;
  switch_core_hash_init_case(&hash_, SWITCH_FALSE);
  switch_core_hash_insert(hash_, "Key", &one);
  EXPECT_EQ(switch_core_hash_find(hash_, "kEY"), &one);
}

TEST_F(HashTable, DestroysValuesThatAreReplacedOrLeft) {
  static std::vector<int> destroyed;
  destroyed.clear();
  const auto destroy = [](void* value) { destroyed.push_back(*static_cast<int*>(value)); };
  int one = 1, two = 2, three = 3;
  switch_core_hash_init(&hash_);
  switch_core_hash_insert_destructor(hash_, "a", &one, destroy);
  switch_core_hash_insert_destructor(hash_, "a", &two, destroy);
  EXPECT_EQ(destroyed, std::vector<int>({1}));
  switch_core_hash_insert_destructor(hash_, "b", &three, destroy);
  switch_core_hash_delete(hash_, "a");
  EXPECT_EQ(destroyed, std::vector<int>({1}));
  switch_core_hash_destroy(&hash_);
  EXPECT_EQ(hash_, nullptr);
  EXPECT_EQ(destroyed, std::vector<int>({1, 3}));
}

}  // namespace
