#include "account.h"

#include <unistd.h>

#include <cstdio>

namespace kvx_demo {
namespace {

constexpr std::size_t kLabelWidth = 16;
constexpr const char* kBold = "1";
constexpr const char* kGreen = "32";
constexpr const char* kRed = "31";

void say(const std::string& line) {
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

}  // namespace

Account::Account() : colours_(isatty(STDOUT_FILENO) == 1) {}

std::string Account::Coloured(const char* code, const std::string& text) const {
  return colours_ ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
}

void Account::Title(const std::string& text) {
  say(Coloured(kBold, text));
}

void Account::Step(const std::string& text) {
  say("");
  say(Coloured(kBold, std::to_string(++steps_) + ". " + text));
}

void Account::Fact(const std::string& label, const std::string& text) {
  const std::size_t padding = label.size() < kLabelWidth ? kLabelWidth - label.size() : 1;
  say("   " + label + std::string(padding, ' ') + text);
}

bool Account::Check(bool holds, const std::string& text, const std::string& reason) {
  if (holds) {
    ++held_;
    say("   " + Coloured(kGreen, "ok") + "     " + text);
  } else {
    const std::string why = reason.empty() ? text : text + ": " + reason;
    say("   " + Coloured(kRed, "FAILED") + " " + why);
    reasons_.push_back(why);
  }
  return holds;
}

void Account::Failure(const std::string& reason) {
  say("   " + Coloured(kRed, "FAILED") + " " + reason);
  reasons_.push_back(reason);
}

bool Account::Verdict(std::size_t checks) {
  if (reasons_.empty() && held_ != checks) {
    reasons_.push_back("only " + std::to_string(held_) + " of " + std::to_string(checks) + " checks were made");
  }
  say("");
  if (reasons_.empty()) {
    say(Coloured(kGreen, "VERDICT: the call passed through the module and everything was released"));
    return true;
  }
  std::string text;
  for (const std::string& reason : reasons_) text += (text.empty() ? "" : "; ") + reason.substr(0, reason.find('\n'));
  say(Coloured(kRed, "VERDICT: FAILED: " + text));
  return false;
}

}  // namespace kvx_demo
