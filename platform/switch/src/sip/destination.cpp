#include "sip/destination.h"

#include <strings.h>

#include <sstream>

namespace kvx_switch {

std::vector<std::string> WordsOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

std::optional<Destination> ParseDestination(const std::vector<std::string>& words, std::string& error) {
  if (words.empty() || words.size() > 3) {
    error = "\"extension [dialplan [context]]\" is needed";
    return std::nullopt;
  }
  if (words.size() > 1 && strcasecmp(words[1].c_str(), "XML") != 0) {
    error = "there is no dialplan \"" + words[1] + "\", only \"XML\"";
    return std::nullopt;
  }
  return Destination{words[0], words.size() > 2 ? words[2] : "", {}};
}

}  // namespace kvx_switch
