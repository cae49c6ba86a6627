// What stands in a configuration file and nobody reads; what a file refers to.

#include <switch_configuration_check.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "core/configuration.h"
#include "core/xml_builder.h"

namespace kvx_switch {
namespace {

void warn(const std::string& path, switch_xml_t element, const std::string& what) {
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s%s\n", At(path, element).c_str(), what.c_str());
}

void warn_of_attributes(const std::string& path, switch_xml_t element, const std::vector<std::string>& known) {
  const std::string name = element->name;
  for (char** at = element->attr; at && at[0]; at += 2) {
    if (std::find(known.begin(), known.end(), at[0]) != known.end()) continue;
    warn(path, element, "a <" + name + "> has no attribute \"" + at[0] + "\", which is \"" + at[1] + "\"; ignored");
  }
}

void warn_of_key(const std::string& path, switch_xml_t element, const ItemOutline& outline,
                 std::set<std::string>& keys) {
  const std::string& required = outline.attributes.front();
  const std::string key = switch_xml_attr_soft(element, required.c_str());
  if (key.empty()) return warn(path, element, std::string("a <") + outline.item + "> needs \"" + required + "\"");
  const bool fresh = keys.insert(key).second;
  if (!fresh && outline.again) warn(path, element, "\"" + key + "\" stands here again; " + outline.again);
}

std::string file_without_comments(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  std::string text = content.str();
  for (size_t open; (open = text.find("<!--")) != std::string::npos;) {
    const size_t close = text.find("-->", open);
    text.erase(open, close == std::string::npos ? close : close + 3 - open);
  }
  return text;
}

void add_references(const std::string& text, std::set<std::string>& names) {
  for (size_t open = text.find("$${"); open != std::string::npos; open = text.find("$${", open + 1)) {
    const size_t close = text.find('}', open);
    if (close != std::string::npos) names.insert(text.substr(open + 3, close - open - 3));
  }
}

}  // namespace

const ItemOutline kParamOutline = {"param", {"name", "value"}, "the last counts"};

std::string At(const std::string& path, switch_xml_t element) {
  return path + ":" + std::to_string(switch_xml_line(element)) + ": ";
}

void AddLine(std::string& lines, const std::string& line) {
  lines += (lines.empty() ? "" : "\n") + line;
}

void WarnOfUnread(const std::string& path, switch_xml_t list, const ItemOutline& outline) {
  std::set<std::string> keys;
  for (switch_xml_t at = list ? list->child : nullptr; at; at = at->ordered) {
    if (strcmp(at->name, outline.item) == 0) {
      warn_of_attributes(path, at, outline.attributes);
      warn_of_key(path, at, outline, keys);
    } else {
      warn(path, at, std::string("expected <") + outline.item + ">, not <" + at->name + ">; ignored");
    }
  }
}

void WarnOfUnread(const std::string& path, switch_xml_t configuration, const char* section,
                  const ItemOutline& outline) {
  warn_of_attributes(path, configuration, {"name", "description"});
  switch_xml_t first = switch_xml_child(configuration, section);
  if (!first) warn(path, configuration, std::string("no <") + section + "> in <" + configuration->name + ">");
  for (switch_xml_t at = configuration->child; at; at = at->ordered) {
    if (at == first) continue;
    const bool again = strcmp(at->name, section) == 0;
    warn(path, at,
         again ? std::string("a second <") + section + ">; ignored"
               : std::string("expected <") + section + ">, not <" + at->name + ">; ignored");
  }
  if (first) warn_of_attributes(path, first, {});
  WarnOfUnread(path, first, outline);
}

std::set<std::string> VariableNames() {
  std::set<std::string> names;
  for (const char* section : {"configuration", "dialplan", "sip_profiles"}) {
    for (const std::string& path : SectionFiles(section)) add_references(file_without_comments(path), names);
  }
  const std::string text = file_without_comments(VariablesPath());
  add_references(text, names);
  std::string error;
  unsigned long line = 0;
  switch_xml_t tree = ParseXml(text, error, line);
  for (switch_xml_t at = switch_xml_child(tree, "X-PRE-PROCESS"); at; at = at->next) {
    const std::string data = switch_xml_attr_soft(at, "data");
    const size_t equals = data.find('=');
    if (equals != std::string::npos && equals > 0) names.insert(data.substr(0, equals));
  }
  switch_xml_free(tree);
  return names;
}

}  // namespace kvx_switch
