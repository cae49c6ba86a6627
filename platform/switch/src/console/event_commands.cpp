#include "console/event_commands.h"

#include <switch.h>

#include <strings.h>

#include <algorithm>
#include <tuple>
#include <utility>

namespace kvx_switch {
namespace {

/// "first rest of it" in two; blanks around the first word go, those inside the rest stay.
std::pair<std::string, std::string> first_word(const std::string& text) {
  const size_t start = std::min(text.find_first_not_of(' '), text.size());
  const size_t end = std::min(text.find(' ', start), text.size());
  const size_t rest = std::min(text.find_first_not_of(' ', end), text.size());
  return {text.substr(start, end - start), text.substr(rest)};
}

bool read_format(const std::string& name, EventSubscription& wanted) {
  for (const EventFormat format : {EventFormat::kPlain, EventFormat::kJson, EventFormat::kXml}) {
    if (strcasecmp(name.c_str(), EventFormatName(format)) != 0) continue;
    wanted.set_format(format);
    return true;
  }
  return false;
}

bool is_leg(const std::string& uuid) {
  switch_core_session_t* session = switch_core_session_locate(uuid.c_str());
  if (session == nullptr) return false;
  switch_core_session_rwunlock(session);
  return true;
}

}  // namespace

std::string EventCommands::Event(const std::string& arguments) {
  EventSubscription wanted = wanted_;
  const auto [first, rest] = first_word(arguments);
  if (!wanted.Add(read_format(first, wanted) ? rest : arguments)) return "-ERR no keywords supplied";
  wanted_ = std::move(wanted);
  listener_(wanted_);
  return std::string("+OK event listener enabled ") + EventFormatName(wanted_.format());
}

std::string EventCommands::NixEvent(const std::string& arguments) {
  if (!wanted_.Remove(arguments)) return "-ERR no keywords supplied";
  listener_(wanted_);
  return "+OK events nixed";
}

std::string EventCommands::NoEvents() {
  if (!wanted_.WantsAny()) return "-ERR not listening for events";
  wanted_.Clear();
  listener_(wanted_);
  return "+OK no longer listening for events";
}

std::string EventCommands::MyEvents(const std::string& arguments) {
  const auto [uuid, format] = first_word(arguments);
  if (uuid.empty() || !is_leg(uuid)) return "-ERR invalid uuid";
  if (!format.empty() && !read_format(format, wanted_)) return "-ERR \"" + format + "\" is no form of events";
  wanted_.AddLeg(uuid);
  listener_(wanted_);
  return "+OK Events Enabled";
}

std::string EventCommands::Filter(const std::string& arguments) {
  auto [header, value] = first_word(arguments);
  if (strcasecmp(header.c_str(), "delete") == 0 && !value.empty()) {
    std::tie(header, value) = first_word(value);
    return DeleteFilters(header, value);
  }
  if (strcasecmp(header.c_str(), "add") == 0) std::tie(header, value) = first_word(value);
  if (header.empty() || value.empty()) return "-ERR invalid syntax";
  std::string problem;
  if (!wanted_.AddFilter(header, value, problem)) return "-ERR " + problem;
  listener_(wanted_);
  return "+OK filter added. [" + header + "]=[" + value + "]";
}

std::string EventCommands::DeleteFilters(const std::string& header, const std::string& value) {
  wanted_.RemoveFilters(header, value);
  listener_(wanted_);
  return "+OK filter deleted. [" + header + "][" + value + "]";
}

}  // namespace kvx_switch
