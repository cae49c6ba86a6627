#include "cli_run.h"

#include "build_paths.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace cli_test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{30};
constexpr char kProgram[] = KVX_BUILD_DIR "/bin/kvx-cli";

/// Text arrays as exec() wants them, made before the fork: a child of a program with threads must not allocate.
class ExecTexts {
 public:
  explicit ExecTexts(std::vector<std::string> texts) : texts_(std::move(texts)) {
    for (std::string& text : texts_) pointers_.push_back(text.data());
    pointers_.push_back(nullptr);
  }
  char** get() { return pointers_.data(); }

 private:
  std::vector<std::string> texts_;
  std::vector<char*> pointers_;
};

std::vector<std::string> command_line(const std::vector<std::string>& arguments) {
  std::vector<std::string> line{"kvx-cli"};
  line.insert(line.end(), arguments.begin(), arguments.end());
  return line;
}

std::vector<std::string> environment_texts(const std::map<std::string, std::string>& environment) {
  std::vector<std::string> texts{"LSAN_OPTIONS=print_suppressions=0:suppressions=" KVX_SOURCE_DIR
                                 "/tests/switch/cli_libedit_leaks.txt"};
  for (const char* inherited : {"PATH", "ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
    if (const char* value = std::getenv(inherited)) texts.push_back(std::string(inherited) + "=" + value);
  }
  if (environment.count("TERM") == 0) texts.push_back("TERM=dumb");
  for (const auto& [name, value] : environment) texts.push_back(name + "=" + value);
  return texts;
}

int wait_for_end(pid_t process, Clock::time_point deadline) {
  for (;;) {
    int status = 0;
    if (waitpid(process, &status, WNOHANG) == process) return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (Clock::now() > deadline) {
      kill(process, SIGKILL);
      waitpid(process, nullptr, 0);
      return -1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

struct Pipe {
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error(std::strerror(errno));
    read_end = ends[0];
    write_end = ends[1];
  }
  ~Pipe() {
    CloseRead();
    CloseWrite();
  }
  void CloseRead() {
    if (read_end >= 0) close(read_end);
    read_end = -1;
  }
  void CloseWrite() {
    if (write_end >= 0) close(write_end);
    write_end = -1;
  }
  int read_end;
  int write_end;
};

/// Moves what is there to `text`; closes the pipe at its end.
void drain(Pipe& pipe, std::string& text) {
  char bytes[65536];
  const ssize_t count = read(pipe.read_end, bytes, sizeof(bytes));
  if (count > 0) {
    text.append(bytes, static_cast<size_t>(count));
  } else {
    pipe.CloseRead();
  }
}

}  // namespace

CliResult run_cli(const std::vector<std::string>& arguments, const std::string& input,
                  const std::map<std::string, std::string>& environment) {
  ExecTexts line(command_line(arguments));
  ExecTexts variables(environment_texts(environment));
  Pipe in, out, err;
  const pid_t process = fork();
  if (process == 0) {
    dup2(in.read_end, STDIN_FILENO);
    dup2(out.write_end, STDOUT_FILENO);
    dup2(err.write_end, STDERR_FILENO);
    execve(kProgram, line.get(), variables.get());
    _exit(127);
  }
  in.CloseRead();
  out.CloseWrite();
  err.CloseWrite();
  // Inputs of tests are far smaller than a pipe's buffer.
  if (write(in.write_end, input.data(), input.size()) < 0) throw std::runtime_error(std::strerror(errno));
  in.CloseWrite();

  CliResult result;
  const Clock::time_point deadline = Clock::now() + kPatience;
  while ((out.read_end >= 0 || err.read_end >= 0) && Clock::now() < deadline) {
    pollfd waiting[] = {{out.read_end, POLLIN, 0}, {err.read_end, POLLIN, 0}};
    poll(waiting, 2, 100);
    if (waiting[0].revents != 0) drain(out, result.out);
    if (waiting[1].revents != 0) drain(err, result.err);
  }
  result.exit_code = wait_for_end(process, deadline);
  return result;
}

CliOnTerminal::CliOnTerminal(const std::vector<std::string>& arguments,
                             const std::map<std::string, std::string>& environment) {
  ExecTexts line(command_line(arguments));
  ExecTexts variables(environment_texts(environment));
  winsize size{};
  size.ws_row = 40;
  size.ws_col = 200;
  process_ = forkpty(&terminal_, nullptr, nullptr, &size);
  if (process_ == 0) {
    execve(kProgram, line.get(), variables.get());
    _exit(127);
  }
}

CliOnTerminal::~CliOnTerminal() {
  if (process_ > 0) wait_for_end(process_, Clock::now());
  if (terminal_ >= 0) close(terminal_);
}

void CliOnTerminal::Type(const std::string& keys) {
  const Clock::time_point deadline = Clock::now() + kPatience;
  termios settings{};
  while (tcgetattr(terminal_, &settings) == 0 && (settings.c_lflag & ICANON) != 0 && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  if (write(terminal_, keys.data(), keys.size()) < 0) throw std::runtime_error(std::strerror(errno));
}

std::string CliOnTerminal::ReadUntil(const std::string& text) {
  const Clock::time_point deadline = Clock::now() + kPatience;
  for (;;) {
    const size_t at = shown_.find(text);
    if (at != std::string::npos) {
      const std::string shown = shown_.substr(0, at + text.size());
      shown_.erase(0, shown.size());
      return shown;
    }
    pollfd waiting{terminal_, POLLIN, 0};
    char bytes[4096];
    if (poll(&waiting, 1, 100) > 0) {
      const ssize_t count = read(terminal_, bytes, sizeof(bytes));
      if (count <= 0) return shown_;
      shown_.append(bytes, static_cast<size_t>(count));
    }
    if (Clock::now() > deadline) return shown_;
  }
}

int CliOnTerminal::WaitForEnd() {
  const int code = wait_for_end(process_, Clock::now() + kPatience);
  process_ = -1;
  return code;
}

}  // namespace cli_test
