// The thread sanitizer starts a thread of its own with the program's first. Tests that count threads would take it for
// one that was left behind, so it is there before any test begins.
#include <thread>

namespace {

const bool started = [] {
  std::thread([] {}).join();
  return true;
}();

}  // namespace
