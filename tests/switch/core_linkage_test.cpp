// The headers promise nothing that the library does not have.

#include "build_paths.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include <switch.h>

namespace {

std::string text_of(const std::filesystem::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The name in front of the parameters of "SWITCH_DECLARE(type) name(...)"; `at` is behind SWITCH_DECLARE.
std::string declared_name(const std::string& text, size_t at) {
  const size_t type_end = text.find(')', at);
  const size_t begin = text.find_first_not_of(" \n", type_end + 1);
  const size_t end = text.find('(', begin);
  return end == std::string::npos ? "" : text.substr(begin, end - begin);
}

/// Names of the functions that the public headers declare.
std::set<std::string> declared_functions() {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(KVX_SOURCE_DIR "/platform/switch/include")) {
    const std::string text = text_of(entry.path());
    for (size_t at = 0; (at = text.find("SWITCH_DECLARE", at)) != std::string::npos; ++at) {
      const std::string name = declared_name(text, at);
      if (name.compare(0, 7, "switch_") == 0 && name.find_first_of(" \n") == std::string::npos) names.insert(name);
    }
  }
  return names;
}

TEST(Headers, EveryDeclaredFunctionIsDefined) {
  ASSERT_NE(switch_core_get_uuid(), nullptr);  // keeps the library linked
  const std::set<std::string> declared = declared_functions();
  EXPECT_GT(declared.size(), 150u) << "the pattern finds the declarations";
  EXPECT_THAT(declared, testing::IsSupersetOf({"switch_log_printf", "switch_xml_open_cfg", "switch_mprintf",
                                               "switch_core_session_get_media_connection"}));
  for (const std::string& name : declared) {
    EXPECT_NE(dlsym(RTLD_DEFAULT, name.c_str()), nullptr) << name;
  }
}

}  // namespace
