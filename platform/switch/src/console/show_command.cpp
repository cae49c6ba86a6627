#include <string>

#include <switch.h>

#include "console/builtin_commands.h"
#include "console/command_answer.h"
#include "console/show_tables.h"

namespace kvx_switch {
namespace {

Table make_channels() {
  return channels_table(ListSessions());
}
Table make_calls() {
  return calls_table(ListSessions());
}

struct Listing {
  const char* name;
  Table (*make)();
};

constexpr Listing kListings[] = {{"calls", &make_calls},
                                 {"channels", &make_channels},
                                 {"codecs", &codecs_table},
                                 {"api", &api_table},
                                 {"modules", &modules_table}};

struct Form {
  bool only_count = false;
  std::string format;  ///< "json", "xml"; "" for comma-separated values
};

/// Reads "[count] [as json|xml]", the two in either order.
bool parse_form(const std::vector<std::string>& words, size_t first, Form& form) {
  for (size_t i = first; i < words.size(); ++i) {
    if (equal_without_case(words[i], "count") && !form.only_count) {
      form.only_count = true;
    } else if (equal_without_case(words[i], "as") && form.format.empty() && i + 1 < words.size()) {
      form.format = words[++i];
      if (!equal_without_case(form.format, "json") && !equal_without_case(form.format, "xml")) return false;
    } else {
      return false;
    }
  }
  return true;
}

std::string rendered(const Table& table, const Form& form) {
  if (equal_without_case(form.format, "json")) return to_json(table, form.only_count);
  if (equal_without_case(form.format, "xml")) return to_xml(table, form.only_count);
  return form.only_count ? to_count(table) : to_csv(table);
}

}  // namespace

switch_status_t show_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  Form form;
  if (!words.empty() && parse_form(words, 1, form)) {
    for (const Listing& listing : kListings) {
      if (!equal_without_case(words[0], listing.name)) continue;
      write_text(stream, rendered(listing.make(), form));
      return SWITCH_STATUS_SUCCESS;
    }
  }
  return answer_usage(stream, "show", kShowSyntax);
}

}  // namespace kvx_switch
