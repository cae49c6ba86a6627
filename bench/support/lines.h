/// How the programs of a measurement talk to the one that runs them: a line a message, words separated by spaces.
#pragma once

#include <cstdint>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace bench {

using Words = std::vector<std::string>;

inline Words Split(const std::string& line) {
  std::istringstream in(line);
  Words words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

/// The word and the numbers, on one line.
template <typename Number>
std::string Line(const std::string& first, const std::vector<Number>& rest) {
  std::string line = first;
  for (const Number& one : rest) {
    line += ' ';
    if constexpr (std::is_arithmetic_v<Number>) {
      line += std::to_string(one);
    } else {
      line += one;
    }
  }
  return line;
}

inline std::vector<uint16_t> PortsOf(const Words& words, std::size_t from) {
  std::vector<uint16_t> ports;
  for (std::size_t i = from; i < words.size(); ++i) ports.push_back(static_cast<uint16_t>(std::stoul(words[i])));
  return ports;
}

/// "name value name value ...": figures that a program found.
using Figures = std::map<std::string, double>;

inline Figures FiguresOf(const Words& words, std::size_t from) {
  Figures figures;
  for (std::size_t i = from; i + 1 < words.size(); i += 2) figures[words[i]] = std::stod(words[i + 1]);
  return figures;
}

inline void Answer(const std::string& line) {
  std::cout << line << std::endl;
}

}  // namespace bench
