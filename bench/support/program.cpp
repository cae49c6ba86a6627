#include "program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <thread>

#include "system.h"

namespace bench {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kPatience{5000};
constexpr milliseconds kPollInterval{5};

int CodeOf(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

Program::Program(ProgramSettings settings) : settings_(std::move(settings)) {
  std::array<int, 2> input{}, output{};
  if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error(std::string("no pipes: ") + std::strerror(errno));
  }
  pid_ = fork();
  if (pid_ == 0) RunChild(input[0], output[1]);
  close(input[0]);
  close(output[1]);
  to_ = input[1];
  from_ = output[0];
  if (pid_ < 0) throw std::runtime_error("cannot start " + name() + ": " + std::strerror(errno));
  signal(SIGPIPE, SIG_IGN);  // a program that has died is noticed where it is spoken to
}

void Program::RunChild(int input, int output) {
  try {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (settings_.core != kAnyCore) PinTo(settings_.core);
    AllowFiles(settings_.files);
    const int log = open(settings_.log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(input, STDIN_FILENO);
    dup2(settings_.speaks ? output : log, STDOUT_FILENO);
    dup2(log, STDERR_FILENO);
    std::vector<char*> words;
    for (const std::string& word : settings_.command) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    execvp(words[0], words.data());
    dprintf(STDERR_FILENO, "cannot run %s: %s\n", words[0], std::strerror(errno));
  } catch (const std::exception& error) {
    dprintf(STDERR_FILENO, "%s\n", error.what());
  }
  _exit(127);
}

Program::~Program() {
  if (pid_ > 0 && Running()) End(SIGTERM);
  close(to_);
  close(from_);
}

void Program::Fail(const std::string& what) {
  throw std::runtime_error(name() + ": " + what + " (see " + settings_.log.string() + ")");
}

void Program::Say(const std::string& line) {
  const std::string text = line + "\n";
  std::size_t said = 0;
  while (said < text.size()) {
    const ssize_t count = write(to_, text.data() + said, text.size() - said);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) Fail(std::string("does not listen: ") + std::strerror(errno));
    said += static_cast<std::size_t>(count);
  }
}

void Program::Read(steady_clock::time_point end) {
  const auto rest = std::chrono::ceil<milliseconds>(end - steady_clock::now());
  pollfd waiting{from_, POLLIN, 0};
  if (rest.count() <= 0 || poll(&waiting, 1, static_cast<int>(rest.count())) == 0) Fail("no answer in time");
  std::array<char, 65536> room;
  const ssize_t count = read(from_, room.data(), room.size());
  if (count == 0) Fail("has ended");
  if (count > 0) heard_.append(room.data(), static_cast<std::size_t>(count));
}

Words Program::Hear(const std::string& first, milliseconds limit) {
  const auto end = steady_clock::now() + limit;
  std::size_t line_end = 0;
  while ((line_end = heard_.find('\n')) == std::string::npos) Read(end);
  Words words = Split(heard_.substr(0, line_end));
  heard_.erase(0, line_end + 1);
  if (words.empty() || words.front() != first) Fail("said \"" + Line("", words) + "\" instead of \"" + first + "\"");
  return words;
}

bool Program::Running() {
  int status = 0;
  if (pid_ <= 0) return false;
  if (waitpid(pid_, &status, WNOHANG) != pid_) return true;
  exit_code_ = CodeOf(status);
  pid_ = -1;
  return false;
}

int Program::AwaitEnd(milliseconds limit) {
  const auto end = steady_clock::now() + limit;
  while (Running()) {
    if (steady_clock::now() >= end) Fail("has not ended in time");
    std::this_thread::sleep_for(kPollInterval);
  }
  return exit_code_;
}

int Program::End(int signal) {
  if (!Running()) return exit_code_;
  kill(pid_, signal);
  const auto end = steady_clock::now() + kPatience;
  while (Running() && steady_clock::now() < end) std::this_thread::sleep_for(kPollInterval);
  if (!Running()) return exit_code_;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
  return -1;
}

}  // namespace bench
