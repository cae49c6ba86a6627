#pragma once

#include <switch.h>

#include <bitset>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "sip/pattern.h"

namespace kvx_switch {

enum class EventFormat { kPlain, kJson, kXml };

/// "plain", "json", "xml", as clients name them.
const char* EventFormatName(EventFormat format);

/// A switch fires many events and a client wants few of them. This is what one client wants: kinds, subclasses of
/// CUSTOM, headers that must or must not have a value, and in which form they are to come. A value, copied at will.
class EventSubscription {
 public:
  /// Adds the events named in `words`, parted by blanks: kinds in any case ("ALL" is every kind), and behind "CUSTOM"
  /// subclasses. Words that name nothing are passed over; false when none named a kind.
  bool Add(std::string_view words);
  /// Takes away what Add would add.
  bool Remove(std::string_view words);
  /// Every event of this leg, beside what else is wanted; takes the place of another leg.
  void AddLeg(const std::string& uuid);
  /// No events at all; the filters and the format stay.
  void Clear();

  /// An event passes when one filter at least matches, and none that begins with "-" does; filters of that kind alone
  /// let all others pass. `value` is compared without case; "/.../" is a regular expression. False, with the reason,
  /// when the expression is none.
  bool AddFilter(const std::string& header, const std::string& value, std::string& problem);
  /// Forgets the filters of that header and value; with an empty value all of the header, with the header "all" all.
  void RemoveFilters(const std::string& header, const std::string& value);

  void set_format(EventFormat format) { format_ = format; }
  EventFormat format() const { return format_; }
  bool WantsAny() const { return kinds_.any() || !leg_.empty(); }
  bool Wants(switch_event_t& event) const;

 private:
  struct Filter {
    std::string header;
    std::string value;                          // as it was given
    bool wanted;                                // false: events that match are kept away
    std::string text;                           // the value without its sign
    std::shared_ptr<const Pattern> expression;  // null: none

    bool Matches(switch_event_t& event) const;
  };
  struct Words;

  static Words Read(std::string_view words);
  bool WantsKind(const switch_event_t& event) const;
  bool PassesFilters(switch_event_t& event) const;

  EventFormat format_ = EventFormat::kPlain;
  std::bitset<SWITCH_EVENT_ALL> kinds_;
  bool any_subclass_ = false;
  std::set<std::string> subclasses_;
  std::string leg_;  // empty: whatever leg
  std::vector<Filter> filters_;
};

}  // namespace kvx_switch
