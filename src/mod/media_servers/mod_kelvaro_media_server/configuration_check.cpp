// Names every mistake in the module's files with its line. A load reads them as it always did and stays silent about
// what it passes over; a switch that calls this check before the load tells the operator.

#if __has_include(<switch_configuration_check.h>)

#include <switch.h>
#include <switch_configuration_check.h>

#if __has_include("kelvaro/jsr309/configuration_check.h")
#include "kelvaro/jsr309/configuration_check.h"
#define KVX_LIBRARY_CHECKS_CONFIGURATION
#endif

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "codecs.h"

extern "C" void mod_kelvaro_media_server_check_configuration(void);

namespace {

struct XmlFree {
  void operator()(switch_xml_t xml) const { switch_xml_free(xml); }
};
using XmlDocument = std::unique_ptr<switch_xml, XmlFree>;

bool is_one_of(const char* word, std::initializer_list<const char*> words, bool any_case) {
  for (const char* candidate : words) {
    if ((any_case ? strcasecmp(word, candidate) : strcmp(word, candidate)) == 0) return true;
  }
  return false;
}

std::string quoted(const char* text) {
  return "\"" + std::string(text) + "\"";
}

std::string lower_case(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

/// The text without the blanks and line ends around it.
std::string text_of(switch_xml_t element) {
  const std::string text = switch_xml_txt(element);
  const size_t first = text.find_first_not_of(" \t\r\n");
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

/// One file, whose mistakes are logged with its path and their line.
class File {
 public:
  explicit File(std::string path) : path_(std::move(path)) {}

  void Mistake(switch_xml_t element, const std::string& what) const {
    const int line = switch_xml_line(element);
    const std::string place = path_ + (line > 0 ? ":" + std::to_string(line) : "");
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s: %s\n", place.c_str(), what.c_str());
  }

  /// Tells of each attribute that nobody reads, and what becomes of it.
  void ExpectAttributes(switch_xml_t element, std::initializer_list<const char*> known,
                        const char* end = "; ignored") const {
    for (char** at = element->attr; at && at[0]; at += 2) {
      if (is_one_of(at[0], known, false)) continue;
      Mistake(element, "a <" + std::string(element->name) + "> has no attribute " + quoted(at[0]) + end);
    }
  }

  /// False, and told, for an element of another name: a mistyped one.
  bool Expect(switch_xml_t element, std::initializer_list<const char*> names) const {
    if (is_one_of(element->name, names, false)) return true;
    std::string expected;
    for (const char* name : names) expected += (expected.empty() ? "<" : " or <") + std::string(name) + ">";
    Mistake(element, "expected " + expected + ", not <" + element->name + ">; ignored");
    return false;
  }

 private:
  const std::string path_;
};

/// kelvaro_media_server.conf.xml: the paths that it names, when they are good for anything.
struct ModuleFile {
  std::string config;
  std::string statsfilter;

  void Read() {
    const char kName[] = "kelvaro_media_server.conf";
    switch_xml_t configuration = nullptr;
    const XmlDocument document(switch_xml_open_cfg(kName, &configuration, nullptr));
    if (!document) return;  // logged with its reason
    const char* directory = SWITCH_GLOBAL_dirs.conf_dir;
    const File file(std::string(directory ? directory : ".") + "/autoload_configs/" + kName + ".xml");
    std::set<std::string> names;
    file.ExpectAttributes(configuration, {"name", "description"});
    for (switch_xml_t section = configuration->child; section; section = section->ordered) {
      if (!file.Expect(section, {"settings"})) continue;
      file.ExpectAttributes(section, {});
      for (switch_xml_t param = section->child; param; param = param->ordered) {
        if (file.Expect(param, {"param"})) ReadParam(file, param, names);
      }
    }
    if (names.count("config") == 0) file.Mistake(configuration, "no \"config\" given");
  }

 private:
  void ReadParam(const File& file, switch_xml_t param, std::set<std::string>& names) {
    const char* name = switch_xml_attr_soft(param, "name");
    const char* value = switch_xml_attr_soft(param, "value");
    file.ExpectAttributes(param, {"name", "value"});
    if (!names.insert(lower_case(name)).second)
      file.Mistake(param, quoted(name) + " stands here again; the last counts");
    if (strcasecmp(name, "config") == 0) {
      ReadPath(file, param, config);
    } else if (strcasecmp(name, "statsfilter") == 0) {
      ReadPath(file, param, statsfilter);
    } else if (strcasecmp(name, "enable_jsr309_trace") != 0) {
      file.Mistake(param, "unknown parameter " + quoted(name) + ", ignored");
    } else if (!is_one_of(value, {"true", "false"}, true)) {
      file.Mistake(param, quoted(name) + " is " + quoted(value) + ", not \"true\" or \"false\"; taken as false");
    }
  }

  static void ReadPath(const File& file, switch_xml_t param, std::string& path) {
    const char* value = switch_xml_attr_soft(param, "value");
    const std::string what = quoted(switch_xml_attr_soft(param, "name")) + " is " + quoted(value);
    if (!switch_is_file_path(value)) {
      file.Mistake(param, what + ", not an absolute path");
    } else if (access(value, R_OK) != 0) {
      file.Mistake(param, what + ": " + std::strerror(errno));
    } else {
      path = value;
    }
  }
};

void check_codec(const File& file, switch_xml_t codec) {
  file.ExpectAttributes(codec, {});
  for (switch_xml_t child = codec->child; child; child = child->ordered) {
    file.Expect(child, {"sampling_rate", "bit_rate"});
  }
  bool known = false;
  for (const media_server_codec* entry = g_codec_map; entry->codec_id != -1; ++entry) {
    if (strcmp(codec->name, entry->iana_name) != 0) continue;
    if (entry->iananame_check_only != 0) return;
    known = true;
    if (text_of(switch_xml_child(codec, "sampling_rate")) == std::to_string(entry->sampling_rate) &&
        text_of(switch_xml_child(codec, "bit_rate")) == std::to_string(entry->bps)) {
      return;
    }
  }
  if (!known) {
    file.Mistake(codec, "no codec \"" + std::string(codec->name) + "\", ignored");
    return;
  }
  file.Mistake(codec, "no codec \"" + std::string(codec->name) + "\" of sampling_rate \"" +
                          text_of(switch_xml_child(codec, "sampling_rate")) + "\" and bit_rate \"" +
                          text_of(switch_xml_child(codec, "bit_rate")) + "\", ignored");
}

#ifdef KVX_LIBRARY_CHECKS_CONFIGURATION
/// The element that a path such as "jsr309.media_servers.media_server[2].capacity" names, or the one nearest to it. Of
/// several of its name the last with that text: of two that are alike the second is the one too many.
switch_xml_t find_element(switch_xml_t root, const std::string& path, const std::string& value) {
  switch_xml_t found = root;
  size_t at = std::min(path.find('.'), path.size());
  while (at < path.size()) {
    const size_t end = std::min(path.find('.', at + 1), path.size());
    const std::string step = path.substr(at + 1, end - at - 1);
    at = end;
    const size_t bracket = std::min(step.find('['), step.size());
    const int number = bracket < step.size() ? std::atoi(step.c_str() + bracket + 1) : 1;
    switch_xml_t child = switch_xml_child(found, step.substr(0, bracket).c_str());
    for (int i = 1; child && i < number; ++i) child = child->next;
    if (!child) break;
    found = child;
    for (; bracket == step.size() && child; child = child->next) {
      if (text_of(child) == value) found = child;
    }
  }
  return found;
}

/// Some the library ignores, some it takes for settings that it does not know.
void expect_no_attributes(const File& file, switch_xml_t element) {
  if (!element) return;
  file.ExpectAttributes(element, {}, "");
  for (switch_xml_t child = element->child; child; child = child->ordered) expect_no_attributes(file, child);
}

void check_media_servers(const File& file, const char* path, switch_xml_t root) {
  expect_no_attributes(file, switch_xml_child(root, "media_servers"));
  for (const auto& mistake : kelvaro::jsr309::CheckConfiguration(path)) {
    if (mistake.element.find("<xmlattr>") != std::string::npos) continue;  // told above
    const std::string element =
        mistake.element.empty() ? "" : "element " + mistake.element + ", value \"" + mistake.value + "\": ";
    file.Mistake(find_element(root, mistake.element, mistake.value), element + mistake.reason);
  }
}
#endif

/// What tells a codec from others.
std::string identity_of(switch_xml_t codec) {
  return std::string(codec->name) + "/" + text_of(switch_xml_child(codec, "sampling_rate")) + "/" +
         text_of(switch_xml_child(codec, "bit_rate"));
}

void expect_children(const File& file, switch_xml_t parent, std::initializer_list<const char*> names) {
  if (!parent) return;
  file.ExpectAttributes(parent, {});
  for (switch_xml_t child = parent->child; child; child = child->ordered) file.Expect(child, names);
}

void check_library_file(const std::string& path) {
  const XmlDocument root(switch_xml_parse_file_as_it_is(path.c_str()));
  if (!root) return;  // logged with its line
  const File file(path);
  if (!file.Expect(root.get(), {"jsr309"})) return;
  expect_children(file, root.get(), {"media", "media_servers"});
  switch_xml_t media = switch_xml_child(root.get(), "media");
  expect_children(file, media, {"codec"});
  switch_xml_t codecs = switch_xml_child(media, "codec");
  expect_children(file, codecs, {"audio"});
  switch_xml_t audio = switch_xml_child(codecs, "audio");
  std::set<std::string> told;
  for (switch_xml_t codec = audio ? audio->child : nullptr; codec; codec = codec->ordered) {
    check_codec(file, codec);
    if (!told.insert(identity_of(codec)).second)
      file.Mistake(codec, "codec \"" + std::string(codec->name) + "\" stands here again; ignored");
  }
  if (!audio) file.Mistake(root.get(), "no element jsr309.media.codec.audio: no codec will be offered");
#ifdef KVX_LIBRARY_CHECKS_CONFIGURATION
  check_media_servers(file, path.c_str(), root.get());
#endif
}

/// One of what stands in a figure.
void check_item(const File& file, switch_xml_t item, std::set<std::string>& items) {
  const std::string text = text_of(item);
  const std::string name = item->name;
  file.ExpectAttributes(item, {});
  if (!items.insert(name).second) return file.Mistake(item, "a second <" + name + ">; ignored");
  if (name == "application") {
    if (!is_one_of(text.c_str(), {"usage", "duration", "hardware"}, false))
      file.Mistake(item, "no report \"" + text + "\": it is usage, duration or hardware");
  } else if (name == "xmlviewname") {
    if (text.find_first_of(" \t\r\n") != std::string::npos)
      file.Mistake(item, "xmlviewname \"" + text + "\" has a blank in it");
  } else if (text.substr(0, text.find_last_not_of('.') + 1).find('.') != std::string::npos) {
    file.Mistake(item, "viewname \"" + text + "\" has a point in it: text reports show no value under it");
  }
}

/// Text of a view name as reports take it: points at the end are dropped.
std::string view_of(switch_xml_t figure, const char* name) {
  const std::string text = text_of(switch_xml_child(figure, name));
  return text.substr(0, text.find_last_not_of('.') + 1);
}

class Figures {
 public:
  explicit Figures(const File& file) : file_(file) {}

  void Check(switch_xml_t figure) {
    const std::string name = figure->name;
    file_.ExpectAttributes(figure, {});
    if (!is_one_of(figure->name,
                   {"active_calls", "max_calls", "active_calls_percentage", "max_calls_percentage", "min_duration",
                    "max_duration", "avg_duration"},
                   true)) {
      file_.Mistake(figure, "no figure \"" + name + "\": its column stays empty");
    }
    std::set<std::string> items;
    for (switch_xml_t item = figure->child; item; item = item->ordered) {
      if (file_.Expect(item, {"application", "viewname", "xmlviewname"})) check_item(file_, item, items);
    }
    if (!figures_.insert(name).second) {
      file_.Mistake(figure,
                    "a second <" + name + ">: the first counts for both; write it in capitals to show it twice");
      return;
    }
    CheckEffect(figure);
  }

 private:
  void CheckEffect(switch_xml_t figure) {
    const std::string name = figure->name;
    if (!switch_xml_child(figure, "application")) {
      file_.Mistake(figure, "no application in \"" + name + "\": no report shows it");
    } else if (view_of(figure, "viewname").empty() && view_of(figure, "xmlviewname").empty()) {
      file_.Mistake(figure, "no viewname and no xmlviewname in \"" + name + "\": no report shows it");
    }
    const std::string application = text_of(switch_xml_child(figure, "application"));
    for (const char* kind : {"viewname", "xmlviewname"}) {
      const std::string view = view_of(figure, kind);
      if (view.empty() || views_.insert(application + " " + kind + " " + view).second) continue;
      file_.Mistake(switch_xml_child(figure, kind),
                    std::string(kind) + " \"" + view + "\" is that of another figure of the same report");
    }
  }

  const File& file_;
  std::set<std::string> figures_;  // names so far
  std::set<std::string> views_;    // columns so far, with their reports
};

void check_statistics_filter(const std::string& path) {
  const XmlDocument root(switch_xml_parse_file_as_it_is(path.c_str()));
  if (!root) return;  // logged with its line
  const File file(path);
  if (!file.Expect(root.get(), {"statsconfig"})) return;
  file.ExpectAttributes(root.get(), {});
  Figures figures(file);
  for (switch_xml_t figure = root->child; figure; figure = figure->ordered) figures.Check(figure);
}

}  // namespace

void mod_kelvaro_media_server_check_configuration(void) {
  ModuleFile module_file;
  module_file.Read();
  if (!module_file.config.empty()) check_library_file(module_file.config);
  if (!module_file.statsfilter.empty()) check_statistics_filter(module_file.statsfilter);
}

#endif
