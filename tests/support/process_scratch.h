#pragma once

#include <filesystem>
#include <string>

namespace test_support {

/// A new directory in the build directory, for this process alone. What tests leave there when they are killed goes
/// with the next test program that asks for one: each removes those whose process is gone. Throws std::runtime_error.
std::filesystem::path make_scratch_directory();

/// A path in a scratch directory that this process shares, which goes with the process. No two calls give the same.
std::filesystem::path scratch_file(const std::string& name);

}  // namespace test_support
