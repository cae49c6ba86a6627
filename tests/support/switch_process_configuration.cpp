#include "support/switch_process_configuration.h"

#include <fstream>
#include <stdexcept>

#include "build_paths.h"

namespace test_support {

ConfigurationCopy::ConfigurationCopy() : path_(directory_.Path() / "conf") {
  std::filesystem::copy(std::filesystem::path(KVX_SOURCE_DIR) / "conf", path_,
                        std::filesystem::copy_options::recursive);
}

void ConfigurationCopy::Replace(const std::string& file, const std::string& from, const std::string& to) {
  std::string text = read_text_file(File(file));
  const std::size_t at = text.find(from);
  if (at == std::string::npos) throw std::runtime_error(file + " has no \"" + from + "\" to replace");
  Write(file, text.replace(at, from.size(), to));
}

void ConfigurationCopy::Write(const std::string& file, const std::string& text) {
  std::ofstream out(File(file), std::ios::trunc);
  out << text;
  if (!out.flush()) throw std::runtime_error("cannot write " + File(file).string());
}

void ConfigurationCopy::Remove(const std::string& file) {
  if (!std::filesystem::remove(File(file))) throw std::runtime_error(file + " is not there to be removed");
}

}  // namespace test_support
