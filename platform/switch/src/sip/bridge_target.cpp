#include "sip/bridge_target.h"

#include <strings.h>

#include <algorithm>

namespace kvx_switch {

namespace {

/// Reads one value up to the comma behind it; `position` ends up behind that comma or at the end.
std::string TakePair(const std::string& text, size_t& position) {
  std::string pair;
  bool quoted = false;
  for (; position < text.size(); ++position) {
    const char c = text[position];
    const bool escape =
        c == '\\' && position + 1 < text.size() && (text[position + 1] == ',' || text[position + 1] == '\'');
    if (escape) {
      pair += text[++position];
    } else if (c == '\'') {
      quoted = !quoted;
    } else if (c == ',' && !quoted) {
      break;
    } else {
      pair += c;
    }
  }
  ++position;
  return pair;
}

bool ParseVariables(const std::string& text, VariableList& variables, std::string& error) {
  for (size_t position = 0; position < text.size();) {
    const std::string pair = TakePair(text, position);
    const size_t equals = pair.find('=');
    if (equals == 0 || equals == std::string::npos) {
      error = "\"" + pair + "\" is not name=value";
      return false;
    }
    variables.emplace_back(pair.substr(0, equals), pair.substr(equals + 1));
  }
  return true;
}

/// Takes "{...}" or "[...]" off the front of `rest`, where it stands there.
bool TakeVariables(char open, char close, std::string& rest, VariableList& variables, std::string& error) {
  if (rest.empty() || rest.front() != open) return true;
  const size_t end = rest.find(close);
  if (end == std::string::npos) {
    error = "\"" + rest + "\": \"" + open + "\" is not closed";
    return false;
  }
  if (!ParseVariables(rest.substr(1, end - 1), variables, error)) return false;
  rest.erase(0, end + 1);
  return true;
}

/// The end of the first target of `text`: the next bar that stands in no brackets. An address of IPv6 has brackets too.
size_t EndOfTarget(const std::string& text) {
  int depth = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '[') ++depth;
    if (text[i] == ']' && depth > 0) --depth;
    if (text[i] == '|' && depth == 0) return i;
  }
  return text.size();
}

bool ParseTarget(std::string rest, BridgeTarget& target, std::string& error) {
  if (!TakeVariables('[', ']', rest, target.variables, error)) return false;
  const bool printable = std::all_of(rest.begin(), rest.end(), [](unsigned char c) { return c > 0x20 && c < 0x7f; });
  if (strncasecmp(rest.c_str(), "sip:", 4) != 0 || rest.size() == 4 || rest.back() == '@' || !printable) {
    error = "\"" + rest + "\" is not a SIP URI (sip:user@host:port)";
    return false;
  }
  if (rest.find(',') != std::string::npos) {
    error = "\"" + rest + "\": several targets at once (\",\") are not supported, only one after the other (\"|\")";
    return false;
  }
  target.uri = rest;
  return true;
}

}  // namespace

bool ParseBridgePlan(const std::string& data, BridgePlan& plan, std::string& error) {
  plan = {};
  std::string rest = data;
  if (!TakeVariables('{', '}', rest, plan.variables, error)) return false;
  for (bool more = true; more;) {
    const size_t end = EndOfTarget(rest);
    BridgeTarget target{plan.variables, ""};
    if (!ParseTarget(rest.substr(0, end), target, error)) return false;
    plan.targets.push_back(std::move(target));
    more = end < rest.size();
    rest.erase(0, end + 1);
  }
  return true;
}

const std::string* FindInList(const VariableList& variables, const std::string& name) {
  const auto found = std::find_if(variables.rbegin(), variables.rend(), [&name](const auto& variable) {
    return strcasecmp(variable.first.c_str(), name.c_str()) == 0;
  });
  return found == variables.rend() ? nullptr : &found->second;
}

}  // namespace kvx_switch
