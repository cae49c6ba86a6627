#pragma once

#include <optional>
#include <string>
#include <vector>

/// Where a leg goes on: an extension of the dialplan, or applications that it runs right away. Values only.
namespace kvx_switch {

struct DialplanAction {
  std::string application;
  std::string data;  ///< with $1 replaced, ${name} not yet
};

struct Destination {
  std::string extension;
  std::string context;                  ///< empty: the one that the leg is in
  std::vector<DialplanAction> actions;  ///< not empty: run instead of what the dialplan has
};

/// Reads "extension [dialplan [context]]", blanks between the words; the only dialplan there is is "XML". `error` says
/// what is wrong when there is nothing to return.
std::optional<Destination> ParseDestination(const std::vector<std::string>& words, std::string& error);

/// The blank-separated words of `text`.
std::vector<std::string> WordsOf(const std::string& text);

}  // namespace kvx_switch
