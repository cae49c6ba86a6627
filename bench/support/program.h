/// A program that a measurement runs: on cores of its own, spoken to in lines, ended by its process id.
///
/// It never outlives its owner: the kernel ends it when this process dies. Must be started from a thread that lives as
/// long as it does. What goes wrong is thrown as std::runtime_error that names the program.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "lines.h"

namespace bench {

constexpr int kAnyCore = -1;

struct ProgramSettings {
  std::vector<std::string> command;  ///< a program, looked up in PATH, and its arguments
  int core = kAnyCore;
  std::filesystem::path log;  ///< where its standard error goes, and its output if it does not speak
  bool speaks = true;         ///< answers in lines on its standard output
  std::size_t files = 20000;  ///< that it may have open
};

class Program {
 public:
  explicit Program(ProgramSettings settings);
  ~Program();  ///< ends it
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  void Say(const std::string& line);
  /// The next line, whose first word must be that one; the words of it.
  Words Hear(const std::string& first, std::chrono::milliseconds limit = std::chrono::seconds(60));
  /// Ends it: by a signal, and where that does not help, by force. Its exit code, or -1.
  int End(int signal);
  /// Its exit code once it has ended by itself within the limit; throws when it has not.
  int AwaitEnd(std::chrono::milliseconds limit);
  bool Running();

  pid_t pid() const { return pid_; }
  const std::string& name() const { return settings_.command.front(); }

 private:
  [[noreturn]] void RunChild(int input, int output);
  [[noreturn]] void Fail(const std::string& what);
  void Read(std::chrono::steady_clock::time_point end);

  const ProgramSettings settings_;
  pid_t pid_ = -1;
  int to_ = -1, from_ = -1;
  int exit_code_ = -1;
  std::string heard_;  // and not asked for yet
};

}  // namespace bench
