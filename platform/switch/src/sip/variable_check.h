#pragma once

#include <string>

/// Values of the customary channel variables as far as they can be judged before a call: a mistyped one is else found
/// out by a call that rings too long or goes unencrypted. Pure functions.
namespace kvx_switch {

/// What is wrong with giving a leg this variable; "" when nothing is. Names that nobody here knows are the operator's
/// own and take any value; so does every name an empty one, which is as if it were not set. What holds a reference of
/// the dialplan ("$1", "${name}") is only known when a call runs it, and passes.
std::string FaultOfVariable(const std::string& name, const std::string& value);

}  // namespace kvx_switch
