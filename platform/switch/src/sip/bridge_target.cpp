#include "sip/bridge_target.h"

#include <strings.h>

#include <algorithm>

namespace kvx_switch {

namespace {

bool ParseVariables(const std::string& text, BridgeTarget& target, std::string& error) {
  for (size_t position = 0; position < text.size();) {
    size_t end = std::min(text.find(',', position), text.size());
    std::string pair = text.substr(position, end - position);
    size_t equals = pair.find('=');
    if (equals == 0 || equals == std::string::npos) {
      error = "\"" + pair + "\" is not name=value";
      return false;
    }
    target.variables.emplace_back(pair.substr(0, equals), pair.substr(equals + 1));
    position = end + 1;
  }
  return true;
}

}  // namespace

bool ParseBridgeTarget(const std::string& data, BridgeTarget& target, std::string& error) {
  std::string rest = data;
  if (!rest.empty() && rest.front() == '{') {
    size_t close = rest.find('}');
    if (close == std::string::npos) {
      error = "\"" + data + "\": \"{\" is not closed";
      return false;
    }
    if (!ParseVariables(rest.substr(1, close - 1), target, error)) return false;
    rest.erase(0, close + 1);
  }
  bool printable = std::all_of(rest.begin(), rest.end(), [](unsigned char c) { return c > 0x20 && c < 0x7f; });
  if (strncasecmp(rest.c_str(), "sip:", 4) != 0 || rest.size() == 4 || rest.back() == '@' || !printable) {
    error = "\"" + rest + "\" is not a SIP URI (sip:user@host:port)";
    return false;
  }
  target.uri = rest;
  return true;
}

}  // namespace kvx_switch
