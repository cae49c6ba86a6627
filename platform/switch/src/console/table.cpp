#include "console/table.h"

namespace kvx_switch {
namespace {

std::string quoted_if_needed(const std::string& value) {
  if (value.find_first_of(",\"\r\n") == std::string::npos) return value;
  std::string quoted = "\"";
  for (const char character : value) {
    if (character == '"') quoted += '"';
    quoted += character;
  }
  return quoted + '"';
}

std::string to_line(const std::vector<std::string>& values) {
  std::string line;
  for (const std::string& value : values) {
    if (&value != &values.front()) line += ',';
    line += quoted_if_needed(value);
  }
  return line + '\n';
}

}  // namespace

std::string to_csv(const Table& table) {
  std::string text;
  if (!table.rows.empty()) text = to_line(table.columns);
  for (const auto& row : table.rows) text += to_line(row);
  return text + to_count(table);
}

std::string to_count(const Table& table) {
  return "\n" + std::to_string(table.rows.size()) + " total.\n";
}

}  // namespace kvx_switch
