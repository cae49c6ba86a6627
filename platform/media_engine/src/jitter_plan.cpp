#include "jitter_plan.h"

#include <algorithm>

namespace media_engine {
namespace {

constexpr int kLongestPdv = 200;
constexpr int kUsualInitialDelay = 40;
constexpr int kUsualMinDelay = 20;

/// Brings values into their ranges and keeps account of it.
class Corrector {
 public:
  explicit Corrector(std::string& corrections) : corrections_(corrections) {}

  /// A value that was not wished for is brought into the range without a word.
  int InRange(const char* name, const std::optional<int>& wished, int usual, int least, int most) {
    if (!wished) return std::clamp(usual, least, most);
    const int taken = std::clamp(*wished, least, most);
    if (taken != *wished) {
      Say(name + (" " + std::to_string(*wished)) + " ms is not in " + std::to_string(least) + "-" +
          std::to_string(most) + ", " + std::to_string(taken) + " is taken");
    }
    return taken;
  }
  void Say(const std::string& text) {
    if (!corrections_.empty()) corrections_ += "; ";
    corrections_ += text;
  }

 private:
  std::string& corrections_;
};

}  // namespace

bool operator==(const JitterPlan& a, const JitterPlan& b) {
  if (a.mode != b.mode) return false;
  return a.mode == JitterMode::kNone ||
         (a.initial_delay == b.initial_delay && a.min_delay == b.min_delay && a.max_delay == b.max_delay);
}

JitterPlan PlanJitterBuffer(const JitterBufferSettings& settings, std::string& corrections) {
  if (settings.mode == JitterMode::kNone) return {};
  const bool adaptive = settings.mode == JitterMode::kAdaptive;
  Corrector correct(corrections);
  const int most = correct.InRange("max PDV", settings.max_pdv_ms, kLongestPdv, 0, kLongestPdv);
  int least = 0;
  if (adaptive) least = correct.InRange("min delay", settings.min_delay_ms, kUsualMinDelay, 0, most);
  const int initial = correct.InRange("initial delay", settings.initial_delay_ms, kUsualInitialDelay, least, most);
  // What may not delay cannot even out.
  if (most == 0 || (!adaptive && initial == 0)) return {};
  return {settings.mode, milliseconds(initial), milliseconds(adaptive ? least : initial), milliseconds(most)};
}

}  // namespace media_engine
