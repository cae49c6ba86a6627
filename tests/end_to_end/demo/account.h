#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kvx_demo {

/// What the demo tells while it runs, and the reasons why it failed if it did. A check that is never reached is no
/// success: the verdict counts those that were.
class Account {
 public:
  Account();

  void Title(const std::string& text);
  void Step(const std::string& text);
  /// "label   text", both on one line.
  void Fact(const std::string& label, const std::string& text);
  /// Tells the outcome; a failed one is a reason for the verdict. Returns `holds`.
  bool Check(bool holds, const std::string& text, const std::string& reason = "");
  /// A failure outside of any check.
  void Failure(const std::string& reason);

  bool Failed() const { return !reasons_.empty(); }
  /// The last line. True when all of `checks` checks were made and held.
  bool Verdict(std::size_t checks);

 private:
  std::string Coloured(const char* code, const std::string& text) const;

  bool colours_;
  std::size_t steps_ = 0;
  std::size_t held_ = 0;
  std::vector<std::string> reasons_;
};

}  // namespace kvx_demo
