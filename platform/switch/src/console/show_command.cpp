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

}  // namespace

switch_status_t show_command(const char* cmd, switch_core_session_t*, switch_stream_handle_t* stream) {
  const auto words = words_of(cmd);
  const bool only_count = words.size() == 2 && equal_without_case(words[1], "count");
  if (words.size() == 1 || only_count) {
    for (const Listing& listing : kListings) {
      if (!equal_without_case(words[0], listing.name)) continue;
      const Table table = listing.make();
      write_text(stream, only_count ? to_count(table) : to_csv(table));
      return SWITCH_STATUS_SUCCESS;
    }
  }
  return answer_usage(stream, "show", kShowSyntax);
}

}  // namespace kvx_switch
