#include "system.h"

#include <sched.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace bench {
namespace {

double Read(clockid_t clock) {
  timespec now{};
  if (clock_gettime(clock, &now) != 0) throw std::runtime_error(std::string("clock: ") + std::strerror(errno));
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

int64_t ReadNs(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return int64_t{1000000000} * now.tv_sec + now.tv_nsec;
}

}  // namespace

void PinTo(int core) {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(core, &cores);
  if (sched_setaffinity(0, sizeof cores, &cores) == 0) return;
  throw std::runtime_error("cannot stay on core " + std::to_string(core) + ": " + std::strerror(errno));
}

void AllowFiles(std::size_t count) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_cur >= count) return;
  limit.rlim_cur = count;
  if (limit.rlim_max < count) limit.rlim_max = count;
  if (setrlimit(RLIMIT_NOFILE, &limit) == 0) return;
  throw std::runtime_error(std::to_string(count) + " files are needed and not allowed: " + std::strerror(errno));
}

int64_t MonotonicNs() {
  return ReadNs(CLOCK_MONOTONIC);
}

int64_t RealtimeNs() {
  return ReadNs(CLOCK_REALTIME);
}

double CpuSecondsOf(pid_t pid) {
  clockid_t clock{};
  const int error = clock_getcpuclockid(pid, &clock);
  if (error != 0) throw std::runtime_error("CPU time of process " + std::to_string(pid) + ": " + std::strerror(error));
  return Read(clock);
}

double CpuSecondsOfTree(pid_t pid) {
  double seconds = CpuSecondsOf(pid);
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::ifstream status(entry.path() / "stat");
    std::string number, name, state;
    pid_t parent = 0;
    // Names of the programs looked at have no blanks.
    if (!(status >> number >> name >> state >> parent) || parent != pid) continue;
    seconds += CpuSecondsOf(std::stoi(number));
  }
  return seconds;
}

double OwnCpuSeconds() {
  return Read(CLOCK_PROCESS_CPUTIME_ID);
}

double ThreadCpuSeconds() {
  return Read(CLOCK_THREAD_CPUTIME_ID);
}

double ResidentKibOf(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/statm");
  double total = 0, resident = 0;
  if (!(status >> total >> resident)) throw std::runtime_error("no memory of process " + std::to_string(pid));
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

int CoreCount() {
  return static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
}

std::string MachineText() {
  std::ifstream cpus("/proc/cpuinfo");
  std::string model = "unknown processor";
  for (std::string line; std::getline(cpus, line);) {
    if (line.rfind("model name", 0) != 0) continue;
    model = line.substr(line.find(':') + 2);
    break;
  }
  utsname system{};
  uname(&system);
  return std::to_string(CoreCount()) + " cores, " + model + ", " + system.sysname + " " + system.release;
}

}  // namespace bench
