#include "console/event_socket_request.h"

#include <algorithm>
#include <charconv>

#include <strings.h>

namespace kvx_switch {
namespace {

std::string_view without_outer_blanks(std::string_view text) {
  const char* blanks = " \t";
  const size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// Takes the first line off the text, without its end.
std::string_view take_line(std::string_view& text) {
  const size_t end = std::min(text.find('\n'), text.size());
  std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

/// Only blanks separate the command from its arguments, and those between the arguments stay: commands have rules of
/// their own for them.
void parse_command_line(std::string_view line, EventSocketRequest& request) {
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  const size_t word_end = std::min(line.find(' '), line.size());
  request.command = line.substr(0, word_end);
  line.remove_prefix(word_end);
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  request.arguments = line;
}

EventSocketRequest parse_head(std::string_view head) {
  EventSocketRequest request;
  parse_command_line(take_line(head), request);
  while (!head.empty()) {
    const std::string_view line = take_line(head);
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    request.headers.emplace_back(without_outer_blanks(line.substr(0, colon)),
                                 without_outer_blanks(line.substr(colon + 1)));
  }
  return request;
}

bool same_without_case(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

EventSocketRequestParser::Result read_length(std::string_view text, size_t& length) {
  using Result = EventSocketRequestParser::Result;
  if (text.empty()) return Result::kRequest;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, length);
  if (parsed.ptr != end || parsed.ec == std::errc::invalid_argument) return Result::kMalformed;
  return parsed.ec == std::errc::result_out_of_range ? Result::kTooLarge : Result::kRequest;
}

}  // namespace

std::string_view EventSocketRequest::Header(std::string_view name) const {
  for (const auto& header : headers) {
    if (same_without_case(header.first, name)) return header.second;
  }
  return {};
}

EventSocketRequestParser::Result EventSocketRequestParser::Next(EventSocketRequest& request) {
  if (broken_ != Result::kMore) return broken_;
  const Result result = Take(request);
  if (result == Result::kTooLarge || result == Result::kMalformed) {
    broken_ = result;
    bytes_.clear();
    bytes_.shrink_to_fit();
  }
  return result;
}

EventSocketRequestParser::Result EventSocketRequestParser::Take(EventSocketRequest& request) {
  if (searched_ == 0) bytes_.erase(0, std::min(bytes_.find_first_not_of("\r\n"), bytes_.size()));
  const size_t head_end = FindEndOfHead();
  const std::string_view head = std::string_view(bytes_).substr(0, head_end);
  if (head.size() > limits_.head_bytes) return Result::kTooLarge;
  if (head.find('\0') != std::string_view::npos) return Result::kMalformed;
  if (head_end == std::string::npos) return Result::kMore;

  EventSocketRequest taken = parse_head(head);
  size_t length = 0;
  const Result result = read_length(taken.Header("Content-Length"), length);
  if (result != Result::kRequest) return result;
  if (length > limits_.body_bytes) return Result::kTooLarge;
  if (bytes_.size() - head_end < length) return Result::kMore;

  taken.body = bytes_.substr(head_end, length);
  bytes_.erase(0, head_end + length);
  searched_ = 0;
  request = std::move(taken);
  return Result::kRequest;
}

size_t EventSocketRequestParser::FindEndOfHead() {
  for (;;) {
    const size_t end = bytes_.find('\n', searched_);
    if (end == std::string::npos) return end;
    const bool empty = end == searched_ || (end == searched_ + 1 && bytes_[searched_] == '\r');
    if (empty) return end + 1;
    searched_ = end + 1;
  }
}

}  // namespace kvx_switch
