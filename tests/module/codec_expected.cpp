#include "module/codec_expected.h"

#include <tuple>

namespace module_test {

bool ExpectedImplementation::operator==(const ExpectedImplementation& other) const {
  const auto fields = [](const ExpectedImplementation& i) {
    return std::tie(i.iana, i.name, i.fmtp, i.rate, i.actual_rate, i.bit_rate, i.microseconds, i.samples,
                    i.decoded_bytes, i.encoded_bytes, i.frames);
  };
  return fields(*this) == fields(other);
}

void PrintTo(const ExpectedImplementation& i, std::ostream* out) {
  *out << "\n  {" << i.iana << ", \"" << i.name << "\", \"" << i.fmtp << "\", " << i.rate << ", " << i.actual_rate
       << ", " << i.bit_rate << ", " << i.microseconds << ", " << i.samples << ", " << i.decoded_bytes << ", "
       << i.encoded_bytes << ", " << i.frames << "}";
}

bool ExpectedCodec::operator==(const ExpectedCodec& other) const {
  return interface_name == other.interface_name && implementations == other.implementations;
}

void PrintTo(const ExpectedCodec& codec, std::ostream* out) {
  *out << codec.interface_name;
  for (const ExpectedImplementation& implementation : codec.implementations) PrintTo(implementation, out);
}

// Typed by hand, number by number: a table that were computed would repeat the mistakes of what it checks.
// clang-format off

const ExpectedCodec kPcmu = {"Kelvaro PCMU", {
    {0, "PCMU", "", 8000, 8000, 64000, 10000,  80, 160,  80,  80},
    {0, "PCMU", "", 8000, 8000, 64000, 20000, 160, 320, 160, 160},
    {0, "PCMU", "", 8000, 8000, 64000, 30000, 240, 480, 240, 240},
    {0, "PCMU", "", 8000, 8000, 64000, 40000, 320, 640, 320, 320},
    {0, "PCMU", "", 8000, 8000, 64000, 50000, 400, 800, 400, 400},
    {0, "PCMU", "", 8000, 8000, 64000, 60000, 480, 960, 480, 480}}};

const ExpectedCodec kPcma = {"Kelvaro PCMA", {
    {8, "PCMA", "", 8000, 8000, 64000, 10000,  80, 160,  80,  80},
    {8, "PCMA", "", 8000, 8000, 64000, 20000, 160, 320, 160, 160},
    {8, "PCMA", "", 8000, 8000, 64000, 30000, 240, 480, 240, 240},
    {8, "PCMA", "", 8000, 8000, 64000, 40000, 320, 640, 320, 320},
    {8, "PCMA", "", 8000, 8000, 64000, 50000, 400, 800, 400, 400},
    {8, "PCMA", "", 8000, 8000, 64000, 60000, 480, 960, 480, 480}}};

const ExpectedCodec kG726At16 = {"Kelvaro G.726 16k", {
    {124, "G726-16", "", 8000, 8000, 16000, 10000,  80, 160,  40,  80},
    {124, "G726-16", "", 8000, 8000, 16000, 20000, 160, 320,  80, 160},
    {124, "G726-16", "", 8000, 8000, 16000, 30000, 240, 480, 120, 240}}};

const ExpectedCodec kG726At24 = {"Kelvaro G.726 24k", {
    {123, "G726-24", "", 8000, 8000, 24000, 10000,  80, 160,  40,  80},
    {123, "G726-24", "", 8000, 8000, 24000, 20000, 160, 320,  80, 160},
    {123, "G726-24", "", 8000, 8000, 24000, 30000, 240, 480, 120, 240}}};

const ExpectedCodec kG726At32 = {"Kelvaro G.726 32k", {
    {122, "G726-32", "", 8000, 8000, 32000, 10000,  80, 160,  40,  80},
    {122, "G726-32", "", 8000, 8000, 32000, 20000, 160, 320,  80, 160},
    {122, "G726-32", "", 8000, 8000, 32000, 30000, 240, 480, 120, 240}}};

const ExpectedCodec kG726At40 = {"Kelvaro G.726 40k", {
    {121, "G726-40", "", 8000, 8000, 40000, 10000,  80, 160,  40,  80},
    {121, "G726-40", "", 8000, 8000, 40000, 20000, 160, 320,  80, 160},
    {121, "G726-40", "", 8000, 8000, 40000, 30000, 240, 480, 120, 240}}};

const ExpectedCodec kG722 = {"Kelvaro G722", {
    {9, "G722", "", 8000, 8000, 64000, 10000,  80, 160,  80,  80},
    {9, "G722", "", 8000, 8000, 64000, 20000, 160, 320, 160, 160},
    {9, "G722", "", 8000, 8000, 64000, 30000, 240, 480, 240, 240},
    {9, "G722", "", 8000, 8000, 64000, 40000, 320, 640, 320, 320}}};

const ExpectedCodec kGsm = {"Kelvaro GSM", {
    {3, "GSM", "", 8000, 8000, 13200, 20000, 160, 320, 33, 160}}};

const ExpectedCodec kG723 = {"Kelvaro G723", {
    {4, "G723", "", 8000, 8000, 6300, 30000, 240,  480, 24, 240},
    {4, "G723", "", 8000, 8000, 6300, 60000, 480,  960, 48, 480},
    {4, "G723", "", 8000, 8000, 6300, 90000, 720, 1440, 72, 720}}};

const ExpectedCodec kAmr = {"Kelvaro AMR", {
    {96, "AMR", "mode-set=0,1,2,3,4,5,6,7", 8000, 8000,  4750, 20000, 160, 320, 0, 160},
    {96, "AMR", "mode-set=0,1,2,3,4,5,6,7", 8000, 8000,  4750, 40000, 320, 640, 0, 320},
    {96, "AMR", "mode-set=0,1,2,3,4,5,6,7", 8000, 8000, 12200, 20000, 160, 320, 0, 160},
    {96, "AMR", "mode-set=0,1,2,3,4,5,6,7", 8000, 8000, 12200, 40000, 320, 640, 0, 320}}};

const ExpectedCodec kAmrWb = {"Kelvaro AMR-WB 23.85k", {
    {100, "AMR-WB", "mode-set=0,1,2,3,4,5,6,7,8", 16000, 16000, 23850,  20000,  320,  640, 0,  320},
    {100, "AMR-WB", "mode-set=0,1,2,3,4,5,6,7,8", 16000, 16000, 23850,  40000,  640, 1280, 0,  640},
    {100, "AMR-WB", "mode-set=0,1,2,3,4,5,6,7,8", 16000, 16000, 23850,  60000,  960, 1920, 0,  960},
    {100, "AMR-WB", "mode-set=0,1,2,3,4,5,6,7,8", 16000, 16000, 23850,  80000, 1280, 2560, 0, 1280},
    {100, "AMR-WB", "mode-set=0,1,2,3,4,5,6,7,8", 16000, 16000, 23850, 100000, 1600, 3200, 0, 1600}}};

const ExpectedCodec kG7221 = {"Kelvaro G722.1", {
    {107, "G7221", "bitrate=24000", 16000, 16000, 24000, 20000, 320, 640, 80, 1},
    {108, "G7221", "bitrate=32000", 16000, 16000, 32000, 20000, 320, 640, 80, 1}}};

const ExpectedCodec kIlbc = {"Kelvaro iLBC", {
    {98, "iLBC", "mode=20", 8000, 8000, 15200, 20000, 160, 320, 38, 1},
    {97, "iLBC", "mode=30", 8000, 8000, 13330, 30000, 240, 480, 50, 1}}};

const ExpectedCodec kG729 = {"Kelvaro G729", {
    {18, "G729", "", 8000, 8000, 8000,  10000,  80,  160,  10,  80},
    {18, "G729", "", 8000, 8000, 8000,  20000, 160,  320,  20, 160},
    {18, "G729", "", 8000, 8000, 8000,  30000, 240,  480,  30, 240},
    {18, "G729", "", 8000, 8000, 8000,  40000, 320,  640,  40, 320},
    {18, "G729", "", 8000, 8000, 8000,  50000, 400,  800,  50, 400},
    {18, "G729", "", 8000, 8000, 8000,  60000, 480,  960,  60, 480},
    {18, "G729", "", 8000, 8000, 8000,  70000, 560, 1120,  70, 560},
    {18, "G729", "", 8000, 8000, 8000,  80000, 640, 1280,  80, 640},
    {18, "G729", "", 8000, 8000, 8000,  90000, 720, 1440,  90, 720},
    {18, "G729", "", 8000, 8000, 8000, 100000, 800, 1600, 100, 800},
    {18, "G729", "", 8000, 8000, 8000, 110000, 880, 1760, 110, 880},
    {18, "G729", "", 8000, 8000, 8000, 120000, 960, 1920, 120, 960}}};

// clang-format on

}  // namespace module_test
