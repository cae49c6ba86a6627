#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "mod_kelvaro_media_server.h"

namespace module_test {

/// Some of what the module promises lies between two of its steps: which lock it holds while it hangs a leg up, whether
/// it rests before or after the library has stopped. And some of its failures cannot be brought about by any input. The
/// linker therefore sends the calls below through hooks, on their way from the module (or a test) to where they end.
///
/// A hook runs on the caller's thread, right before the call. Set and reset from any thread.
template <typename... Arguments>
class CallHook {
 public:
  using Function = std::function<void(Arguments...)>;

  void Set(Function function) {
    std::lock_guard<std::mutex> guard(mutex_);
    function_ = std::move(function);
  }
  void operator()(Arguments... arguments) {
    Function function;
    {
      std::lock_guard<std::mutex> guard(mutex_);
      function = function_;
    }
    if (function) function(arguments...);
  }

 private:
  std::mutex mutex_;
  Function function_;  // guarded by mutex_
};

struct CallHooks {
  CallHook<switch_module_interface_name_t> interface_made;  // switch_loadable_module_create_interface
  CallHook<std::string> completion;                         // switch_console_set_complete
  CallHook<switch_interval_time_t> sleep;                   // switch_sleep
  CallHook<switch_channel_t*, switch_call_cause_t> hangup;  // switch_channel_hangup
  CallHook<switch_core_session_t*> unlock;                  // switch_core_session_rwunlock
  std::atomic<bool> pool_is_full{false};                    // switch_core_strdup yields null
  std::atomic<bool> logger_fails{false};                    // loggers made meanwhile do not initialise
  /// As the lost listener sees it, every media session is there and has no legs; the table itself never says so.
  std::atomic<bool> leg_lists_are_empty{false};
};
CallHooks& call_hooks();

/// Sets a hook for as long as it lives.
template <typename Hook>
class WhileHooked {
 public:
  WhileHooked(Hook& hook, typename Hook::Function function) : hook_(hook) { hook_.Set(std::move(function)); }
  ~WhileHooked() { hook_.Set({}); }
  WhileHooked(const WhileHooked&) = delete;
  WhileHooked& operator=(const WhileHooked&) = delete;

 private:
  Hook& hook_;
};

/// Sets a flag for as long as it lives.
class WhileTrue {
 public:
  explicit WhileTrue(std::atomic<bool>& flag) : flag_(flag) { flag_ = true; }
  ~WhileTrue() { flag_ = false; }
  WhileTrue(const WhileTrue&) = delete;
  WhileTrue& operator=(const WhileTrue&) = delete;

 private:
  std::atomic<bool>& flag_;
};

}  // namespace module_test
