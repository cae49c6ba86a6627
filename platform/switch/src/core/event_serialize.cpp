#include <map>
#include <string>
#include <vector>

#include "core/event.h"

namespace kvx_switch {

std::string UrlEncoded(const char* text) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  for (; *text; ++text) {
    const auto c = static_cast<unsigned char>(*text);
    if (c > ' ' && c < 0x7F && !strchr("\"#%&+:;<=>?@[\\]^`{|}", c)) {
      encoded += static_cast<char>(c);
    } else {
      encoded += '%';
      encoded += kDigits[c >> 4];
      encoded += kDigits[c & 0x0F];
    }
  }
  return encoded;
}

}  // namespace kvx_switch

namespace {

/// A line end inside a value would start a header of its own.
std::string on_one_line(std::string text) {
  for (char& c : text) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return text;
}

/// Length of the UTF-8 sequence at `text` (RFC 3629); 0 when it is none.
size_t utf8_length(const unsigned char* text) {
  const unsigned char first = text[0];
  if (first < 0x80) return 1;
  const size_t length = first >= 0xC2 && first <= 0xDF   ? 2
                        : (first & 0xF0) == 0xE0         ? 3
                        : first >= 0xF0 && first <= 0xF4 ? 4
                                                         : 0;
  for (size_t i = 1; i < length; ++i) {
    if ((text[i] & 0xC0) != 0x80) return 0;
  }
  if ((first == 0xE0 && text[1] < 0xA0) || (first == 0xED && text[1] > 0x9F) || (first == 0xF0 && text[1] < 0x90) ||
      (first == 0xF4 && text[1] > 0x8F)) {
    return 0;
  }
  return length;
}

std::string json_string(const char* text) {
  std::string quoted = "\"";
  for (const auto* at = reinterpret_cast<const unsigned char*>(text); *at;) {
    const size_t length = utf8_length(at);
    if (length == 0) {
      quoted += "\xEF\xBF\xBD";  // U+FFFD in place of what is no character
      ++at;
    } else if (length > 1) {
      quoted.append(reinterpret_cast<const char*>(at), length);
      at += length;
    } else {
      const auto c = static_cast<char>(*at++);
      if (c == '"' || c == '\\') {
        quoted += '\\';
        quoted += c;
      } else if (c == '\n') {
        quoted += "\\n";
      } else if (c == '\r') {
        quoted += "\\r";
      } else if (c == '\t') {
        quoted += "\\t";
      } else if (static_cast<unsigned char>(c) < 0x20) {
        char escape[8];
        snprintf(escape, sizeof(escape), "\\u%04x", c);
        quoted += escape;
      } else {
        quoted += c;
      }
    }
  }
  return quoted += '"';
}

std::string json_value(const std::vector<const char*>& values) {
  if (values.size() == 1) return json_string(values[0]);
  std::string list = "[";
  for (const char* value : values) {
    if (list.size() > 1) list += ',';
    list += json_string(value);
  }
  return list += ']';
}

switch_status_t hand_out(const std::string& text, char** str) {
  *str = strdup(text.c_str());
  return *str ? SWITCH_STATUS_SUCCESS : SWITCH_STATUS_MEMERR;
}

}  // namespace

switch_status_t switch_event_serialize(switch_event_t* event, char** str, switch_bool_t encode) {
  std::string text;
  for (switch_event_header_t* header = event->headers; header; header = header->next) {
    // The length is that of the body below, not one that a header claims.
    if (event->body && !strcasecmp(header->name, "Content-Length")) continue;
    text += on_one_line(header->name) + ": ";
    text += encode ? kvx_switch::UrlEncoded(header->value) : on_one_line(header->value);
    text += '\n';
  }
  if (event->body) text += "Content-Length: " + std::to_string(strlen(event->body)) + "\n\n" + event->body;
  if (!event->body) text += '\n';
  return hand_out(text, str);
}

switch_status_t switch_event_serialize_json(switch_event_t* event, char** str) {
  // A name that comes several times becomes one member, at its first place, with a list of values.
  std::vector<std::pair<const char*, std::vector<const char*>>> members;
  std::map<std::string, size_t> places;
  for (switch_event_header_t* header = event->headers; header; header = header->next) {
    const auto [place, is_new] = places.emplace(header->name, members.size());
    if (is_new) members.push_back({header->name, {}});
    members[place->second].second.push_back(header->value);
  }
  std::string text = "{";
  for (const auto& [name, values] : members) {
    if (text.size() > 1) text += ',';
    text += json_string(name) + ':' + json_value(values);
  }
  if (event->body) {
    if (text.size() > 1) text += ',';
    text += "\"_body\":" + json_string(event->body);
  }
  return hand_out(text + '}', str);
}
