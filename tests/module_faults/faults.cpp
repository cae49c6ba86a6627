#include "faults.h"

#include <map>

namespace module_faults {

namespace {

std::map<std::string, std::function<bool()>>& works() {
  static std::map<std::string, std::function<bool()>> set;
  return set;
}

}  // namespace

Fault::Fault(const std::string& call, std::function<bool()> work) : call_(call) {
  works()[call_] = std::move(work);
}

Fault::~Fault() {
  works().erase(call_);
}

bool reached(const std::string& call) {
  const auto found = works().find(call);
  return found == works().end() || found->second();
}

}  // namespace module_faults
