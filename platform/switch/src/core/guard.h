#pragma once

#include <exception>
#include <string>

namespace kvx_switch {

/// Where code of others is called (modules, sinks, receivers, legs), an exception of theirs stops: runs `call` and says
/// whether it returned; if not, `what` tells what was thrown.
template <typename Call>
bool RunGuarded(Call&& call, std::string& what) {
  try {
    call();
    return true;
  } catch (const std::exception& error) {
    what = error.what();
  } catch (...) {
    what = "(of unknown type)";
  }
  return false;
}

}  // namespace kvx_switch
