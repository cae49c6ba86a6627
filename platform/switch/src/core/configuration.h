#pragma once

#include <functional>
#include <string>
#include <vector>

#include <switch.h>

namespace kvx_switch {

/// Sets the built-in variables (conf_dir, base_dir, mod_dir, log_dir) and those of vars.xml. False and `error` when the
/// file is there and malformed; a missing one is none.
bool ReadVariables(std::string& error);

/// What switch_xml_reload does after it has found every file well formed, and before it tells anybody: reads anew what
/// is used, or says in `error` why that stays as it was, which makes the reload fail. Null takes the step away; when
/// that returns, the step is not running.
void SetReloadStep(std::function<bool(std::string& error)> step);

/// "autoload_configs/x.conf.xml" below the configuration directory for "x.conf"; whether there is such a file.
std::string ConfigurationPath(const std::string& name);
bool FileExists(const std::string& path);

/// The "*.xml" files of a section, sorted by name.
std::vector<std::string> SectionFiles(const std::string& section);

/// A file's tree with its variables expanded; null and `error`, "file:line: what", otherwise. Unknown variables are
/// logged with file and line.
switch_xml_t ParseXmlFile(const std::string& path, std::string& error);

}  // namespace kvx_switch
