#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "core/log_journal.h"

namespace kvx_switch {
namespace {

std::string TextOf(switch_log_level_t level, const std::string& content, const char* uuid = nullptr) {
  std::string data = content;
  std::string userdata = uuid ? uuid : "";
  switch_log_node_t node{};
  node.content = data.data();
  node.userdata = uuid ? userdata.data() : nullptr;
  switch_copy_string(node.file, "file.cpp", sizeof(node.file));
  node.line = 7;
  node.level = level;
  return JournalText(node);
}

TEST(LogJournal, GetsThePriorityOfTheLevelAndNoTime) {
  EXPECT_EQ(TextOf(SWITCH_LOG_ERROR, "wrong\n"), "<3>[ERR] file.cpp:7 wrong\n");
  EXPECT_EQ(TextOf(SWITCH_LOG_DEBUG, "a step"), "<7>[DEBUG] file.cpp:7 a step\n");
  EXPECT_EQ(TextOf(SWITCH_LOG_CONSOLE, "a text\n"), "<6>[CONSOLE] file.cpp:7 a text\n");
  EXPECT_EQ(TextOf(SWITCH_LOG_NOTICE, "called\n", "a-uuid"), "<5>[NOTICE] file.cpp:7 a-uuid called\n");
}

TEST(LogJournal, GetsThePriorityForEachLineOfAText) {
  EXPECT_EQ(TextOf(SWITCH_LOG_WARNING, "one\ntwo\nthree"), "<4>[WARNING] file.cpp:7 one\n<4>two\n<4>three\n");
}

TEST(LogJournal, IsWhereTheServiceManagerSaysItIs) {
  struct stat information;
  ASSERT_EQ(fstat(STDIN_FILENO, &information), 0);
  const std::string stream = std::to_string(information.st_dev) + ":" + std::to_string(information.st_ino);
  EXPECT_TRUE(IsJournal(STDIN_FILENO, stream.c_str()));
  EXPECT_FALSE(IsJournal(STDIN_FILENO, (stream + "1").c_str()));
  EXPECT_FALSE(IsJournal(STDIN_FILENO, nullptr));
  EXPECT_FALSE(IsJournal(-1, stream.c_str()));
}

}  // namespace
}  // namespace kvx_switch
