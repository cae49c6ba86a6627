#include "rtpengine/leg_crypto.h"

#include <sys/random.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

constexpr std::size_t kKeyLength = 30;
constexpr int kLongestLifetime = 48;
constexpr int kLongestMki = 128;
constexpr char kNoCrypto[] = "NO_CRYPTO";
constexpr const char* kMandatory = "crypto is mandatory and ";

bool NamesSuite(const MediaConfig& config) {
  return config.GetCrypto() && !config.GetCrypto()->suite.empty() && config.GetCrypto()->suite != kNoCrypto;
}
bool SaysNothing(const MediaConfig& config) {
  return !config.GetCrypto() || config.GetCrypto()->suite.empty();
}

bool AllDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

bool IsMki(const std::string& text) {
  const auto colon = text.find(':');
  if (colon == std::string::npos || !AllDigits(text.substr(0, colon))) return false;
  const std::string length = text.substr(colon + 1);
  int octets = 0;
  const auto [end, problem] = std::from_chars(length.data(), length.data() + length.size(), octets);
  return AllDigits(length) && problem == std::errc() && end == length.data() + length.size() && octets >= 1 &&
         octets <= kLongestMki;
}

/// Whoever fills in the wrong field may have put a key there.
std::string Quotable(const std::string& text) {
  if (text.find_first_not_of("0123456789:") == std::string::npos) return "'" + text + "'";
  return "of " + std::to_string(text.size()) + " characters";
}

std::string FaultIn(const MediaCrypto& crypto) {
  if (crypto.suite != "AES_CM_128_HMAC_SHA1_80" && crypto.suite != "AES_CM_128_HMAC_SHA1_32") {
    return "crypto suite '" + crypto.suite + "' is not known (known: AES_CM_128_HMAC_SHA1_80, AES_CM_128_HMAC_SHA1_32)";
  }
  const std::string suite = "crypto suite " + crypto.suite + ": ";
  if (!crypto.key.empty() && crypto.key.size() != kKeyLength) {
    return suite + "a key of " + std::to_string(crypto.key.size()) + " octets, not " + std::to_string(kKeyLength);
  }
  if (!crypto.key.empty() &&
      std::all_of(crypto.key.begin(), crypto.key.end(), [](uint8_t octet) { return octet == 0; })) {
    return suite + "the key is all zero: nobody has filled it in";
  }
  if (crypto.lifetime_exponent < 0 || crypto.lifetime_exponent > kLongestLifetime) {
    return suite + "lifetime exponent " + std::to_string(crypto.lifetime_exponent) + " is not in 0-" +
           std::to_string(kLongestLifetime);
  }
  const std::string mki = crypto.mki_length.value_or("");
  if (mki.empty() || IsMki(mki)) return "";
  return suite + "MKI " + Quotable(mki) + " is not a value and its length in octets, 1 to " +
         std::to_string(kLongestMki) + ", as in '1:4'";
}

NgCryptoLine LineOf(const MediaCrypto& crypto) {
  NgCryptoLine line;
  line.suite = crypto.suite;
  line.key = crypto.key;
  line.mki = crypto.mki_length.value_or("");
  return line;
}

bool MakeKey(SecretBytes& key) {
  key.resize(kKeyLength);
  return getrandom(key.data(), key.size(), 0) == static_cast<ssize_t>(key.size());
}

bool SameLine(const NgCryptoLine& one, const NgCryptoLine& other) {
  return one.suite == other.suite && one.key == other.key && one.mki == other.mki;
}

}  // namespace

bool LegCrypto::Keys::operator==(const Keys& other) const {
  return SameLine(ours, other.ours) && SameLine(theirs, other.theirs);
}

std::string LegCrypto::TakeLocal(MediaConfig& config, Line& line) const {
  const MediaCrypto crypto = *config.GetCrypto();
  if (std::string fault = FaultIn(crypto); !fault.empty()) return fault;
  line = LineOf(crypto);
  if (!line->key.empty()) return "";
  const Line& latest = next_local_ ? *next_local_ : local_;
  if (latest && latest->suite == line->suite && latest->mki == line->mki) {
    line->key = latest->key;
  } else if (!MakeKey(line->key)) {
    return "no SRTP key: the system gives no random numbers";
  }
  config.SetCrypto(line->suite.c_str(), line->key.data(), static_cast<int>(line->key.size()), crypto.lifetime_exponent,
                   crypto.mki_length ? crypto.mki_length->c_str() : nullptr);
  return "";
}

std::string LegCrypto::DescribeLocal(MediaConfig& config, bool offer) {
  const bool mandatory = mandatory_ || config.GetCryptoMandFlag().value_or(false);
  Line line = next_local_ ? *next_local_ : local_;
  if (!SaysNothing(config)) line.reset();
  if (NamesSuite(config)) {
    if (std::string fault = TakeLocal(config, line); !fault.empty()) return fault;
  }
  if (mandatory && !line) return kMandatory + std::string("the local description has no keys");
  if (mandatory && !offer && remote_described_ && !remote_) {
    return kMandatory + std::string("the far end's description has no keys");
  }
  mandatory_ = mandatory;
  if (SaysNothing(config)) return "";
  if (offer && effective()) {
    next_local_ = std::move(line);
  } else {
    local_ = std::move(line);
    next_local_.reset();
  }
  return "";
}

std::string LegCrypto::DescribeRemote(const MediaConfig& config, bool offer) {
  const bool mandatory = mandatory_ || config.GetCryptoMandFlag().value_or(false);
  Line line = remote_;
  if (!SaysNothing(config)) line.reset();
  if (NamesSuite(config)) {
    if (std::string fault = FaultIn(*config.GetCrypto()); !fault.empty()) return fault;
    if (config.GetCrypto()->key.empty()) {
      return "crypto suite " + config.GetCrypto()->suite + ": the far end's description has no key";
    }
    line = LineOf(*config.GetCrypto());
  }
  if (mandatory && !line) return kMandatory + std::string("the far end's description has no keys");
  mandatory_ = mandatory;
  remote_described_ = true;
  remote_ = std::move(line);
  const std::optional<Line> answered = std::exchange(next_local_, std::nullopt);
  if (answered && !offer) local_ = *answered;
  return "";
}

std::string LegCrypto::RefuseImage(const MediaConfig& config) const {
  if (!mandatory_ && !config.GetCryptoMandFlag().value_or(false)) return "";
  return kMandatory + std::string("UDP pass-through relays packets as they are");
}

std::optional<LegCrypto::Keys> LegCrypto::effective() const {
  if (!local_ || !remote_) return std::nullopt;
  return Keys{*local_, *remote_};
}

}  // namespace kelvaro::jsr309::rtpengine
