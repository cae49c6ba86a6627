#include "sip/srtp_keys.h"

#include <string.h>
#include <strings.h>
#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <system_error>

#include "sip/sofia.h"

#include <sofia-sip/base64.h>

namespace kvx_switch {

namespace {

constexpr size_t kKeyText = BASE64_SIZE(SWITCH_CORE_CRYPTO_RAW_KEY_LENGTH);
constexpr int kLongestLifetime = 48;  // RFC 3711, 9.2: 2^48 packets under one key
constexpr const char* kSecureProtocol = "RTP/SAVP";

std::string_view TakeUntil(std::string_view& rest, char end) {
  const size_t length = std::min(rest.find(end), rest.size());
  std::string_view taken = rest.substr(0, length);
  rest.remove_prefix(std::min(length + 1, rest.size()));
  return taken;
}

bool ReadNumber(std::string_view text, uint64_t& number) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool IsBase64(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

bool ReadKey(std::string_view text, SrtpKey::Block& block) {
  if (text.size() != kKeyText || !std::all_of(text.begin(), text.end(), IsBase64)) return false;
  std::string copy(text);
  const auto length = base64_d(reinterpret_cast<char*>(block.data()), block.size(), copy.c_str());
  explicit_bzero(copy.data(), copy.size());
  return static_cast<size_t>(length) == block.size();
}

/// "2^20", or the number written out; only powers of 2 can be handed on.
bool ReadLifetime(std::string_view text, int& exponent) {
  uint64_t number = 0;
  if (text.substr(0, 2) == "2^") {
    if (!ReadNumber(text.substr(2), number) || number == 0 || number > kLongestLifetime) return false;
    exponent = static_cast<int>(number);
    return true;
  }
  if (!ReadNumber(text, number) || number < 2 || (number & (number - 1)) != 0) return false;
  exponent = 63 - __builtin_clzll(number);
  return exponent <= kLongestLifetime;
}

/// "value:length", the value a number and the length its octets on the wire (RFC 4568, 6.1).
bool IsMki(std::string_view text) {
  uint64_t value = 0;
  uint64_t length = 0;
  const std::string_view value_text = TakeUntil(text, ':');
  return ReadNumber(value_text, value) && ReadNumber(text, length) && length >= 1 && length <= 128;
}

/// "inline:<key>[|<lifetime>][|<MKI>:<length>]"; what is wrong with it, empty when nothing is.
std::string ReadKeyParameter(std::string_view text, SrtpKey& key) {
  if (text.find(';') != std::string_view::npos) return "more than one key";
  if (text.substr(0, 7) != "inline:") return "the key is not \"inline:\"";
  text.remove_prefix(7);
  if (!ReadKey(TakeUntil(text, '|'), key.block)) return "the key is not 30 octets in base64";
  while (!text.empty()) {
    const std::string_view part = TakeUntil(text, '|');
    if (part.find(':') == std::string_view::npos) {
      if (!ReadLifetime(part, key.lifetime_exponent)) return "lifetime \"" + std::string(part) + "\" is no power of 2";
    } else if (IsMki(part)) {
      key.mki_and_length = part;
    } else {
      return "MKI \"" + std::string(part) + "\" is not value:length";
    }
  }
  return "";
}

/// Session parameters change how packets are protected; only the hint of a window size may be passed over.
std::string UnknownParameter(std::string_view rest) {
  while (!rest.empty()) {
    const std::string_view word = TakeUntil(rest, ' ');
    if (!word.empty() && word.substr(0, 4) != "WSH=") return std::string(word);
  }
  return "";
}

}  // namespace

SrtpKey::~SrtpKey() {
  explicit_bzero(block.data(), block.size());
}

const char* SrtpSuiteName(SrtpSuite suite) {
  return suite == SrtpSuite::kAesCm128Sha1_32 ? "AES_CM_128_HMAC_SHA1_32" : "AES_CM_128_HMAC_SHA1_80";
}

std::optional<SrtpSuite> SrtpSuiteOfName(std::string_view name) {
  for (SrtpSuite suite : {SrtpSuite::kAesCm128Sha1_80, SrtpSuite::kAesCm128Sha1_32}) {
    if (strcasecmp(std::string(name).c_str(), SrtpSuiteName(suite)) == 0) return suite;
  }
  return std::nullopt;
}

std::optional<SrtpKey> ParseCrypto(std::string_view value, std::string& problem) {
  SrtpKey key;
  key.tag = TakeUntil(value, ' ');
  uint64_t tag = 0;
  if (key.tag.size() > 9 || !ReadNumber(key.tag, tag)) {
    problem = "the tag is no number of 1 to 9 digits";
    return std::nullopt;
  }
  const std::string name(TakeUntil(value, ' '));
  const std::optional<SrtpSuite> suite = SrtpSuiteOfName(name);
  if (!suite) {
    problem = "suite \"" + name + "\" is not supported";
    return std::nullopt;
  }
  key.suite = *suite;
  problem = ReadKeyParameter(TakeUntil(value, ' '), key);
  if (!problem.empty()) return std::nullopt;
  if (const std::string unknown = UnknownParameter(value); !unknown.empty()) {
    problem = "session parameter \"" + unknown + "\" is not supported";
    return std::nullopt;
  }
  return key;
}

std::string CryptoText(const SrtpKey& key) {
  char text[kKeyText + 1];
  SrtpKey::Block block = key.block;  // the encoder wants to be able to write
  base64_e(text, sizeof(text), block.data(), block.size());
  std::string line = key.tag + " " + SrtpSuiteName(key.suite) + " inline:" + text;
  explicit_bzero(text, sizeof(text));
  explicit_bzero(block.data(), block.size());
  if (key.lifetime_exponent > 0) line += "|2^" + std::to_string(key.lifetime_exponent);
  if (!key.mki_and_length.empty()) line += "|" + key.mki_and_length;
  return line;
}

SrtpKey MakeSrtpKey(SrtpSuite suite, const std::string& tag) {
  SrtpKey key;
  key.tag = tag;
  key.suite = suite;
  // So few octets come whole, or not at all (getrandom(2)).
  if (getrandom(key.block.data(), key.block.size(), 0) != static_cast<ssize_t>(key.block.size())) {
    throw std::system_error(errno, std::generic_category(), "no random numbers for an SRTP key");
  }
  return key;
}

std::optional<SecureMedia> SecureMediaOfName(const std::string& name) {
  const struct {
    const char* name;
    SecureMedia meaning;
  } kNames[] = {
      {"off", SecureMedia::kOff},           {"false", SecureMedia::kOff},           {"forbidden", SecureMedia::kOff},
      {"optional", SecureMedia::kOptional}, {"mandatory", SecureMedia::kMandatory}, {"true", SecureMedia::kMandatory}};
  for (const auto& known : kNames) {
    if (strcasecmp(name.c_str(), known.name) == 0) return known.meaning;
  }
  return std::nullopt;
}

StreamSecurity SecurityOfOffer(const SdpMedia& stream, const SecurityWish& wish) {
  StreamSecurity security;
  const bool secure = stream.protocol == kSecureProtocol;
  if (wish.wanted == SecureMedia::kOff) {
    if (secure) security.problem = "SRTP is switched off";
    return security;
  }
  std::string problem = "no key is offered";
  for (const std::string& line : stream.cryptos) {
    std::optional<SrtpKey> key = ParseCrypto(line, problem);
    if (!key) continue;
    if (std::find(wish.suites.begin(), wish.suites.end(), key->suite) != wish.suites.end()) {
      security.remote = std::move(key);
      return security;
    }
    problem = std::string("suite \"") + SrtpSuiteName(key->suite) + "\" is not among those of the profile";
  }
  if (secure) security.problem = "no usable SRTP key: " + problem;
  if (!secure && wish.wanted == SecureMedia::kMandatory) security.problem = "SRTP is mandatory: " + problem;
  return security;
}

StreamSecurity SecurityOfAnswer(const SdpMedia& stream, const std::string& protocol, const SrtpKey* offered) {
  StreamSecurity security;
  if (stream.protocol != protocol) {
    security.problem = "it answers " + protocol + " with " + stream.protocol;
    return security;
  }
  if (!offered) return security;
  std::string problem = "no key is given";
  for (const std::string& line : stream.cryptos) {
    std::optional<SrtpKey> key = ParseCrypto(line, problem);
    if (!key) continue;
    if (key->tag == offered->tag && key->suite == offered->suite) {
      security.remote = std::move(key);
      return security;
    }
    problem = "tag and suite are not those of the offer";
  }
  if (protocol == kSecureProtocol || !stream.cryptos.empty()) security.problem = "no usable SRTP key: " + problem;
  return security;
}

switch_core_crypto_setting CryptoSetting(const SrtpKey* key, bool mandatory) {
  switch_core_crypto_setting setting{};
  setting.crypto_mandatory = mandatory ? 1 : 0;
  if (!key) return setting;
  setting.crypto_type = static_cast<int>(key->suite);
  std::copy(key->block.begin(), key->block.end(), setting.crypto_raw_key);
  setting.crypto_lifetime_exponent = key->lifetime_exponent;
  setting.crypto_mki_length_str = key->mki_and_length.empty() ? nullptr : key->mki_and_length.c_str();
  return setting;
}

}  // namespace kvx_switch
