#include "core/variables.h"

#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <string_view>

#include <switch.h>

#include "core/many_readers_lock.h"

namespace kvx_switch {
namespace {

struct Variables {
  /// Every look-up of a leg's variable that the leg does not have ends here, and hardly anything is ever set.
  ManyReadersLock mutex;
  std::map<std::string, char*, std::less<>> values;  // guarded by mutex; points into texts
  std::deque<std::string> texts;     // guarded by mutex; keeps what was handed out, also when it is replaced
  std::set<std::string> overridden;  // guarded by mutex

  void Set(const std::string& name, const char* value) {
    const auto found = values.find(name);
    if (found != values.end() && value && !strcmp(found->second, value)) return;
    if (!value) {
      values.erase(name);
      return;
    }
    texts.emplace_back(value);
    values[name] = texts.back().data();
  }
};

Variables& the_variables() {
  static Variables* const variables = new Variables;
  return *variables;
}

}  // namespace

void OverrideVariable(const std::string& name, const std::string& value) {
  Variables& variables = the_variables();
  std::lock_guard<ManyReadersLock> lock(variables.mutex);
  variables.Set(name, value.c_str());
  variables.overridden.insert(name);
}

void SetConfiguredVariable(const std::string& name, const std::string& value) {
  Variables& variables = the_variables();
  std::lock_guard<ManyReadersLock> lock(variables.mutex);
  if (!variables.overridden.count(name)) variables.Set(name, value.c_str());
}

void ClearVariables() {
  Variables& variables = the_variables();
  std::lock_guard<ManyReadersLock> lock(variables.mutex);
  variables.values.clear();
  variables.texts.clear();
  variables.overridden.clear();
}

std::string ExpandVariables(const std::string& text, const std::function<void(const std::string&, size_t)>& report) {
  std::string expanded;
  size_t at = 0;
  for (;;) {
    const size_t open = text.find("$${", at);
    const size_t close = open == std::string::npos ? open : text.find('}', open);
    if (close == std::string::npos) break;
    expanded.append(text, at, open - at);
    const std::string name = text.substr(open + 3, close - open - 3);
    if (const char* value = switch_core_get_variable(name.c_str())) {
      expanded += value;
    } else {
      report(name, open);
    }
    at = close + 1;
  }
  return expanded.append(text, at, std::string::npos);
}

}  // namespace kvx_switch

char* switch_core_get_variable(const char* varname) {
  if (!varname) return nullptr;
  auto& variables = kvx_switch::the_variables();
  std::shared_lock<kvx_switch::ManyReadersLock> lock(variables.mutex);
  const auto found = variables.values.find(std::string_view(varname));
  return found == variables.values.end() ? nullptr : found->second;
}

void switch_core_set_variable(const char* varname, const char* value) {
  if (!varname) return;
  auto& variables = kvx_switch::the_variables();
  std::lock_guard<kvx_switch::ManyReadersLock> lock(variables.mutex);
  variables.Set(varname, value);
}
