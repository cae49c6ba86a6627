#pragma once

#include <functional>
#include <set>
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
std::string VariablesPath();  ///< of vars.xml
bool FileExists(const std::string& path);

/// The "*.xml" files of a section, sorted by name.
std::vector<std::string> SectionFiles(const std::string& section);

/// Applies switch.conf. False and `error` when the file is there and malformed; single mistakes are logged as warnings.
bool ReadSwitchSettings(std::string& error);

/// The names that --set may give a value: those that vars.xml sets and those that another file refers to.
std::set<std::string> VariableNames();

/// "file:line: "
std::string At(const std::string& path, switch_xml_t element);
/// Appends a line to a text of lines that has no line end behind the last one.
void AddLine(std::string& lines, const std::string& line);

/// Elements and attributes that nobody reads are mistyped ones. What a list may hold: elements `item` with the
/// attributes named, of which the first must be there, and must be another each time unless `again` is null, which else
/// says what becomes of the second. Logs, as warnings, what else is there.
struct ItemOutline {
  const char* item;
  std::vector<std::string> attributes;
  const char* again = nullptr;
};
extern const ItemOutline kParamOutline;  ///< <param name=".." value=".."/>
void WarnOfUnread(const std::string& path, switch_xml_t list, const ItemOutline& outline);
/// The same for a <configuration> whose only child is the list `section`.
void WarnOfUnread(const std::string& path, switch_xml_t configuration, const char* section, const ItemOutline& outline);

/// The file's tree and the <configuration name="NAME"> in it; null and `error`, "file:line: what", otherwise.
switch_xml_t OpenConfiguration(const std::string& name, switch_xml_t& configuration, std::string& error);

/// A file's tree with its variables expanded; null and `error`, "file:line: what", otherwise. Unknown variables are
/// logged with file and line.
switch_xml_t ParseXmlFile(const std::string& path, std::string& error);
/// The same with "$${name}" left as it stands.
switch_xml_t ParseXmlFileAsItIs(const std::string& path, std::string& error);

}  // namespace kvx_switch
