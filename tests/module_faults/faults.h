/// A test's hand in the calls of the module's callbacks.
///
/// Some failures can only come about when another thread changes something between two steps of a callback, or when the
/// switch itself runs out of something. A test that waits for that to happen may wait for ever; here it happens on
/// command. Before one of the calls that interceptions.h and wrapped_calls.cpp name, it runs what the test has set:
///
///     Fault fault("RegisterMediaSessionUuid", [&] { table.RegisterMediaSessionUuid(leg, elsewhere); return true; });
///
/// A fault is set by the test's thread while no other works; any thread may come to it.
#pragma once

#include <functional>
#include <string>

namespace module_faults {

/// Set while it lives. False from the work lets a call of wrapped_calls.cpp fail; others take no notice of it.
class Fault {
 public:
  Fault(const std::string& call, std::function<bool()> work);
  ~Fault();
  Fault(const Fault&) = delete;
  Fault& operator=(const Fault&) = delete;

 private:
  const std::string call_;
};

/// Called by what is put in the module's way. True: go on.
bool reached(const std::string& call);

}  // namespace module_faults
