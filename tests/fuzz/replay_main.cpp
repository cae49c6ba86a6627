// Feeds a fuzzing program what lies in directories, instead of what a fuzzer makes up: every file, and every beginning
// of it, since packets come cut short. So whatever compiler and sanitizer the tests are built with, the programs and
// their seeds are looked at. Arguments: directories.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

namespace {

/// In memory of exactly that size.
void Feed(const std::vector<char>& input, std::size_t length) {
  const std::unique_ptr<uint8_t[]> exact(new uint8_t[length]);
  std::copy_n(input.begin(), length, exact.get());
  LLVMFuzzerTestOneInput(exact.get(), length);
}

std::vector<char> Read(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// How many inputs there were; 0 when there is no file in it.
std::size_t Replay(const char* directory) {
  std::size_t inputs = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    if (!entry.is_regular_file()) continue;
    const std::vector<char> input = Read(entry.path());
    for (std::size_t length = 0; length <= input.size(); ++length, ++inputs) Feed(input, length);
  }
  return inputs;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::size_t inputs = Replay(argv[i]);
    std::printf("%zu inputs from %s\n", inputs, argv[i]);
    if (inputs == 0) return 1;
  }
  return argc > 1 ? 0 : 1;
}
