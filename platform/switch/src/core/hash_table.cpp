#include <algorithm>
#include <string>
#include <unordered_map>

#include <switch.h>

struct switch_hashtable {
  struct Entry {
    void* data;
    hashtable_destructor_t destructor;
  };
  explicit switch_hashtable(bool sensitive) : case_sensitive(sensitive) {}

  std::string Key(const char* key) const {
    std::string text(key);
    if (!case_sensitive) {
      std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return tolower(c); });
    }
    return text;
  }

  const bool case_sensitive;
  std::unordered_map<std::string, Entry> entries;
};

namespace {

void destroy_value(const switch_hashtable::Entry& entry) {
  if (entry.destructor) entry.destructor(entry.data);
}

}  // namespace

switch_status_t switch_core_hash_init_case(switch_hash_t** hash, switch_bool_t case_sensitive) {
  *hash = new switch_hashtable(case_sensitive == SWITCH_TRUE);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_core_hash_destroy(switch_hash_t** hash) {
  if (!hash || !*hash) return SWITCH_STATUS_FALSE;
  for (const auto& item : (*hash)->entries) destroy_value(item.second);
  delete *hash;
  *hash = nullptr;
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_core_hash_insert_destructor(switch_hash_t* hash, const char* key, const void* data,
                                                   hashtable_destructor_t destructor) {
  if (!key) return SWITCH_STATUS_FALSE;
  const switch_hashtable::Entry entry{const_cast<void*>(data), destructor};
  const auto [at, inserted] = hash->entries.emplace(hash->Key(key), entry);
  if (!inserted) {
    const switch_hashtable::Entry replaced = at->second;
    at->second = entry;
    if (replaced.data != data) destroy_value(replaced);
  }
  return SWITCH_STATUS_SUCCESS;
}

void* switch_core_hash_find(switch_hash_t* hash, const char* key) {
  if (!key) return nullptr;
  const auto found = hash->entries.find(hash->Key(key));
  return found == hash->entries.end() ? nullptr : found->second.data;
}

void* switch_core_hash_delete(switch_hash_t* hash, const char* key) {
  if (!key) return nullptr;
  const auto found = hash->entries.find(hash->Key(key));
  if (found == hash->entries.end()) return nullptr;
  void* data = found->second.data;
  hash->entries.erase(found);
  return data;
}
