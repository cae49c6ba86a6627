#include "payload_store.h"

#include <algorithm>
#include <numeric>

namespace media_engine {

PayloadStore::PayloadStore(std::size_t blocks) : octets_(blocks * kBlock), next_(blocks) {
  Clear();
}

void PayloadStore::Clear() {
  std::iota(next_.begin(), next_.end(), Key{1});
  free_ = 0;
  free_count_ = next_.size();
}

bool PayloadStore::Put(const uint8_t* payload, std::size_t length, Key& key) {
  const std::size_t needed = BlocksFor(length);
  if (needed > free_count_) return false;
  free_count_ -= needed;
  key = free_;
  for (std::size_t at = 0, block = 0; block < needed; ++block, at += kBlock) {
    std::copy_n(payload + at, std::min(kBlock, length - at), &octets_[free_ * kBlock]);
    free_ = next_[free_];
  }
  return true;
}

void PayloadStore::Take(Key key, std::size_t length, uint8_t* to) {
  const std::size_t used = BlocksFor(length);
  Key last = key;
  for (std::size_t at = 0, block = 0; block < used; ++block, at += kBlock) {
    if (block > 0) last = next_[last];
    std::copy_n(&octets_[last * kBlock], std::min(kBlock, length - at), to + at);
  }
  next_[last] = free_;
  free_ = key;
  free_count_ += used;
}

}  // namespace media_engine
