// What the module costs a call: its callbacks, called as the switch calls them, over media servers that answer at once.
//
//     bench_module_cost DIRECTORY SESSIONS THREADS SECONDS
//     ->  result cpu_us_per_call X calls_per_second Y core_distance_ns Z
//
// DIRECTORY is for the configuration. SESSIONS legs are in the module's tables all the while. With one thread there is
// no distance: Z is 0.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "../support/lines.h"
#include "../support/system.h"
#include "core_distance.h"
#include "instant_driver.h"
#include "module_leg.h"

SWITCH_BEGIN_EXTERN_C
SWITCH_MODULE_LOAD_FUNCTION(mod_kelvaro_media_server_load);
SWITCH_MODULE_SHUTDOWN_FUNCTION(mod_kelvaro_media_server_shutdown);
SWITCH_END_EXTERN_C

namespace bench {
namespace {

// Calls under way in one thread at a time are one; the pairs of legs are taken in turns, as calls come on many legs.
constexpr int kPairs = 64;
constexpr std::size_t kMostPerSecond = 100000;  // legs, which is the most that the switch can be told to make
constexpr std::size_t kRoom = 1000;             // of the switch and the media server, beyond the sessions in the tables

void Write(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path) << text;
}

/// The switch's core and the module in it, configured as the sample configuration does: the log at "info".
class LoadedModule {
 public:
  LoadedModule(const std::filesystem::path& directory, std::size_t sessions) {
    const std::filesystem::path conf = directory / "conf";
    Write(conf / "vars.xml", "<include/>\n");
    Write(conf / "autoload_configs/switch.conf.xml",
          "<configuration name=\"switch.conf\"><settings><param name=\"loglevel\" value=\"info\"/>"
          "<param name=\"max-sessions\" value=\"" +
              std::to_string(sessions + kRoom) + "\"/><param name=\"sessions-per-second\" value=\"" +
              std::to_string(kMostPerSecond) + "\"/></settings></configuration>\n");
    Write(conf / "jsr309.xml", InstantConfiguration(sessions + kRoom));
    Write(conf / "autoload_configs/kelvaro_media_server.conf.xml",
          "<configuration name=\"kelvaro_media_server.conf\"><settings><param name=\"config\" value=\"" +
              (conf / "jsr309.xml").string() + "\"/></settings></configuration>\n");
    SWITCH_GLOBAL_dirs.conf_dir = strdup(conf.c_str());
    SWITCH_GLOBAL_dirs.log_dir = strdup(directory.c_str());
    SWITCH_GLOBAL_dirs.mod_dir = strdup(directory.c_str());
    const char* error = "unknown";
    if (switch_core_init(SCF_NONE, SWITCH_FALSE, &error) != SWITCH_STATUS_SUCCESS) throw std::runtime_error(error);
    RegisterInstantDriver();
    switch_core_new_memory_pool(&pool_);
    if (mod_kelvaro_media_server_load(&interface_, pool_) != SWITCH_STATUS_SUCCESS) {
      throw std::runtime_error("the module does not load");
    }
  }
  ~LoadedModule() {
    mod_kelvaro_media_server_shutdown();
    switch_core_destroy_memory_pool(&pool_);
    switch_core_destroy();
  }

 private:
  switch_memory_pool_t* pool_ = nullptr;
  switch_loadable_module_interface_t* interface_ = nullptr;
};

/// Legs that are there and do nothing.
class Residents {
 public:
  explicit Residents(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      if (i % (kMostPerSecond / 2) == kMostPerSecond / 2 - 1) std::this_thread::sleep_for(std::chrono::seconds(1));
      legs_.push_back(std::make_unique<ModuleLeg>(SWITCH_CALL_DIRECTION_INBOUND));
      legs_.back()->Create();
    }
  }
  ~Residents() {
    for (const auto& leg : legs_) leg->Destroy();
  }

 private:
  std::vector<std::unique_ptr<ModuleLeg>> legs_;
};

struct Pair {
  ModuleLeg a{SWITCH_CALL_DIRECTION_INBOUND}, b{SWITCH_CALL_DIRECTION_OUTBOUND};
  Pair() { a.BondWith(b); }
};

uint64_t PlaceCallsUntil(const std::atomic<bool>& stop, std::vector<std::unique_ptr<Pair>>& pairs) {
  uint64_t calls = 0;
  for (; !stop; ++calls) {
    Pair& pair = *pairs[calls % pairs.size()];
    PlaceCall(pair.a, pair.b);
  }
  return calls;
}

/// Runs the threads for that long; the calls that they placed.
uint64_t Place(std::vector<std::vector<std::unique_ptr<Pair>>>& pairs, double seconds) {
  std::atomic<bool> stop{false};
  std::atomic<uint64_t> calls{0};
  std::vector<std::thread> threads;
  for (auto& own : pairs) {
    threads.emplace_back([&] {
      try {
        calls += PlaceCallsUntil(stop, own);
      } catch (const std::exception& error) {
        std::fprintf(stderr, "module_cost: %s\n", error.what());
        std::_Exit(1);
      }
    });
  }
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  stop = true;
  for (std::thread& thread : threads) thread.join();
  return calls;
}

void Main(const std::filesystem::path& directory, std::size_t sessions, unsigned threads, double seconds) {
  LoadedModule module(directory, sessions);
  Residents residents(sessions);
  std::vector<std::vector<std::unique_ptr<Pair>>> pairs(threads);
  for (auto& own : pairs) {
    for (int i = 0; i < kPairs; ++i) own.push_back(std::make_unique<Pair>());
  }
  const double distance = threads > 1 ? CoreDistanceNs() : 0;
  Place(pairs, seconds / 10);
  const double cpu = OwnCpuSeconds();
  const int64_t start = MonotonicNs();
  const double calls = static_cast<double>(Place(pairs, seconds));
  const double wall = 1e-9 * static_cast<double>(MonotonicNs() - start);
  Answer("result cpu_us_per_call " + std::to_string(1e6 * (OwnCpuSeconds() - cpu) / calls) + " calls_per_second " +
         std::to_string(calls / wall) + " core_distance_ns " + std::to_string(distance));
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) try {
  if (argc != 5) throw std::runtime_error("wants DIRECTORY SESSIONS THREADS SECONDS");
  bench::Main(argv[1], std::stoul(argv[2]), static_cast<unsigned>(std::stoul(argv[3])), std::stod(argv[4]));
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "module_cost: %s\n", error.what());
  return 1;
}
