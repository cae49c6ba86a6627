#include "support/rtp_tone.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace test_support {
namespace {

constexpr int kSampleRate = 8000;
constexpr std::size_t kWindow = 800;  // 100 ms
constexpr double kLevel = 4096;       // of full scale 32768
constexpr double kSilence = 100;      // mean amplitude below which nobody speaks
constexpr double kMostlyTone = 0.9;
constexpr std::size_t kHeaderSize = 44;
constexpr double kPi = 3.14159265358979323846;

void put(std::string& out, std::uint32_t value, int octets) {
  for (int i = 0; i < octets; ++i) out.push_back(static_cast<char>(value >> (8 * i)));
}

std::uint32_t get(const std::string& in, std::size_t at, int octets) {
  std::uint32_t value = 0;
  for (int i = 0; i < octets; ++i) {
    value |= static_cast<std::uint32_t>(static_cast<unsigned char>(in[at + static_cast<std::size_t>(i)])) << (8 * i);
  }
  return value;
}

std::string wav_header(std::uint32_t octets) {
  std::string header = "RIFF";
  put(header, octets + kHeaderSize - 8, 4);
  header += "WAVEfmt ";
  put(header, 16, 4);
  put(header, 1, 2);  // linear
  put(header, 1, 2);  // channels
  put(header, kSampleRate, 4);
  put(header, 2 * kSampleRate, 4);
  put(header, 2, 2);
  put(header, 16, 2);
  header += "data";
  put(header, octets, 4);
  return header;
}

}  // namespace

void write_tone(const std::filesystem::path& file, int hertz, std::chrono::seconds length) {
  const long count = length.count() * kSampleRate;
  std::string bytes = wav_header(static_cast<std::uint32_t>(2 * count));
  for (long i = 0; i < count; ++i) {
    const double value = kLevel * std::sin(2 * kPi * hertz * static_cast<double>(i) / kSampleRate);
    put(bytes, static_cast<std::uint16_t>(static_cast<std::int16_t>(std::lround(value))), 2);
  }
  std::ofstream out(file, std::ios::binary);
  out << bytes;
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
}

std::vector<std::int16_t> read_recording(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  const std::string bytes = text.str();
  if (bytes.size() < kHeaderSize || bytes.compare(0, 4, "RIFF") != 0 || get(bytes, 22, 2) != 1 ||
      get(bytes, 24, 4) != kSampleRate) {
    throw std::runtime_error(file.string() + " is no recording of one channel at 8000 Hz");
  }
  std::vector<std::int16_t> samples;
  for (std::size_t at = kHeaderSize; at + 1 < bytes.size(); at += 2) {
    samples.push_back(static_cast<std::int16_t>(get(bytes, at, 2)));
  }
  return samples;
}

HeardTone listen_for_tone(const std::vector<std::int16_t>& samples, int hertz) {
  HeardTone heard;
  const double step = 2 * kPi * hertz / kSampleRate;
  for (std::size_t start = 0; start + kWindow <= samples.size(); start += kWindow) {
    double energy = 0;
    double in_phase = 0;
    double quadrature = 0;
    for (std::size_t i = 0; i < kWindow; ++i) {
      const double sample = samples[start + i];
      energy += sample * sample;
      in_phase += sample * std::cos(step * static_cast<double>(i));
      quadrature += sample * std::sin(step * static_cast<double>(i));
    }
    if (energy < kSilence * kSilence * kWindow) continue;
    // A pure tone of whole periods has all its energy in this one line of the spectrum.
    const double share = 2 * (in_phase * in_phase + quadrature * quadrature) / (kWindow * energy);
    (share >= kMostlyTone ? heard.tone : heard.other) += std::chrono::milliseconds(100);
  }
  return heard;
}

}  // namespace test_support
