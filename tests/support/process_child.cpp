#include "support/process_child.h"

#include "support/process_scratch.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace test_support {
namespace {

constexpr std::chrono::milliseconds kPollInterval{5};

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::generic_category().message(errno));
}

// Everything the child needs, made before the fork: between fork and exec only async-signal-safe calls are allowed.
struct ChildImage {
  std::vector<std::string> environment;
  std::vector<char*> argv;
  std::vector<char*> envp;
  std::string directory;
  int input = -1;
  int output = -1;
  pid_t parent = 0;
};

[[noreturn]] void run_child(const ChildImage& image, int report) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != image.parent) _exit(127);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  bool ready = dup2(image.input, STDIN_FILENO) >= 0 && dup2(image.output, STDOUT_FILENO) >= 0 &&
               dup2(image.output, STDERR_FILENO) >= 0;
  if (ready && !image.directory.empty()) ready = chdir(image.directory.c_str()) == 0;
  if (ready) execvpe(image.argv[0], image.argv.data(), image.envp.data());
  const int error = errno;
  const ssize_t ignored = write(report, &error, sizeof(error));
  _exit(ignored > 0 ? 127 : 126);
}

std::vector<std::string> merged_environment(const std::vector<std::string>& added) {
  std::vector<std::string> merged = added;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('=') + 1);
    bool replaced = false;
    for (const std::string& one : added) replaced = replaced || one.compare(0, name.size(), name) == 0;
    if (!replaced) merged.push_back(text);
  }
  return merged;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> out;
  for (std::string& text : texts) out.push_back(text.data());
  out.push_back(nullptr);
  return out;
}

ChildExit read_status(int status) {
  ChildExit exit;
  if (WIFSIGNALED(status)) {
    exit.signal = WTERMSIG(status);
  } else {
    exit.code = WEXITSTATUS(status);
  }
  return exit;
}

}  // namespace

std::string ChildExit::ToString() const {
  if (signal == 0) return "exit code " + std::to_string(code);
  return "signal " + std::to_string(signal) + " (" + strsignal(signal) + ")";
}

ChildProcess::ChildProcess(const ChildSettings& settings) : output_(settings.output) {
  if (settings.command.empty()) throw std::runtime_error("no command to start");
  std::vector<std::string> arguments = settings.command;
  ChildImage image;
  image.environment = merged_environment(settings.environment);
  image.argv = pointers(arguments);
  image.envp = pointers(image.environment);
  image.directory = settings.directory.string();
  image.parent = getpid();
  image.input = open("/dev/null", O_RDONLY | O_CLOEXEC);
  image.output = open(settings.output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
  int report[2] = {-1, -1};
  if (image.input < 0 || image.output < 0 || pipe2(report, O_CLOEXEC) != 0) fail("files of " + arguments.front());

  pid_ = fork();
  if (pid_ == 0) run_child(image, report[1]);
  const int fork_error = errno;
  close(image.input);
  close(image.output);
  close(report[1]);
  int error = 0;
  const bool refused = pid_ < 0 || read(report[0], &error, sizeof(error)) == static_cast<ssize_t>(sizeof(error));
  close(report[0]);
  if (!refused) return;
  if (pid_ > 0) waitpid(pid_, nullptr, 0);
  errno = pid_ < 0 ? fork_error : error;
  pid_ = -1;
  fail("cannot start " + arguments.front());
}

ChildProcess::~ChildProcess() {
  if (!Running()) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

bool ChildProcess::Running() {
  if (pid_ <= 0 || exit_) return false;
  int status = 0;
  if (waitpid(pid_, &status, WNOHANG) != pid_) return true;
  exit_ = read_status(status);
  return false;
}

void ChildProcess::Signal(int number) {
  if (Running()) kill(pid_, number);
}

std::optional<ChildExit> ChildProcess::WaitForExit(std::chrono::milliseconds limit) {
  wait_until(limit, [this] { return !Running(); });
  return exit_;
}

std::string ChildProcess::Output() const {
  return read_text_file(output_);
}

bool wait_until(std::chrono::milliseconds limit, const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return condition();
    std::this_thread::sleep_for(kPollInterval);
  }
  return true;
}

std::string read_text_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string last_lines(const std::string& text, std::size_t count) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  std::string out;
  for (std::size_t i = lines.size() > count ? lines.size() - count : 0; i < lines.size(); ++i) {
    out += "    " + lines[i] + "\n";
  }
  return out;
}

TemporaryDirectory::TemporaryDirectory() : path_(make_scratch_directory()) {}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace test_support
