#include "srtp_keys.h"

#include <algorithm>
#include <string>

#include "random_bits.h"

namespace media_engine {
namespace {

// RFC 3711, section 9.2: as many packets as there are indices.
constexpr int kRtpExponent = 48;
constexpr int kRtcpExponent = 31;

bool ParseSuite(const std::string& name, SrtpSuite& suite) {
  if (name == "AES_CM_128_HMAC_SHA1_80") {
    suite = SrtpSuite::kAesCm128HmacSha1_80;
  } else if (name == "AES_CM_128_HMAC_SHA1_32") {
    suite = SrtpSuite::kAesCm128HmacSha1_32;
  } else {
    return false;
  }
  return true;
}

bool AllDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

/// The decimal text as a big-endian number of that many octets; false when it needs more.
bool ToOctets(const std::string& decimal, std::vector<uint8_t>& octets) {
  for (const char digit : decimal) {
    unsigned carry = static_cast<unsigned>(digit - '0');
    for (auto octet = octets.rbegin(); octet != octets.rend(); ++octet) {
      carry += *octet * 10u;
      *octet = static_cast<uint8_t>(carry);
      carry >>= 8;
    }
    if (carry != 0) return false;
  }
  return true;
}

bool ParseMki(const std::string& text, std::vector<uint8_t>& mki) {
  const auto colon = text.find(':');
  if (colon == std::string::npos) return false;
  const std::string value = text.substr(0, colon), length = text.substr(colon + 1);
  if (!AllDigits(value) || !AllDigits(length) || length.size() > 3) return false;
  const auto octets = static_cast<std::size_t>(std::stoi(length));
  if (octets == 0 || octets > SrtpKeys::kLongestMki) return false;
  mki.assign(octets, 0);
  return ToOctets(value, mki);
}

/// Whoever fills in the wrong field may have put a key there.
std::string Quotable(const std::string& text) {
  if (text.find_first_not_of("0123456789:") == std::string::npos) return "'" + text + "'";
  return "of " + std::to_string(text.size()) + " characters";
}

}  // namespace

bool SrtpKeys::SameAs(const SrtpKeys& other) const {
  return suite == other.suite && master == other.master && mki == other.mki;
}

bool NamesSuite(const CryptoSettings& settings) {
  return !settings.suite.empty() && settings.suite != "NO_CRYPTO";
}

bool LeavesKeyToUs(const CryptoSettings& settings) {
  return NamesSuite(settings) && settings.key.empty();
}

Outcome ParseSrtpKeys(const CryptoSettings& settings, SrtpKeys& keys) {
  keys = SrtpKeys();
  if (!ParseSuite(settings.suite, keys.suite)) {
    return Outcome::Refused("crypto suite '" + settings.suite +
                            "' is not known (known: AES_CM_128_HMAC_SHA1_80, AES_CM_128_HMAC_SHA1_32)");
  }
  const auto refused = [&settings](const std::string& why) {
    return Outcome::Refused("crypto suite " + settings.suite + ": " + why);
  };
  if (!settings.key.empty() && settings.key.size() != SrtpKeys::kLength) {
    return refused("a key of " + std::to_string(settings.key.size()) + " octets, not " +
                   std::to_string(SrtpKeys::kLength));
  }
  const auto is_zero = [](uint8_t octet) { return octet == 0; };
  if (!settings.key.empty() && std::all_of(settings.key.begin(), settings.key.end(), is_zero)) {
    return refused("the key is all zero: nobody has filled it in");
  }
  if (settings.lifetime_exponent < 0 || settings.lifetime_exponent > kRtpExponent) {
    return refused("lifetime exponent " + std::to_string(settings.lifetime_exponent) + " is not in 0-" +
                   std::to_string(kRtpExponent));
  }
  if (!settings.mki.empty() && !ParseMki(settings.mki, keys.mki)) {
    return refused("MKI " + Quotable(settings.mki) + " is not a value and its length in octets, 1 to " +
                   std::to_string(SrtpKeys::kLongestMki) + ", as in '1:4'");
  }
  keys.master = settings.key;
  const int exponent = settings.lifetime_exponent == 0 ? kRtpExponent : settings.lifetime_exponent;
  keys.rtp_lifetime = uint64_t{1} << exponent;
  keys.rtcp_lifetime = uint64_t{1} << std::min(exponent, kRtcpExponent);
  return Outcome::Done();
}

Outcome MakeMasterKey(SrtpKeys& keys) {
  keys.master.resize(SrtpKeys::kLength);
  if (FillRandomly(keys.master.data(), keys.master.size())) return Outcome::Done();
  keys.master.clear();
  return Outcome::Refused("no SRTP key: the system gives no random numbers");
}

}  // namespace media_engine
