#include "sip/bridge_target.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

#include "sip/reference.h"
#include "sip/variable_check.h"

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

/// Whether the text is that of a call, or as it stands in the dialplan: with references that may stand for anything.
enum class Text { kOfCall, kWithReferences };

bool IsUnknown(const std::string& part, Text text) {
  return text == Text::kWithReferences && HasReference(part);
}

bool ParseVariables(const std::string& text, Text kind, VariableList& variables, std::string& error) {
  for (size_t position = 0; position < text.size();) {
    const std::string pair = TakePair(text, position);
    const size_t equals = pair.find('=');
    if (equals == std::string::npos && IsUnknown(pair, kind)) continue;
    if (equals == 0 || equals == std::string::npos) {
      error = "\"" + pair + "\" is not name=value";
      return false;
    }
    variables.emplace_back(pair.substr(0, equals), pair.substr(equals + 1));
  }
  return true;
}

/// Takes "{...}" or "[...]" off the front of `rest`, where it stands there.
bool TakeVariables(char open, char close, Text kind, std::string& rest, VariableList& variables, std::string& error) {
  if (rest.empty() || rest.front() != open) return true;
  const size_t end = rest.find(close);
  if (end == std::string::npos && IsUnknown(rest, kind)) return true;
  if (end == std::string::npos) {
    error = "\"" + rest + "\": \"" + open + "\" is not closed";
    return false;
  }
  if (!ParseVariables(rest.substr(1, end - 1), kind, variables, error)) return false;
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

bool ParseTarget(std::string rest, Text kind, BridgeTarget& target, std::string& error) {
  if (!TakeVariables('[', ']', kind, rest, target.variables, error)) return false;
  target.uri = rest;
  if (IsUnknown(rest, kind)) return true;
  const bool printable = std::all_of(rest.begin(), rest.end(), [](unsigned char c) { return c > 0x20 && c < 0x7f; });
  if (strncasecmp(rest.c_str(), "sip:", 4) != 0 || rest.size() == 4 || rest.back() == '@' || !printable) {
    error = "\"" + rest + "\" is not a SIP URI (sip:user@host:port)";
    return false;
  }
  if (rest.find(',') != std::string::npos) {
    error = "\"" + rest + "\": several targets at once (\",\") are not supported, only one after the other (\"|\")";
    return false;
  }
  return true;
}

bool ParsePlan(std::string rest, Text kind, BridgePlan& plan, std::string& error) {
  plan = {};
  if (!TakeVariables('{', '}', kind, rest, plan.variables, error)) return false;
  for (bool more = true; more;) {
    const size_t end = EndOfTarget(rest);
    BridgeTarget target{plan.variables, ""};
    if (!ParseTarget(rest.substr(0, end), kind, target, error)) return false;
    plan.targets.push_back(std::move(target));
    more = end < rest.size();
    rest.erase(0, end + 1);
  }
  return true;
}

/// Port and transport, which the SIP stack would refuse when the call is there.
std::string FaultOfUri(const std::string& uri) {
  if (HasReference(uri)) return "";
  const size_t at = uri.find('@');
  const size_t host = at == std::string::npos ? 4 : at + 1;
  const size_t end = std::min(uri.find_first_of(";?", host), uri.size());
  const size_t bracket = uri.find(']', host);
  const size_t colon = uri.find(':', bracket < end ? bracket : host);
  if (colon < end) {
    unsigned port = 0;
    const auto result = std::from_chars(uri.data() + colon + 1, uri.data() + end, port);
    if (result.ec != std::errc() || result.ptr != uri.data() + end || port < 1 || port > 65535)
      return "\"" + uri + "\": \"" + uri.substr(colon + 1, end - colon - 1) + "\" is not a port from 1 to 65535";
  }
  const std::string name = ";transport=";
  for (size_t i = end; i < uri.size(); i = std::min(uri.find(';', i + 1), uri.size())) {
    if (strncasecmp(uri.c_str() + i, name.c_str(), name.size()) != 0) continue;
    const size_t value = i + name.size();
    const std::string transport = uri.substr(value, uri.find_first_of(";?", value) - value);
    if (strcasecmp(transport.c_str(), "udp") != 0 && strcasecmp(transport.c_str(), "tcp") != 0)
      return "\"" + uri + "\": there is no transport \"" + transport + "\", only udp and tcp";
  }
  return "";
}

void AddFault(std::string& faults, const std::string& fault) {
  if (!fault.empty()) faults += (faults.empty() ? "" : "; ") + fault;
}

std::string FaultsOfTarget(const BridgeTarget& target, size_t shared_variables) {
  std::string faults;
  for (size_t i = shared_variables; i < target.variables.size(); ++i) {
    const auto& [name, value] = target.variables[i];
    if (strcasecmp(name.c_str(), "originate_timeout") == 0)
      AddFault(faults, name + " is the time of all targets together: it belongs into the braces");
    AddFault(faults, FaultOfVariable(name, value));
  }
  AddFault(faults, FaultOfUri(target.uri));
  return faults;
}

}  // namespace

bool ParseBridgePlan(const std::string& data, BridgePlan& plan, std::string& error) {
  return ParsePlan(data, Text::kOfCall, plan, error);
}

std::string FaultsOfDialString(const std::string& data) {
  BridgePlan plan;
  std::string faults;
  if (!ParsePlan(WithPlainReferences(data), Text::kWithReferences, plan, faults)) return faults;
  for (const auto& [name, value] : plan.variables) AddFault(faults, FaultOfVariable(name, value));
  for (const BridgeTarget& target : plan.targets) AddFault(faults, FaultsOfTarget(target, plan.variables.size()));
  return faults;
}

const std::string* FindInList(const VariableList& variables, const std::string& name) {
  const auto found = std::find_if(variables.rbegin(), variables.rend(), [&name](const auto& variable) {
    return strcasecmp(variable.first.c_str(), name.c_str()) == 0;
  });
  return found == variables.rend() ? nullptr : &found->second;
}

}  // namespace kvx_switch
