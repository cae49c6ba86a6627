// The headers promise nothing that the library does not have.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include <switch.h>

namespace {

std::string text_of(const std::filesystem::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Names of the functions that the public headers declare.
std::set<std::string> declared_functions() {
  static const std::regex kDeclaration(R"(SWITCH_DECLARE(?:_NONSTD)?\([^)]*\)\s+(switch_\w+)\()");
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(KVX_SOURCE_DIR "/platform/switch/include")) {
    const std::string text = text_of(entry.path());
    for (std::sregex_iterator at(text.begin(), text.end(), kDeclaration), end; at != end; ++at) {
      names.insert((*at)[1]);
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
