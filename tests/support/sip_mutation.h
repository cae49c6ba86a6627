#pragma once

#include <random>
#include <string>

namespace test_support {

/// A SIP message with one to three things in it that no phone does: cut short, bits turned over, headers gone, repeated
/// or in another order, numbers that no counter holds, bytes that no text has, a description with lines gone wrong. The
/// same seed makes the same messages.
class SipMutation {
 public:
  explicit SipMutation(unsigned seed) : random_(seed) {}

  /// `message` has CRLF line ends.
  std::string operator()(std::string message);
  /// 0 to `most` - 1.
  size_t Below(size_t most) { return std::uniform_int_distribution<size_t>(0, most - 1)(random_); }

 private:
  void Mutate(std::string& message);
  void Truncate(std::string& message);
  void FlipBits(std::string& message);
  void ChangeLines(std::string& message);
  void ReplaceNumber(std::string& message);
  void InsertBytes(std::string& message);
  void ReplaceByte(std::string& message);

  std::mt19937 random_;
};

}  // namespace test_support
