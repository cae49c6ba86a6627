/// Values in bencode, the notation of rtpengine's "ng" control protocol, written and read.
///
/// What is read comes from the network: Decode accepts what the notation allows and nothing else, and is bounded in
/// depth whatever it is given. Dictionaries are written in the order of their keys and accepted in any.
///
/// Values without shared state; any thread. Their texts may hold keys, and are wiped when they end.
#pragma once

#include "rtpengine/secret_text.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace kelvaro::jsr309::rtpengine {

class Bencode {
 public:
  using List = std::vector<Bencode>;
  using Dictionary = std::map<std::string, Bencode>;

  Bencode(int64_t number) : value_(number) {}
  Bencode(std::string text) : value_(std::move(text)) {}
  Bencode(const char* text) : value_(std::string(text)) {}
  Bencode(List list) : value_(std::move(list)) {}
  Bencode(Dictionary dictionary) : value_(std::move(dictionary)) {}
  ~Bencode() { WipeText(); }
  Bencode(const Bencode&) = default;
  Bencode(Bencode&&) = default;
  Bencode& operator=(const Bencode& other) { return Set(other.value_); }
  Bencode& operator=(Bencode&& other) noexcept { return Set(std::move(other.value_)); }

  Bencode& operator=(int64_t number) { return Set(number); }
  Bencode& operator=(std::string text) { return Set(std::move(text)); }
  Bencode& operator=(List list) { return Set(std::move(list)); }
  Bencode& operator=(Dictionary dictionary) { return Set(std::move(dictionary)); }

  // Null when it is of another kind.
  const int64_t* Number() const { return std::get_if<int64_t>(&value_); }
  const std::string* Text() const { return std::get_if<std::string>(&value_); }
  const List* Items() const { return std::get_if<List>(&value_); }
  const Dictionary* Entries() const { return std::get_if<Dictionary>(&value_); }

  bool operator==(const Bencode& other) const { return value_ == other.value_; }

 private:
  template <typename T>
  Bencode& Set(T value) {
    WipeText();
    value_ = std::move(value);
    return *this;
  }
  void WipeText() {
    if (auto* const text = std::get_if<std::string>(&value_)) Wipe(*text);
  }

  std::variant<int64_t, std::string, List, Dictionary> value_;
};

using Dictionary = Bencode::Dictionary;

/// Lists and dictionaries in each other: deeper is refused.
constexpr int kBencodeDepth = 16;

/// What it gives is the only copy of the value's texts: nothing of it is left in freed memory.
std::string EncodeBencode(const Bencode& value);
/// One value and nothing behind it. None when text is not that; error then says what is wrong, and at which octet.
std::optional<Bencode> DecodeBencode(std::string_view text, std::string& error);

/// The text under that key; empty when there is none, or no text.
std::string TextOf(const Dictionary& dictionary, const std::string& key);
/// The number under that key, which daemons write as a number or as text, "12" or "12.5" (cut to 12). None when there
/// is none.
std::optional<int64_t> NumberOf(const Dictionary& dictionary, const std::string& key);
/// The dictionary under that key; null when there is none, or no dictionary.
const Dictionary* EntriesOf(const Dictionary& dictionary, const std::string& key);

}  // namespace kelvaro::jsr309::rtpengine
