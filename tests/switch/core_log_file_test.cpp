#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "core/log.h"
#include "core/log_file.h"
#include "core_fixture.h"
#include "support/process_child.h"

namespace {

using core_test::CoreSwitch;
using kvx_switch::LogFile;
using kvx_switch::LogFileSettings;
using test_support::read_text_file;
using test_support::warning_line;
using testing::HasSubstr;

constexpr switch_time_t kSecond = 1000000;

class LogFileTest : public testing::Test {
 protected:
  LogFileSettings Settings(uint64_t rollover = 0, unsigned files = 10) {
    LogFileSettings settings;
    settings.path = Path();
    settings.rollover = rollover;
    settings.maximum_rotate = files;
    return settings;
  }
  std::string Path(const std::string& ending = "") const {
    return (directory_.Path() / "switch.log").string() + ending;
  }
  static std::string Line(int number) { return "line " + std::to_string(number) + "\n"; }

  test_support::TemporaryDirectory directory_;
};

TEST_F(LogFileTest, AppendsToWhatIsThere) {
  std::ofstream(Path()) << "before\n";
  LogFile file(Settings());
  EXPECT_EQ(file.Write("after\n", 0), "");
  EXPECT_EQ(read_text_file(Path()), "before\nafter\n");
}

TEST_F(LogFileTest, IsForTheSwitchsGroupAndNobodyElse) {
  LogFile file(Settings());
  file.Write("x\n", 0);
  const auto all = std::filesystem::status(Path()).permissions();
  EXPECT_EQ(all & std::filesystem::perms::others_all, std::filesystem::perms::none);
}

TEST_F(LogFileTest, LosesNoLineAtARotation) {
  LogFile file(Settings(100, 1000));
  std::string all;
  for (int number = 0; number < 1000; ++number) {
    all += Line(number);
    EXPECT_EQ(file.Write(Line(number), 0), "");
  }
  std::string found;
  int files = 0;
  for (int number = 1000; number > 0; --number) {
    const std::string text = read_text_file(Path("." + std::to_string(number)));
    EXPECT_LE(text.size(), 100u);
    files += text.empty() ? 0 : 1;
    found += text;
  }
  EXPECT_EQ(found + read_text_file(Path()), all);
  EXPECT_GT(files, 80);
}

TEST_F(LogFileTest, KeepsAsManyFilesAsItIsTold) {
  LogFile file(Settings(7, 2));
  for (int number = 1; number <= 5; ++number) file.Write(Line(number), 0);
  EXPECT_EQ(read_text_file(Path()), Line(5));
  EXPECT_EQ(read_text_file(Path(".1")), Line(4));
  EXPECT_EQ(read_text_file(Path(".2")), Line(3));
  EXPECT_FALSE(std::filesystem::exists(Path(".3")));
}

TEST_F(LogFileTest, KeepsNoneWhenItIsToldSo) {
  LogFile file(Settings(7, 0));
  for (int number = 1; number <= 3; ++number) file.Write(Line(number), 0);
  EXPECT_EQ(read_text_file(Path()), Line(3));
  EXPECT_FALSE(std::filesystem::exists(Path(".1")));
}

TEST_F(LogFileTest, CountsTheBytesOfAnEarlierRun) {
  std::ofstream(Path()) << std::string(95, 'x') << "\n";
  LogFile file(Settings(100));
  file.Write(Line(1), 0);
  EXPECT_EQ(read_text_file(Path()), Line(1));
  EXPECT_EQ(read_text_file(Path(".1")).size(), 96u);
}

TEST_F(LogFileTest, GoesOnInANewFileWhenItIsReopened) {
  LogFile file(Settings());
  file.Write(Line(1), 0);
  std::filesystem::rename(Path(), Path(".old"));
  file.Write(Line(2), 0);
  EXPECT_EQ(file.Reopen(0), "");
  file.Write(Line(3), 0);
  EXPECT_EQ(read_text_file(Path(".old")), Line(1) + Line(2));
  EXPECT_EQ(read_text_file(Path()), Line(3));
}

TEST_F(LogFileTest, PutsTheFileAsideAtAReopeningWhenItIsToldSo) {
  LogFileSettings settings = Settings();
  settings.rotate_on_hup = true;
  LogFile file(settings);
  file.Write(Line(1), 0);
  EXPECT_EQ(file.Reopen(0), "");
  file.Write(Line(2), 0);
  EXPECT_EQ(read_text_file(Path(".1")), Line(1));
  EXPECT_EQ(read_text_file(Path()), Line(2));
}

TEST_F(LogFileTest, SaysOnceThatItCannotBeOpenedAndOnceThatItCan) {
  LogFileSettings settings = Settings();
  settings.path = (directory_.Path() / "none" / "switch.log").string();
  LogFile file(settings);
  EXPECT_EQ(
      file.Write(Line(1), 0),
      "Log file " + settings.path + " cannot be opened: No such file or directory; its lines are lost until it can");
  EXPECT_EQ(file.Write(Line(2), kSecond), "");
  std::filesystem::create_directory(directory_.Path() / "none");
  EXPECT_EQ(file.Write(Line(3), kSecond + 1), "") << "no try before the pause is over";
  EXPECT_EQ(file.Write(Line(4), 2 * kSecond),
            "Log file " + settings.path + " is written again; 3 lines are missing in it");
  EXPECT_EQ(file.Write(Line(5), 2 * kSecond), "");
  EXPECT_EQ(read_text_file(settings.path), Line(4) + Line(5));
}

TEST_F(LogFileTest, SaysOnceThatTheDiskIsFull) {
  LogFileSettings settings = Settings();
  settings.path = "/dev/full";
  LogFile file(settings);
  EXPECT_EQ(file.Write(Line(1), 0),
            "Log file /dev/full cannot be written: No space left on device; its lines are lost until it can");
  for (int number = 2; number < 10; ++number) EXPECT_EQ(file.Write(Line(number), number * kSecond), "");
}

TEST_F(LogFileTest, GoesOnInTheSameFileWhenItCannotBePutAside) {
  // A directory stands where the file would go.
  std::filesystem::create_directories(Path(".1") + "/in_the_way");
  LogFile file(Settings(7, 1));
  file.Write(Line(1), 0);
  EXPECT_THAT(file.Write(Line(2), 0), HasSubstr("cannot be put aside: "));
  EXPECT_EQ(file.Write(Line(3), 0), "");
  EXPECT_EQ(read_text_file(Path()), Line(1) + Line(2) + Line(3));
}

class LogFileOfTheSwitch : public CoreSwitch {
 protected:
  void Configure(const std::string& parameters) {
    Write("autoload_configs/logfile.conf.xml",
          "<configuration name='logfile.conf'><settings>\n" + parameters + "</settings></configuration>");
  }
  static std::string Param(const std::string& name, const std::string& value) {
    return "<param name='" + name + "' value='" + value + "'/>\n";
  }
};

TEST_F(LogFileOfTheSwitch, HoldsTheLinesDownToItsLevel) {
  const std::string path = PathOf("my.log");
  Configure(Param("logfile", path) + Param("loglevel", "warning"));
  Start();
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "a warning\n");
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_NOTICE, "a notice\n");
  Stop();
  EXPECT_THAT(read_text_file(path),
              testing::MatchesRegex("[-0-9]+ [:0-9]+\\.[0-9]{6} \\[WARNING\\] [a-z_]+\\.cpp:[0-9]+ "
                                    "a warning\n"));
}

