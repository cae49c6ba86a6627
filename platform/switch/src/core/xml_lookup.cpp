#include <functional>
#include <mutex>
#include <string>
#include <utility>

#include <switch.h>
#include <switch_configuration_check.h>

#include "core/configuration.h"
#include "core/xml_builder.h"

namespace {

using namespace kvx_switch;

/// Text that the calling thread gets a pointer to, good until its next call.
const char* handed_out(const std::string& text) {
  thread_local std::string kept;
  kept = text;
  return kept.c_str();
}

struct ReloadStep {
  std::mutex mutex;
  std::function<bool(std::string& error)> run;  // guarded by mutex, which is held while it runs: one reload at a time
};

ReloadStep& reload_step() {
  static ReloadStep* const step = new ReloadStep;
  return *step;
}

bool run_reload_step(std::string& error) {
  std::lock_guard<std::mutex> lock(reload_step().mutex);
  return !reload_step().run || reload_step().run(error);
}

/// In document order, the element itself first.
switch_xml_t find(switch_xml_t xml, const char* tag, const char* key, const char* value) {
  if (!strcmp(xml->name, tag)) {
    if (!key) return xml;
    const char* found = switch_xml_attr(xml, key);
    if (found && value && !strcasecmp(found, value)) return xml;
  }
  for (switch_xml_t child = xml->child; child; child = child->ordered) {
    if (switch_xml_t found = find(child, tag, key, value)) return found;
  }
  return nullptr;
}

switch_xml_t parse_or_log(const std::string& path) {
  std::string error;
  switch_xml_t tree = ParseXmlFile(path, error);
  if (!tree) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s\n", error.c_str());
  return tree;
}

void check_section(const std::string& section, std::string& error) {
  for (const std::string& path : SectionFiles(section)) {
    std::string mistake;
    switch_xml_t tree = ParseXmlFile(path, mistake);
    if (!tree) AddLine(error, mistake);
    switch_xml_free(tree);
  }
}

}  // namespace

switch_xml_t kvx_switch::OpenConfiguration(const std::string& name, switch_xml_t& configuration, std::string& error) {
  const std::string path = ConfigurationPath(name);
  configuration = nullptr;
  switch_xml_t root = ParseXmlFile(path, error);
  if (!root) return nullptr;
  configuration = find(root, "configuration", "name", name.c_str());
  if (configuration) return root;
  error = At(path, root) + "no <configuration name=\"" + name + "\"> in it";
  switch_xml_free(root);
  return nullptr;
}

switch_xml_t switch_xml_open_cfg(const char* file_path, switch_xml_t* node, switch_event_t*) {
  *node = nullptr;
  if (zstr(file_path) || strchr(file_path, '/')) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "\"%s\" is no name of a configuration\n",
                      switch_str_nil(file_path));
    return nullptr;
  }
  std::string error;
  switch_xml_t root = OpenConfiguration(file_path, *node, error);
  if (!root) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s\n", error.c_str());
  return root;
}

switch_status_t switch_xml_locate(const char* section, const char* tag_name, const char* key_name,
                                  const char* key_value, switch_xml_t* root, switch_xml_t* node, switch_event_t*,
                                  switch_bool_t) {
  *root = *node = nullptr;
  if (zstr(section) || strchr(section, '/') || zstr(tag_name)) return SWITCH_STATUS_FALSE;
  for (const std::string& path : SectionFiles(section)) {
    switch_xml_t tree = parse_or_log(path);
    if (!tree) continue;
    *node = find(tree, tag_name, key_name, key_value);
    if (*node) {
      *root = tree;
      return SWITCH_STATUS_SUCCESS;
    }
    switch_xml_free(tree);
  }
  return SWITCH_STATUS_FALSE;
}

void kvx_switch::SetReloadStep(std::function<bool(std::string& error)> step) {
  std::lock_guard<std::mutex> lock(reload_step().mutex);
  reload_step().run = std::move(step);
}

switch_status_t switch_xml_reload(const char** err) {
  std::string error;
  if (ReadVariables(error)) {
    for (const char* section : {"configuration", "dialplan", "sip_profiles"}) check_section(section, error);
  }
  const bool good = error.empty() && run_reload_step(error);
  if (err) *err = handed_out(good ? "Success" : error);
  if (!good) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s\n", error.c_str());
    return SWITCH_STATUS_GENERR;
  }
  switch_event_t* event = nullptr;
  if (switch_event_create(&event, SWITCH_EVENT_RELOADXML) == SWITCH_STATUS_SUCCESS) switch_event_fire(&event);
  return SWITCH_STATUS_SUCCESS;
}

switch_xml_t switch_xml_parse_file(const char* file) {
  return zstr(file) ? nullptr : parse_or_log(file);
}

switch_xml_t switch_xml_parse_file_as_it_is(const char* file) {
  std::string error;
  switch_xml_t tree = zstr(file) ? nullptr : ParseXmlFileAsItIs(file, error);
  if (!error.empty()) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s\n", error.c_str());
  return tree;
}

switch_xml_t switch_xml_parse_str_dynamic(char* s, switch_bool_t dup) {
  if (!s) return nullptr;
  std::string error;
  unsigned long line = 0;
  switch_xml_t tree = ParseXml(s, error, line);
  if (!tree) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "XML text, line %lu: %s\n", line, error.c_str());
  }
  // The tree has copies of its own; a text taken over is done with.
  if (!dup) free(s);
  return tree;
}
