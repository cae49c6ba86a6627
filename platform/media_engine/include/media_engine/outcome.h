/// What became of a request.
#pragma once

#include <string>
#include <utility>

namespace media_engine {

/// Done, or not done and why. The reason is a sentence for an operator: it names the value and the place concerned.
struct [[nodiscard]] Outcome {
  bool ok = true;
  std::string reason;

  static Outcome Done() { return {}; }
  static Outcome Refused(std::string why) { return {false, std::move(why)}; }
  explicit operator bool() const { return ok; }
};

}  // namespace media_engine
