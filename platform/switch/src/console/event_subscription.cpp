#include "console/event_subscription.h"

#include <strings.h>

#include <algorithm>
#include <utility>

namespace kvx_switch {
namespace {

bool same(const std::string& a, const std::string& b) {
  return strcasecmp(a.c_str(), b.c_str()) == 0;
}

std::string_view take_word(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  const std::string_view word = text.substr(0, text.find(' '));
  text.remove_prefix(word.size());
  return word;
}

}  // namespace

const char* EventFormatName(EventFormat format) {
  switch (format) {
    case EventFormat::kJson:
      return "json";
    case EventFormat::kXml:
      return "xml";
    case EventFormat::kPlain:
      break;
  }
  return "plain";
}

/// What a list of names stands for. Behind CUSTOM every word is a subclass, even one that is also a kind.
struct EventSubscription::Words {
  std::bitset<SWITCH_EVENT_ALL> kinds;
  bool all = false;
  std::vector<std::string> subclasses;

  bool empty() const { return !all && kinds.none(); }
};

EventSubscription::Words EventSubscription::Read(std::string_view text) {
  Words words;
  for (std::string_view word = take_word(text); !word.empty(); word = take_word(text)) {
    switch_event_types_t kind = SWITCH_EVENT_ALL;
    if (words.kinds[SWITCH_EVENT_CUSTOM]) {
      words.subclasses.emplace_back(word);
    } else if (switch_name_event(std::string(word).c_str(), &kind) == SWITCH_STATUS_SUCCESS) {
      words.all = words.all || kind == SWITCH_EVENT_ALL;
      if (kind != SWITCH_EVENT_ALL) words.kinds.set(kind);
    }
  }
  return words;
}

bool EventSubscription::Add(std::string_view text) {
  const Words words = Read(text);
  kinds_ |= words.kinds;
  subclasses_.insert(words.subclasses.begin(), words.subclasses.end());
  if (words.all) {
    kinds_.set();
    any_subclass_ = true;
  }
  return !words.empty();
}

bool EventSubscription::Remove(std::string_view text) {
  const Words words = Read(text);
  if (words.all) Clear();
  auto kinds = words.kinds;
  if (kinds[SWITCH_EVENT_CUSTOM] && !words.subclasses.empty()) {
    // With some subclasses named the others stay.
    kinds.reset(SWITCH_EVENT_CUSTOM);
    for (const std::string& subclass : words.subclasses) subclasses_.erase(subclass);
  } else if (kinds[SWITCH_EVENT_CUSTOM]) {
    any_subclass_ = false;
    subclasses_.clear();
  }
  kinds_ &= ~kinds;
  return !words.empty();
}

void EventSubscription::AddLeg(const std::string& uuid) {
  leg_ = uuid;
}

void EventSubscription::Clear() {
  kinds_.reset();
  any_subclass_ = false;
  subclasses_.clear();
  leg_.clear();
}

bool EventSubscription::AddFilter(const std::string& header, const std::string& value, std::string& problem) {
  Filter filter{header, value, true, value, nullptr};
  const size_t start = value.find_first_not_of("+- ");
  const std::string signs = value.substr(0, start);
  filter.wanted = signs.find('-') == std::string::npos;
  filter.text = start == std::string::npos ? "" : value.substr(start);
  const std::string& text = filter.text;
  if (text.size() >= 2 && text.front() == '/' && text.back() == '/') {
    filter.expression = Pattern::Compile(text.substr(1, text.size() - 2), problem);
    if (!filter.expression) return false;
  }
  filters_.push_back(std::move(filter));
  return true;
}

void EventSubscription::RemoveFilters(const std::string& header, const std::string& value) {
  filters_.erase(std::remove_if(filters_.begin(), filters_.end(),
                                [&](const Filter& filter) {
                                  if (same(header, "all")) return true;
                                  return same(filter.header, header) && (value.empty() || filter.value == value);
                                }),
                 filters_.end());
}

bool EventSubscription::Filter::Matches(switch_event_t& event) const {
  const char* found = switch_event_get_header(&event, header.c_str());
  if (found == nullptr) return false;
  if (expression) return expression->Search(found).has_value();
  // A telephone number may begin with the plus that is a sign elsewhere.
  return same(found, text) || (wanted && same(found, value));
}

bool EventSubscription::WantsKind(const switch_event_t& event) const {
  if (event.event_id >= SWITCH_EVENT_ALL || !kinds_[event.event_id]) return false;
  if (event.event_id != SWITCH_EVENT_CUSTOM || any_subclass_) return true;
  return event.subclass_name != nullptr && subclasses_.count(event.subclass_name) != 0;
}

bool EventSubscription::PassesFilters(switch_event_t& event) const {
  bool asked = false;
  bool matched = false;
  for (const Filter& filter : filters_) {
    asked = asked || filter.wanted;
    if (filter.wanted && matched) continue;
    if (!filter.Matches(event)) continue;
    if (!filter.wanted) return false;
    matched = true;
  }
  return matched || !asked;
}

bool EventSubscription::Wants(switch_event_t& event) const {
  bool wanted = WantsKind(event);
  if (!wanted && !leg_.empty()) {
    const char* leg = switch_event_get_header(&event, "Unique-ID");
    wanted = leg != nullptr && leg_ == leg;
  }
  return wanted && PassesFilters(event);
}

}  // namespace kvx_switch
