#include "console/event_message.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "core/event.h"
#include "core/text_escape.h"

namespace kvx_switch {
namespace {

std::string taken(switch_status_t status, char* text) {
  const std::unique_ptr<char, decltype(&std::free)> owner(text, &std::free);
  return status == SWITCH_STATUS_SUCCESS && text != nullptr ? text : "";
}

/// A header's name as an element's: what XML does not allow in one (XML 1.0, 2.3) becomes "_".
std::string element_name(const char* name) {
  std::string element;
  for (; *name != '\0'; ++name) {
    const auto c = static_cast<unsigned char>(*name);
    const bool fits = c < 0x80 && (std::isalnum(c) || std::strchr("_-.", c) != nullptr);
    element += fits ? *name : '_';
  }
  const bool starts_well = !element.empty() && (element[0] == '_' || std::isalpha(static_cast<int>(element[0])));
  return starts_well ? element : "_" + element;
}

std::string xml(const switch_event_t& event) {
  std::string text = "<event>\n  <headers>\n";
  for (const switch_event_header_t* header = event.headers; header != nullptr; header = header->next) {
    const std::string name = element_name(header->name);
    text += "    <" + name + ">" + XmlText(UrlEncoded(header->value)) + "</" + name + ">\n";
  }
  text += "  </headers>\n";
  if (event.body != nullptr) {
    text += "  <Content-Length>" + std::to_string(std::strlen(event.body)) + "</Content-Length>\n  <body>" +
            XmlText(event.body) + "</body>\n";
  }
  return text + "</event>\n";
}

std::string serialized(switch_event_t& event, EventFormat format) {
  char* text = nullptr;
  switch (format) {
    case EventFormat::kJson: {
      const switch_status_t status = switch_event_serialize_json(&event, &text);
      return taken(status, text);
    }
    case EventFormat::kXml:
      return xml(event);
    case EventFormat::kPlain:
      break;
  }
  const switch_status_t status = switch_event_serialize(&event, &text, SWITCH_TRUE);
  return taken(status, text);
}

}  // namespace

std::string EventMessage(switch_event_t& event, EventFormat format) {
  const std::string body = serialized(event, format);
  return "Content-Length: " + std::to_string(body.size()) + "\nContent-Type: text/event-" + EventFormatName(format) +
         "\n\n" + body;
}

}  // namespace kvx_switch
