#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace test_support {

/// A phone that is a program of its own plays a file and records what it hears. A steady tone, another one for each
/// phone, tells from the recording alone who was heard and for how long. 16-bit samples, 8000 Hz, one channel.

/// A WAV file of that tone, 18 dB below full scale. `hertz` must be a multiple of 10, so that a window of 100 ms holds
/// whole periods. Throws std::runtime_error when it cannot be written.
void write_tone(const std::filesystem::path& file, int hertz, std::chrono::seconds length);

/// The samples of a recording, also of one whose header was not finished. Throws std::runtime_error when the file is no
/// WAV file of one channel at 8000 Hz.
std::vector<std::int16_t> read_recording(const std::filesystem::path& file);

struct HeardTone {
  std::chrono::milliseconds tone{0};   // windows of 100 ms in which nine tenths of the energy are the tone
  std::chrono::milliseconds other{0};  // windows with something else in them, those at the tone's edges included
};

HeardTone listen_for_tone(const std::vector<std::int16_t>& samples, int hertz);

}  // namespace test_support
