#include "support/rtp_speech.h"

#include <algorithm>
#include <cmath>

namespace test_support {
namespace {

constexpr double kSampleRate = 8000.0;
constexpr double kPi = 3.14159265358979323846;

// std::uniform_int_distribution differs between standard libraries; the plan must not.
int draw(std::mt19937& random, int low, int high) {
  return low + static_cast<int>(random() % static_cast<std::uint32_t>(high - low + 1));
}

double draw_unit(std::mt19937& random) {
  return static_cast<double>(random()) / 2147483648.0 - 1.0;
}

}  // namespace

std::vector<SpeechSegment> plan_speech(int slots, std::chrono::milliseconds ptime, std::uint32_t seed) {
  std::mt19937 random(seed);
  const auto slots_of = [ptime](int ms) { return std::max(1, ms / static_cast<int>(ptime.count())); };
  std::vector<SpeechSegment> plan;
  int since_pause = 0;
  bool voiced = true;
  while (slots > 0) {
    const int pause = slots_of(draw(random, 160, 320));
    if (since_pause >= slots_of(900) && slots > pause) {
      plan.push_back({SpeechSegmentKind::kPause, pause});
      slots -= pause;
      since_pause = 0;
      voiced = true;
    }
    const int wanted = voiced ? slots_of(draw(random, 160, 400)) : slots_of(draw(random, 60, 160));
    const int length = std::min(slots, wanted);
    plan.push_back({voiced ? SpeechSegmentKind::kVoiced : SpeechSegmentKind::kUnvoiced, length});
    slots -= length;
    since_pause += length;
    voiced = !voiced;
  }
  return plan;
}

SpeechVoice::SpeechVoice(std::uint32_t seed)
    : random_(seed), first_formant_(MakeResonator(620, 90)), second_formant_(MakeResonator(1250, 130)) {}

SpeechVoice::Resonator SpeechVoice::MakeResonator(double frequency, double bandwidth) {
  const double radius = std::exp(-kPi * bandwidth / kSampleRate);
  Resonator resonator;
  resonator.feedback1 = 2 * radius * std::cos(2 * kPi * frequency / kSampleRate);
  resonator.feedback2 = -radius * radius;
  resonator.gain = 1 - radius;
  return resonator;
}

double SpeechVoice::Resonator::Step(double input) {
  const double output = gain * input + feedback1 * last + feedback2 * before_last;
  before_last = last;
  last = output;
  return output;
}

double SpeechVoice::Excitation(SpeechSegmentKind kind) {
  const double noise = draw_unit(random_);
  if (kind == SpeechSegmentKind::kPause) return noise * 20;
  if (kind == SpeechSegmentKind::kUnvoiced) {
    const double sharp = noise - last_noise_;  // what a hiss keeps is its high end
    last_noise_ = noise;
    return sharp * 4000;
  }
  if (samples_to_pulse_-- > 0) return noise * 400;
  samples_to_pulse_ = draw(random_, 58, 72);  // about 120 Hz, never quite steady
  return 90000;
}

std::vector<std::int16_t> SpeechVoice::Speak(SpeechSegmentKind kind, int samples) {
  std::vector<std::int16_t> out;
  out.reserve(static_cast<std::size_t>(samples));
  for (int i = 0; i < samples; ++i) {
    const double excitation = Excitation(kind);
    double value = excitation;
    if (kind == SpeechSegmentKind::kVoiced) value = second_formant_.Step(first_formant_.Step(excitation) * 6);
    out.push_back(static_cast<std::int16_t>(std::clamp(value, -32000.0, 32000.0)));
  }
  return out;
}

}  // namespace test_support
