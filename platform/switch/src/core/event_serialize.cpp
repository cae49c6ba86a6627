#include <map>
#include <string>
#include <vector>

#include "core/event.h"
#include "core/text_escape.h"

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

using kvx_switch::JsonString;

/// A line end inside a value would start a header of its own.
std::string on_one_line(std::string text) {
  for (char& c : text) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return text;
}

std::string json_value(const std::vector<const char*>& values) {
  if (values.size() == 1) return JsonString(values[0]);
  std::string list = "[";
  for (const char* value : values) {
    if (list.size() > 1) list += ',';
    list += JsonString(value);
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
    text += JsonString(name) + ':' + json_value(values);
  }
  if (event->body) {
    if (text.size() > 1) text += ',';
    text += "\"_body\":" + JsonString(event->body);
  }
  return hand_out(text + '}', str);
}
