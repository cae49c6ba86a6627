#include "sip/located_xml.h"

#include <expat.h>
#include <switch.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "core/configuration.h"
#include "core/variables.h"

namespace kvx_switch {

namespace {

/// Replaces $${name}; a name that is not known is logged with its line and becomes nothing.
std::string ExpandGlobals(const std::string& path, const std::string& text) {
  return ExpandVariables(text, [&](const std::string& name, size_t offset) {
    auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(offset), '\n');
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s:%ld: no variable \"%s\", taken as empty\n",
                      path.c_str(), static_cast<long>(line), name.c_str());
  });
}

struct TreeBuilder {
  XML_Parser parser;
  LocatedElement top;                          // holds the root as its only child
  std::vector<LocatedElement*> open = {&top};  // innermost last; an open element gets no sibling, so addresses hold

  static void Start(void* self, const XML_Char* name, const XML_Char** attributes) {
    auto* builder = static_cast<TreeBuilder*>(self);
    LocatedElement element;
    element.name = name;
    element.line = static_cast<int>(XML_GetCurrentLineNumber(builder->parser));
    for (size_t i = 0; attributes[i]; i += 2) element.attributes.emplace_back(attributes[i], attributes[i + 1]);
    builder->open.back()->children.push_back(std::move(element));
    builder->open.push_back(&builder->open.back()->children.back());
  }

  static void End(void* self, const XML_Char*) { static_cast<TreeBuilder*>(self)->open.pop_back(); }
};

}  // namespace

const std::string* LocatedElement::Attribute(const std::string& attribute) const {
  for (const auto& [key, value] : attributes) {
    if (key == attribute) return &value;
  }
  return nullptr;
}

bool ReadLocatedXml(const std::string& path, LocatedElement& root, std::string& error) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  if (!file || !(content << file.rdbuf())) {
    error = path + ": cannot be read: " + std::strerror(errno);
    return false;
  }
  std::string text = ExpandGlobals(path, content.str());

  std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr), &XML_ParserFree);
  TreeBuilder builder;
  builder.parser = parser.get();
  XML_SetUserData(parser.get(), &builder);
  XML_SetElementHandler(parser.get(), TreeBuilder::Start, TreeBuilder::End);
  if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) != XML_STATUS_OK) {
    error = path + ":" + std::to_string(XML_GetCurrentLineNumber(parser.get())) + ": " +
            XML_ErrorString(XML_GetErrorCode(parser.get()));
    return false;
  }
  root = std::move(builder.top.children.front());
  return true;
}

bool ListXmlFiles(const std::string& directory, std::vector<std::string>& paths, std::string& error) {
  std::error_code problem;
  std::filesystem::directory_iterator entries(directory, problem);
  if (problem) {
    error = directory + ": cannot be listed: " + problem.message();
    return false;
  }
  for (const auto& entry : entries) {
    if (entry.path().extension() == ".xml") paths.push_back(entry.path().string());
  }
  std::sort(paths.begin(), paths.end());
  return true;
}

std::string At(const std::string& path, const LocatedElement& element) {
  return path + ":" + std::to_string(element.line) + ": ";
}

std::string UnknownAttributes(const std::string& path, const LocatedElement& element,
                              std::initializer_list<const char*> known, const char* end) {
  const bool vowel = std::string("aeiou").find(element.name.front()) != std::string::npos;
  std::string lines;
  for (const auto& [attribute, value] : element.attributes) {
    if (std::find(known.begin(), known.end(), attribute) != known.end()) continue;
    AddLine(lines, At(path, element) + (vowel ? "an <" : "a <") + element.name + "> has no attribute \"" + attribute +
                       "\"" + end);
  }
  return lines;
}

std::string PlaceOfParameter(const std::string& path, const std::string& name) {
  LocatedElement root;
  std::string ignored;
  std::string place = path + ": ";
  if (!ReadLocatedXml(path, root, ignored)) return place;
  for (const LocatedElement& section : root.children) {
    for (const LocatedElement& param : section.children) {
      const std::string* found = param.Attribute("name");
      if (found && *found == name) place = At(path, param);
    }
  }
  return place;
}

}  // namespace kvx_switch
