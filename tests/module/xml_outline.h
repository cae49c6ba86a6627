#pragma once

#include <expat.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace module_test {

/// What an XML parser that shares nothing with the writer of a text reads in it: "a/b/c=text" for every element without
/// children, in order. Throws std::runtime_error with the parser's words when the text is no XML document.
class XmlOutline {
 public:
  static std::vector<std::string> Of(const std::string& text) {
    XmlOutline outline;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &outline);
    XML_SetElementHandler(parser, &XmlOutline::Open, &XmlOutline::Close);
    XML_SetCharacterDataHandler(parser, &XmlOutline::Text);
    const bool taken = XML_Parse(parser, text.data(), static_cast<int>(text.size()), XML_TRUE) == XML_STATUS_OK;
    const std::string error = taken ? "" : XML_ErrorString(XML_GetErrorCode(parser));
    XML_ParserFree(parser);
    if (!taken) throw std::runtime_error(error + ": " + text);
    return std::move(outline.leaves_);
  }

 private:
  static void Open(void* self, const XML_Char* name, const XML_Char**) {
    auto& outline = *static_cast<XmlOutline*>(self);
    outline.path_.push_back(name);
    outline.text_.clear();
    outline.leaf_ = true;
  }
  static void Text(void* self, const XML_Char* text, int length) {
    static_cast<XmlOutline*>(self)->text_.append(text, static_cast<std::size_t>(length));
  }
  static void Close(void* self, const XML_Char*) {
    auto& outline = *static_cast<XmlOutline*>(self);
    if (outline.leaf_) {
      std::string path;
      for (const std::string& name : outline.path_) path += (path.empty() ? "" : "/") + name;
      outline.leaves_.push_back(path + "=" + outline.text_);
    }
    outline.leaf_ = false;
    outline.path_.pop_back();
  }

  std::vector<std::string> path_;
  std::string text_;
  bool leaf_ = false;
  std::vector<std::string> leaves_;
};

}  // namespace module_test
