#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace module_test {

/// One implementation as the switch must end up with it.
struct ExpectedImplementation {
  int iana;
  std::string name;
  std::string fmtp;  // "" for none
  unsigned rate;
  unsigned actual_rate;
  int bit_rate;
  int microseconds;
  unsigned samples;
  unsigned decoded_bytes;
  unsigned encoded_bytes;
  int frames;

  bool operator==(const ExpectedImplementation& other) const;
};
void PrintTo(const ExpectedImplementation& implementation, std::ostream* out);

/// One interface with its implementations in the order of their registration.
struct ExpectedCodec {
  std::string interface_name;
  std::vector<ExpectedImplementation> implementations;

  bool operator==(const ExpectedCodec& other) const;
};
void PrintTo(const ExpectedCodec& codec, std::ostream* out);

extern const ExpectedCodec kPcmu, kPcma, kG726At16, kG726At24, kG726At32, kG726At40, kG722, kGsm, kG723, kAmr, kAmrWb,
    kG7221, kIlbc, kG729;

}  // namespace module_test
