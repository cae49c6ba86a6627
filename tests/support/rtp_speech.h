#pragma once

#include <chrono>
#include <cstdint>
#include <random>
#include <vector>

namespace test_support {

/// Test tones hide faults: a sine repeats itself, so that a lost, doubled or shifted packet may look like its
/// neighbour. This makes audio with the traits of speech instead: voiced stretches (a pitch pulse through two
/// formants), unvoiced ones (shaped noise) and pauses, no two packets alike. The same seed gives the same audio.
enum class SpeechSegmentKind { kVoiced, kUnvoiced, kPause };

struct SpeechSegment {
  SpeechSegmentKind kind = SpeechSegmentKind::kPause;
  int slots = 0;  // length in packets
};

/// Segments that fill exactly `slots` packets of `ptime`: starts with speech, pauses of at least 160 ms about once a
/// second as long as there is room for one and for speech after it.
std::vector<SpeechSegment> plan_speech(int slots, std::chrono::milliseconds ptime, std::uint32_t seed);

/// The voice: 16-bit samples at 8000 Hz, continuous over calls.
class SpeechVoice {
 public:
  explicit SpeechVoice(std::uint32_t seed);

  std::vector<std::int16_t> Speak(SpeechSegmentKind kind, int samples);

 private:
  struct Resonator {
    double feedback1 = 0;
    double feedback2 = 0;
    double gain = 0;
    double last = 0;
    double before_last = 0;
    double Step(double input);
  };

  static Resonator MakeResonator(double frequency, double bandwidth);
  double Excitation(SpeechSegmentKind kind);

  std::mt19937 random_;
  Resonator first_formant_;
  Resonator second_formant_;
  double last_noise_ = 0;
  int samples_to_pulse_ = 0;
};

}  // namespace test_support
