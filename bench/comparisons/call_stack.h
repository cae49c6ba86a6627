/// What carries calls, signalling and media together, behind one face: the switch with the module, or a proxy with a
/// relay.
#pragma once

#include <memory>
#include <string>

#include "settings.h"

namespace bench {

constexpr char kStackSip[] = "127.0.0.3:5060";
constexpr char kCalleeAddress[] = "127.0.0.4";
constexpr int kCalleePort = 5080;
constexpr char kCallerAddress[] = "127.0.0.5";
constexpr int kCallerPort = 5070;
constexpr char kCalledNumber[] = "2000";

class CallStack {
 public:
  virtual ~CallStack() = default;
  virtual std::string name() const = 0;
  /// Of all its processes.
  virtual double CpuSeconds() = 0;
};

/// Both on the core of what is measured, with calls to kCalledNumber going to the callee.
std::unique_ptr<CallStack> StartSwitchStack(const Settings& settings);
std::unique_ptr<CallStack> StartKamailioStack(const Settings& settings);

}  // namespace bench
