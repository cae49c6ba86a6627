#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kvx_switch {

/// A regular expression as users of such switches write it (Perl's syntax). Compiled once; any number of threads may
/// search with it at once. A search is bounded in time and memory, whatever the caller sent as its number.
class Pattern {
 public:
  /// Null, and `error` with what is wrong and where, when the text is no expression.
  static std::shared_ptr<const Pattern> Compile(const std::string& text, std::string& error);

  /// The whole match and its groups, "" for a group that took no part; none when nothing matches.
  std::optional<std::vector<std::string>> Search(const std::string& subject) const;

 private:
  struct FreeCode {
    void operator()(void* code) const;
  };

  explicit Pattern(void* code) : code_(code) {}

  const std::unique_ptr<void, FreeCode> code_;
};

}  // namespace kvx_switch