TEST_F(LogFileOfTheSwitch, ThatCannotBeWrittenIsWarnedOfOnceAndTheSwitchLives) {
  const std::string path = PathOf("none/my.log");
  Configure(Param("logfile", path));
  Start();
  for (int i = 0; i < 100; ++i) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INFO, "line %d\n", i);
  kvx_switch::FlushLog();
  int told = 0;
  for (const auto& line : log().LinesOf({"log_file.cpp"})) {
    EXPECT_EQ(line.text,
              "Log file " + path + " cannot be opened: No such file or directory; its lines are lost until it can\n");
    ++told;
  }
  EXPECT_EQ(told, 1);
}

TEST_F(LogFileOfTheSwitch, MistakesInItsSettingsAreAllNamed) {
  Configure(Param("logfile", "here") + Param("rollover", "1") + Param("maximum-rotate", "-1") +
            Param("rotate-on-hup", "perhaps") + Param("loglevel", "loud") + Param("logfil", ""));
  const std::string path = PathOf("autoload_configs/logfile.conf.xml");
  SWITCH_GLOBAL_dirs.conf_dir = strdup(PathOf("").c_str());
  LogFileSettings settings;
  std::string error;
  EXPECT_FALSE(kvx_switch::ReadLogFileSettings(settings, error));
  free(std::exchange(SWITCH_GLOBAL_dirs.conf_dir, nullptr));
  for (const char* mistake :
       {"2: \"logfile\" is \"here\", not an absolute path, or empty", "3: \"rollover\" is \"1\", not 0 or a number of ",
        "4: \"maximum-rotate\" is \"-1\", not a number from 0 to 1000",
        "5: \"rotate-on-hup\" is \"perhaps\", not \"true\" or \"false\"",
        "6: \"loglevel\" is \"loud\", not a log level"}) {
    EXPECT_THAT(error, HasSubstr("logfile.conf.xml:" + std::string(mistake)));
  }
}

}  // namespace
