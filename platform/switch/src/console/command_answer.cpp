#include "console/command_answer.h"

#include <algorithm>

#include <strings.h>

namespace kvx_switch {

std::vector<std::string> words_of(const char* cmd) {
  std::vector<std::string> words;
  std::string_view rest = cmd != nullptr ? cmd : "";
  const char* blanks = " \t";
  for (;;) {
    rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size()));
    if (rest.empty()) return words;
    const size_t end = std::min(rest.find_first_of(blanks), rest.size());
    words.emplace_back(rest.substr(0, end));
    rest.remove_prefix(end);
  }
}

void write_text(switch_stream_handle_t* stream, std::string_view text) {
  stream->write_function(stream, "%.*s", static_cast<int>(text.size()), text.data());
}

switch_status_t answer_ok(switch_stream_handle_t* stream, std::string_view text) {
  write_text(stream, text.empty() ? std::string("+OK\n") : "+OK " + std::string(text) + "\n");
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t answer_error(switch_stream_handle_t* stream, std::string_view reason) {
  write_text(stream, "-ERR " + std::string(reason) + "\n");
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t answer_usage(switch_stream_handle_t* stream, std::string_view name, std::string_view syntax) {
  const std::string call = syntax.empty() ? std::string(name) : std::string(name) + " " + std::string(syntax);
  write_text(stream, "-USAGE: " + call + "\n");
  return SWITCH_STATUS_SUCCESS;
}

bool equal_without_case(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace kvx_switch
