// What becomes of the library's code when the module that uses it is unloaded.
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include "kelvaro/jsr309/media_config.h"

namespace {

/// The flags of the shared object that the address lies in.
ElfW(Xword) FlagsOf(void* address) {
  Dl_info info{};
  link_map* map = nullptr;
  if (dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0) return 0;
  for (const ElfW(Dyn)* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_FLAGS_1) return entry->d_un.d_val;
  }
  return 0;
}

TEST(Unloading, LeavesTheLibraryToWorkersThatWereStuckAtTheStop) {
  using Setter = void (kelvaro::jsr309::MediaConfig::*)(const char*);
  const Setter setter = &kelvaro::jsr309::MediaConfig::SetIPAddress;
  void* code = nullptr;
  static_assert(sizeof(setter) >= sizeof(code));
  __builtin_memcpy(&code, &setter, sizeof(code));
  EXPECT_TRUE(FlagsOf(code) & DF_1_NODELETE);
}

}  // namespace
