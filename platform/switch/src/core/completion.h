#pragma once

#include <functional>
#include <string>

#include <switch.h>

namespace kvx_switch {

/// While it lives, completions that this thread registers are marked as the module's.
class CompletionOwner {
 public:
  explicit CompletionOwner(const std::string& module);
  ~CompletionOwner();
  CompletionOwner(const CompletionOwner&) = delete;
  CompletionOwner& operator=(const CompletionOwner&) = delete;

 private:
  const std::string previous_;
};

void RemoveCompletionsOf(const std::string& module);
/// Removes the completion functions that `is_doomed` names; returns how many there were.
int RemoveCompletionFunctionsIf(const std::function<bool(void* function)>& is_doomed);
void ClearCompletions();

}  // namespace kvx_switch
