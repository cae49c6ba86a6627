#include "core/configuration.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "core/variables.h"
#include "core/xml_builder.h"

namespace kvx_switch {
namespace {

std::string conf_dir() {
  return SWITCH_GLOBAL_dirs.conf_dir ? SWITCH_GLOBAL_dirs.conf_dir : ".";
}

bool read_file(const std::string& path, std::string& text, std::string& error) {
  struct stat information;
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file || stat(path.c_str(), &information) != 0 || S_ISDIR(information.st_mode)) {
    error = path + ": " + (errno ? strerror(errno) : "not a file");
    return false;
  }
  std::ostringstream content;
  content << file.rdbuf();
  text = content.str();
  return true;
}

std::string expand_file(const std::string& path, const std::string& text) {
  return ExpandVariables(text, [&](const std::string& name, size_t offset) {
    const auto line = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(offset), '\n') + 1;
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s:%ld: no variable \"%s\", taken as empty\n",
                      path.c_str(), static_cast<long>(line), name.c_str());
  });
}

switch_xml_t parse(const std::string& path, const std::string& text, std::string& error) {
  std::string what;
  unsigned long line = 0;
  switch_xml_t tree = ParseXml(text, what, line);
  if (!tree) error = path + ":" + std::to_string(line) + ": " + what;
  return tree;
}

/// One X-PRE-PROCESS element: name=value. A value may refer to variables set before it.
void set_variable(const std::string& place, const std::string& data) {
  const size_t equals = data.find('=');
  if (equals == std::string::npos || equals == 0) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s\"%s\" is not name=value, ignored\n", place.c_str(),
                      data.c_str());
    return;
  }
  const std::string value = ExpandVariables(data.substr(equals + 1), [&](const std::string& name, size_t) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s\"%s\": no variable \"%s\" yet, taken as empty\n",
                      place.c_str(), data.c_str(), name.c_str());
  });
  SetConfiguredVariable(data.substr(0, equals), value);
}

void set_built_in(const char* name, const char* value) {
  if (value) switch_core_set_variable(name, value);
}

}  // namespace

bool ReadVariables(std::string& error) {
  set_built_in("base_dir", SWITCH_GLOBAL_dirs.base_dir);
  set_built_in("conf_dir", SWITCH_GLOBAL_dirs.conf_dir);
  set_built_in("mod_dir", SWITCH_GLOBAL_dirs.mod_dir);
  set_built_in("log_dir", SWITCH_GLOBAL_dirs.log_dir);
  const std::string path = VariablesPath();
  if (!FileExists(path)) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INFO, "No %s: no variables beyond the built-in ones\n",
                      path.c_str());
    return true;
  }
  std::string text;
  if (!read_file(path, text, error)) return false;
  // Not expanded as a whole: a value may refer to a variable that an earlier line sets.
  switch_xml_t tree = parse(path, text, error);
  if (!tree) return false;
  WarnOfUnread(path, tree, {"X-PRE-PROCESS", {"cmd", "data"}});
  for (switch_xml_t at = switch_xml_child(tree, "X-PRE-PROCESS"); at; at = at->next) {
    const std::string command = switch_xml_attr_soft(at, "cmd");
    if (command == "set") {
      set_variable(At(path, at), switch_xml_attr_soft(at, "data"));
    } else {
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%scmd \"%s\" is not known, ignored\n",
                        At(path, at).c_str(), command.c_str());
    }
  }
  switch_xml_free(tree);
  return true;
}

std::string VariablesPath() {
  return conf_dir() + "/vars.xml";
}

std::string ConfigurationPath(const std::string& name) {
  return conf_dir() + "/autoload_configs/" + name + ".xml";
}

bool FileExists(const std::string& path) {
  struct stat information;
  return stat(path.c_str(), &information) == 0;
}

std::vector<std::string> SectionFiles(const std::string& section) {
  const bool configuration = section == "configuration";
  const std::string directory = conf_dir() + "/" + (configuration ? "autoload_configs" : section);
  const std::string ending = configuration ? ".conf.xml" : ".xml";
  std::vector<std::string> files;
  if (DIR* listing = opendir(directory.c_str())) {
    while (const dirent* entry = readdir(listing)) {
      const std::string name = entry->d_name;
      if (name.size() <= ending.size() || name[0] == '.') continue;
      if (name.compare(name.size() - ending.size(), ending.size(), ending) == 0)
        files.push_back(directory + "/" + name);
    }
    closedir(listing);
  }
  std::sort(files.begin(), files.end());
  return files;
}

switch_xml_t ParseXmlFileAsItIs(const std::string& path, std::string& error) {
  std::string text;
  return read_file(path, text, error) ? parse(path, text, error) : nullptr;
}

switch_xml_t ParseXmlFile(const std::string& path, std::string& error) {
  std::string text;
  if (!read_file(path, text, error)) return nullptr;
  switch_xml_t tree = parse(path, expand_file(path, text), error);
  if (tree) tree->is_switch_xml_root_t = SWITCH_TRUE;
  return tree;
}

}  // namespace kvx_switch
