#include "rtpengine/bencode.h"

#include <charconv>

namespace kelvaro::jsr309::rtpengine {
namespace {

void Append(const Bencode& value, SecretText& out);

void AppendText(const std::string& text, SecretText& out) {
  out += std::to_string(text.size());
  out += ':';
  out.append(text.data(), text.size());
}

void Append(const Bencode& value, SecretText& out) {
  if (const int64_t* number = value.Number()) {
    out += 'i' + std::to_string(*number) + 'e';
  } else if (const std::string* text = value.Text()) {
    AppendText(*text, out);
  } else if (const Bencode::List* items = value.Items()) {
    out += 'l';
    for (const Bencode& item : *items) Append(item, out);
    out += 'e';
  } else {
    out += 'd';
    for (const auto& [key, entry] : *value.Entries()) {
      AppendText(key, out);
      Append(entry, out);
    }
    out += 'e';
  }
}

/// What it reads is put into the caller's value; on false, error() says why.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  bool Value(int depth, Bencode& value) {
    if (depth > kBencodeDepth) return Fail("nested too deeply");
    switch (Peek()) {
      case 'i':
        return Number(value);
      case 'l':
        return List(depth, value);
      case 'd':
        return Dictionary(depth, value);
      default:
        break;
    }
    std::string text;
    if (!Text(text)) return false;
    value = std::move(text);
    return true;
  }

  bool AtEnd() const { return at_ == text_.size(); }
  bool Fail(const std::string& what) {
    if (error_.empty()) error_ = what + " at octet " + std::to_string(at_);
    return false;
  }
  const std::string& error() const { return error_; }

 private:
  char Peek() const { return AtEnd() ? '\0' : text_[at_]; }
  bool TakeEnd() {
    if (AtEnd() || text_[at_] != 'e') return false;
    ++at_;
    return true;
  }

  bool Number(Bencode& value) {
    const std::size_t end = text_.find('e', at_);
    if (end == std::string_view::npos) return Fail("number without end");
    const std::string_view digits = text_.substr(at_ + 1, end - at_ - 1);
    int64_t number = 0;
    const auto [stop, problem] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (problem != std::errc() || stop != digits.data() + digits.size()) return Fail("malformed number");
    if (std::to_string(number) != digits) return Fail("number with needless digits");
    at_ = end + 1;
    value = number;
    return true;
  }

  bool Text(std::string& text) {
    const std::size_t colon = text_.find(':', at_);
    if (colon == std::string_view::npos) return Fail(AtEnd() ? "value missing" : "neither value nor text length");
    const std::string_view digits = text_.substr(at_, colon - at_);
    std::size_t length = 0;
    const auto [stop, problem] = std::from_chars(digits.data(), digits.data() + digits.size(), length);
    if (problem != std::errc() || stop != digits.data() + digits.size()) return Fail("malformed text length");
    if (std::to_string(length) != digits) return Fail("text length with needless digits");
    if (length > text_.size() - colon - 1) return Fail("text longer than what came");
    at_ = colon + 1 + length;
    text = text_.substr(colon + 1, length);
    return true;
  }

  bool List(int depth, Bencode& value) {
    Bencode::List items;
    ++at_;
    while (!TakeEnd()) {
      items.emplace_back(0);
      if (!Value(depth + 1, items.back())) return false;
    }
    value = std::move(items);
    return true;
  }

  bool Dictionary(int depth, Bencode& value) {
    Bencode::Dictionary entries;
    ++at_;
    while (!TakeEnd()) {
      std::string key;
      if (!Text(key)) return false;
      const auto [entry, is_new] = entries.emplace(std::move(key), 0);
      if (!is_new) return Fail("key twice in a dictionary, before");
      if (!Value(depth + 1, entry->second)) return false;
    }
    value = std::move(entries);
    return true;
  }

  const std::string_view text_;
  std::size_t at_ = 0;
  std::string error_;
};

}  // namespace

std::string EncodeBencode(const Bencode& value) {
  SecretText out;
  Append(value, out);
  return {out.data(), out.size()};
}

std::optional<Bencode> DecodeBencode(std::string_view text, std::string& error) {
  Reader reader(text);
  std::optional<Bencode> value(0);
  const bool read = reader.Value(0, *value) && (reader.AtEnd() || reader.Fail("more than one value"));
  if (!read) {
    error = reader.error();
    value.reset();
  }
  return value;
}

std::string TextOf(const Dictionary& dictionary, const std::string& key) {
  const auto found = dictionary.find(key);
  const std::string* const text = found == dictionary.end() ? nullptr : found->second.Text();
  return text == nullptr ? std::string() : *text;
}

std::optional<int64_t> NumberOf(const Dictionary& dictionary, const std::string& key) {
  const auto found = dictionary.find(key);
  if (found == dictionary.end()) return std::nullopt;
  if (const int64_t* const number = found->second.Number()) return *number;
  const std::string* const text = found->second.Text();
  if (text == nullptr) return std::nullopt;
  int64_t number = 0;
  const char* const end = text->data() + text->size();
  const auto [stop, problem] = std::from_chars(text->data(), end, number);
  if (problem != std::errc() || (stop != end && *stop != '.')) return std::nullopt;
  return number;
}

const Dictionary* EntriesOf(const Dictionary& dictionary, const std::string& key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : found->second.Entries();
}

}  // namespace kelvaro::jsr309::rtpengine
