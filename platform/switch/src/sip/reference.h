#pragma once

#include <string>

/// References of the dialplan's texts to what only a call knows: "$1" to "$9", groups of the condition's expression,
/// and
/// "${name}", variables of the leg. Pure functions.
namespace kvx_switch {

bool HasReference(const std::string& text);

/// The text with "$1" in place of every reference: what stands in braces is not taken for a part of the text then.
std::string WithPlainReferences(const std::string& text);

}  // namespace kvx_switch
