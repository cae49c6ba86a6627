#include "console/table.h"

#include "core/text_escape.h"

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

std::string to_json(const Table& table, bool only_count) {
  std::string text = "{\"row_count\":" + std::to_string(table.rows.size());
  if (!only_count && !table.rows.empty()) {
    text += ",\"rows\":[";
    for (const auto& row : table.rows) {
      text += &row == &table.rows.front() ? "{" : ",{";
      for (size_t i = 0; i < row.size(); ++i) {
        text += (i ? "," : "") + JsonString(table.columns[i].c_str()) + ":" + JsonString(row[i].c_str());
      }
      text += "}";
    }
    text += "]";
  }
  return text + "}\n";
}

std::string to_xml(const Table& table, bool only_count) {
  const std::string opening = "<result row_count=\"" + std::to_string(table.rows.size()) + "\"";
  if (only_count || table.rows.empty()) return opening + "/>\n";
  std::string text = opening + ">\n";
  for (size_t number = 0; number < table.rows.size(); ++number) {
    text += "  <row row_id=\"" + std::to_string(number + 1) + "\">\n";
    for (size_t i = 0; i < table.columns.size(); ++i) {
      const std::string& name = table.columns[i];
      text += "    <" + name + ">" + XmlText(table.rows[number][i]) + "</" + name + ">\n";
    }
    text += "  </row>\n";
  }
  return text + "</result>\n";
}

}  // namespace kvx_switch
