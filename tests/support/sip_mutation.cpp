#include "support/sip_mutation.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace test_support {

namespace {

const std::vector<std::string> kNumbers = {"0",          "-1",         "65536",
                                           "2147483648", "4294967296", "18446744073709551616",
                                           "1e9",        "",           "99999999999999999999999999999999"};

const std::vector<std::string> kBytes = {std::string(1, '\0'),
                                         "\r\n",
                                         "\r",
                                         "\n",
                                         "\r\n\r\n",
                                         "\"",
                                         "<",
                                         ">",
                                         ";",
                                         ",",
                                         "%",
                                         "%00",
                                         "\xff\xfe",
                                         "\xc0\xaf",
                                         "//",
                                         "sip:",
                                         "@@",
                                         ":",
                                         "=",
                                         "\t \r\n\t",
                                         "[::",
                                         ";tag=;tag=",
                                         ";lr;;",
                                         "%n%s"};

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace

std::string SipMutation::operator()(std::string message) {
  for (size_t count = 1 + Below(3); count > 0 && !message.empty(); --count) Mutate(message);
  return message;
}

void SipMutation::Mutate(std::string& message) {
  switch (Below(8)) {
    case 0:
      return Truncate(message);
    case 1:
      return FlipBits(message);
    case 2:
    case 3:
      return ChangeLines(message);
    case 4:
    case 5:
      return ReplaceNumber(message);
    case 6:
      return InsertBytes(message);
    default:
      return ReplaceByte(message);
  }
}

void SipMutation::Truncate(std::string& message) {
  message.resize(Below(message.size()) + 1);
}

void SipMutation::FlipBits(std::string& message) {
  for (size_t count = 1 + Below(8); count > 0; --count) {
    char& byte = message[Below(message.size())];
    byte = static_cast<char>(static_cast<unsigned char>(byte) ^ (1u << Below(8)));
  }
}

/// Of the headers or the description alike: one removed, repeated up to a hundred times, or put elsewhere.
void SipMutation::ChangeLines(std::string& message) {
  std::vector<std::string> lines;
  for (size_t start = 0; start < message.size();) {
    const size_t end = std::min(message.find("\r\n", start), message.size() - 1) + 1;
    lines.push_back(message.substr(start, std::min(end + 1, message.size()) - start));
    start = end + 1;
  }
  if (lines.empty()) return;
  const size_t index = Below(lines.size());
  switch (Below(3)) {
    case 0:
      lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(index));
      break;
    case 1:
      lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(index), Below(10) == 0 ? 100 : 1,
                   std::string(lines[index]));
      break;
    default:
      std::swap(lines[index], lines[Below(lines.size())]);
      break;
  }
  message.clear();
  for (const std::string& line : lines) message += line;
}

void SipMutation::ReplaceNumber(std::string& message) {
  const auto from = message.begin() + static_cast<std::ptrdiff_t>(Below(message.size()));
  const auto start = std::find_if(from, message.end(), IsDigit);
  const auto end = std::find_if_not(start, message.end(), IsDigit);
  message.replace(start, end, kNumbers[Below(kNumbers.size())]);
}

void SipMutation::InsertBytes(std::string& message) {
  const std::string& bytes = kBytes[Below(kBytes.size())];
  const size_t times = Below(8) == 0 ? 1 + Below(2000) : 1;
  const size_t place = Below(message.size());
  for (size_t i = 0; i < times; ++i) message.insert(place, bytes);
}

void SipMutation::ReplaceByte(std::string& message) {
  message[Below(message.size())] = static_cast<char>(Below(256));
}

}  // namespace test_support
