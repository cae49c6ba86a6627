#pragma once

#include <functional>
#include <string>
#include <utility>

#include "console/event_socket_request.h"
#include "console/event_subscription.h"

namespace kvx_switch {

/// The commands with which a client says what events it wants: each changes the subscription, hands it on and says the
/// reply's text ("+OK event listener enabled plain"). One thread at a time.
class EventCommands {
 public:
  /// Told the whole subscription whenever it has changed.
  using Listener = std::function<void(const EventSubscription& wanted)>;

  explicit EventCommands(Listener listener) : listener_(std::move(listener)) {}

  std::string Event(const std::string& arguments);     ///< [plain|json|xml] NAME...
  std::string NixEvent(const std::string& arguments);  ///< NAME...
  std::string NoEvents();
  std::string MyEvents(const std::string& arguments);  ///< UUID [plain|json|xml]
  std::string Filter(const std::string& arguments);    ///< HEADER VALUE | delete HEADER [VALUE]

 private:
  std::string DeleteFilters(const std::string& header, const std::string& value);

  const Listener listener_;
  EventSubscription wanted_;
};

}  // namespace kvx_switch
