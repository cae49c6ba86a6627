#pragma once

#include <filesystem>
#include <string>

#include "support/process_child.h"

namespace test_support {

/// A copy of the sample configuration that a test may change or damage.
class ConfigurationCopy {
 public:
  ConfigurationCopy();

  const std::filesystem::path& Path() const { return path_; }
  std::filesystem::path File(const std::string& name) const { return path_ / name; }
  /// Throws std::runtime_error when `from` does not occur: a change that changed nothing would prove nothing.
  void Replace(const std::string& file, const std::string& from, const std::string& to);
  void Write(const std::string& file, const std::string& text);
  void Remove(const std::string& file);

 private:
  TemporaryDirectory directory_;
  std::filesystem::path path_;
};

}  // namespace test_support
