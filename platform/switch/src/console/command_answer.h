#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <switch.h>

namespace kvx_switch {

/// The words of a command's arguments, which blanks and tabs separate; `cmd` may be null.
std::vector<std::string> words_of(const char* cmd);

/// Writes text that may hold anything, percent signs included.
void write_text(switch_stream_handle_t* stream, std::string_view text);

/// The three answers that users know, each ending its line; they return SUCCESS, so that a command can end with one.
switch_status_t answer_ok(switch_stream_handle_t* stream, std::string_view text = {});
switch_status_t answer_error(switch_stream_handle_t* stream, std::string_view reason);
switch_status_t answer_usage(switch_stream_handle_t* stream, std::string_view name, std::string_view syntax);

bool equal_without_case(std::string_view a, std::string_view b);

}  // namespace kvx_switch
