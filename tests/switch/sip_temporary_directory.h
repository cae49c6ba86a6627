#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "support/process_child.h"

namespace kvx_switch {

/// A directory for one test, removed with everything in it.
class TemporaryDirectory {
 public:
  const std::string& Path() const { return path_; }

  /// Writes a file, making the directories above it; returns its path.
  std::string Write(const std::string& name, const std::string& text) const {
    std::filesystem::path file = std::filesystem::path(path_) / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << text;
    return file.string();
  }

 private:
  test_support::TemporaryDirectory directory_;
  std::string path_ = directory_.Path().string();
};

}  // namespace kvx_switch
