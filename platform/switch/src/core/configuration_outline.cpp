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

void warn_of_attributes(const std::string& path, switch_xml_t element, const ItemOutline& outline) {
  const std::string name = outline.item;
  for (char** at = element->attr; at && at[0]; at += 2) {
    const auto& known = outline.attributes;
    if (std::find(known.begin(), known.end(), at[0]) != known.end()) continue;
    warn(path, element, "a <" + name + "> has no attribute \"" + at[0] + "\", which is \"" + at[1] + "\"; ignored");
  }
  const std::string& required = outline.attributes.front();
  if (zstr(switch_xml_attr(element, required.c_str())))
    warn(path, element, "a <" + name + "> needs \"" + required + "\"");
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

std::string At(const std::string& path, switch_xml_t element) {
  return path + ":" + std::to_string(switch_xml_line(element)) + ": ";
}

void AddLine(std::string& lines, const std::string& line) {
  lines += (lines.empty() ? "" : "\n") + line;
}

void WarnOfUnread(const std::string& path, switch_xml_t list, const ItemOutline& outline) {
  for (switch_xml_t at = list ? list->child : nullptr; at; at = at->ordered) {
    if (strcmp(at->name, outline.item) == 0) {
      warn_of_attributes(path, at, outline);
    } else {
      warn(path, at, std::string("expected <") + outline.item + ">, not <" + at->name + ">; ignored");
    }
  }
}

void WarnOfUnread(const std::string& path, switch_xml_t configuration, const char* section,
                  const ItemOutline& outline) {
  switch_xml_t first = switch_xml_child(configuration, section);
  if (!first) warn(path, configuration, std::string("no <") + section + "> in <" + configuration->name + ">");
  for (switch_xml_t at = configuration->child; at; at = at->ordered) {
    if (at == first) continue;
    const bool again = strcmp(at->name, section) == 0;
    warn(path, at,
         again ? std::string("a second <") + section + ">; ignored"
               : std::string("expected <") + section + ">, not <" + at->name + ">; ignored");
  }
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
