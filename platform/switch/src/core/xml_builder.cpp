#include "core/xml_builder.h"

#include <expat.h>
#include <switch_configuration_check.h>

#include <unordered_map>
#include <vector>

namespace kvx_switch {
namespace {

/// Trees are walked by recursion when they are freed.
constexpr size_t kDeepest = 200;

char* copy(const char* text, size_t length) {
  char* copied = strndup(text, length);
  switch_assert(copied != nullptr);
  return copied;
}

char* copy(const std::string& text) {
  return copy(text.data(), text.size());
}

/// The public element, and behind it what that has no place for. Freed as the public one, which stands first.
struct Element {
  switch_xml visible;
  int line;
};

switch_xml_t new_element(const char* name, const char* const* attributes, int line) {
  auto* whole = static_cast<Element*>(calloc(1, sizeof(Element)));
  switch_assert(whole != nullptr);
  whole->line = line;
  switch_xml_t element = &whole->visible;
  element->name = copy(name);
  size_t count = 0;
  while (attributes[count]) ++count;
  element->attr = static_cast<char**>(calloc(count + 1, sizeof(char*)));
  switch_assert(element->attr != nullptr);
  for (size_t i = 0; i < count; ++i) element->attr[i] = copy(attributes[i]);
  return element;
}

/// An element whose end is not reached yet, with what makes appending to it quick.
struct Open {
  switch_xml_t element;
  std::string text;
  switch_xml_t last = nullptr;              // in document order
  switch_xml_t last_of_new_name = nullptr;  // end of the chain of first elements of each name
  std::unordered_map<std::string, switch_xml_t> last_of_name;

  void Append(switch_xml_t child) {
    child->parent = element;
    child->off = text.size();
    (last ? last->ordered : element->child) = child;
    last = child;
    switch_xml_t& same = last_of_name[child->name];
    if (same) {
      same->next = child;
    } else {
      if (last_of_new_name) last_of_new_name->sibling = child;
      last_of_new_name = child;
    }
    same = child;
  }
};

class Builder {
 public:
  Builder() : parser_(XML_ParserCreate(nullptr)) {
    switch_assert(parser_ != nullptr);
    XML_SetUserData(parser_, this);
    XML_SetElementHandler(parser_, Start, End);
    XML_SetCharacterDataHandler(parser_, Text);
  }
  ~Builder() { XML_ParserFree(parser_); }
  Builder(const Builder&) = delete;
  Builder& operator=(const Builder&) = delete;

  switch_xml_t Parse(const std::string& text, std::string& error, unsigned long& line) {
    const auto length = static_cast<int>(text.size());
    if (XML_Parse(parser_, text.data(), length, XML_TRUE) == XML_STATUS_OK) return root_;
    error = too_deep_ ? "elements nested too deeply" : XML_ErrorString(XML_GetErrorCode(parser_));
    line = XML_GetCurrentLineNumber(parser_);
    for (Open& open : open_) open.element->txt = copy(open.text);
    switch_xml_free(root_);
    return nullptr;
  }

 private:
  static void XMLCALL Start(void* builder, const char* name, const char** attributes) {
    static_cast<Builder*>(builder)->OnStart(name, attributes);
  }
  static void XMLCALL End(void* builder, const char*) { static_cast<Builder*>(builder)->OnEnd(); }
  static void XMLCALL Text(void* builder, const char* text, int length) {
    auto& open = static_cast<Builder*>(builder)->open_;
    if (!open.empty()) open.back().text.append(text, static_cast<size_t>(length));
  }

  void OnStart(const char* name, const char** attributes) {
    if (open_.size() >= kDeepest) {
      too_deep_ = true;
      XML_StopParser(parser_, XML_FALSE);
      return;
    }
    switch_xml_t element = new_element(name, attributes, static_cast<int>(XML_GetCurrentLineNumber(parser_)));
    if (open_.empty()) {
      root_ = element;
    } else {
      open_.back().Append(element);
    }
    open_.push_back({element, {}, nullptr, nullptr, {}});
  }

  void OnEnd() {
    if (too_deep_ || open_.empty()) return;
    open_.back().element->txt = copy(open_.back().text);
    open_.pop_back();
  }

  const XML_Parser parser_;
  switch_xml_t root_ = nullptr;
  std::vector<Open> open_;
  bool too_deep_ = false;
};

}  // namespace

switch_xml_t ParseXml(const std::string& text, std::string& error, unsigned long& line) {
  if (text.size() > INT_MAX) {
    error = "more than 2 GB";
    line = 1;
    return nullptr;
  }
  return Builder().Parse(text, error, line);
}

switch_xml_t AppendXmlElement(switch_xml_t parent, const std::string& name, const std::string& text) {
  static const char* const kNoAttributes[] = {nullptr};
  switch_xml_t element = new_element(name.c_str(), kNoAttributes, 0);
  element->txt = copy(text);
  // Picks up the chains where the parser left them.
  Open open{parent, switch_str_nil(parent->txt), nullptr, nullptr, {}};
  for (switch_xml_t at = parent->child; at; at = at->ordered) {
    open.last = at;
    open.last_of_name[at->name] = at;
  }
  for (switch_xml_t at = parent->child; at; at = at->sibling) open.last_of_new_name = at;
  open.Append(element);
  return element;
}

}  // namespace kvx_switch

int switch_xml_line(switch_xml_t xml) {
  // Every element of the switch comes from new_element.
  return xml ? reinterpret_cast<kvx_switch::Element*>(xml)->line : 0;
}
