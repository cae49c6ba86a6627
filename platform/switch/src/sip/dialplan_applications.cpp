#include "sip/dialplan_applications.h"

#include <strings.h>

#include <charconv>
#include <sstream>

#include "sip/bridge_target.h"
#include "sip/destination.h"
#include "sip/reference.h"
#include "sip/variable_check.h"

namespace kvx_switch {

namespace {

constexpr long kLongestRing = 3600;
constexpr long kLongestSleep = 86400000;

std::optional<long> NumberBetween(const std::string& text, long least, long most) {
  long number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() || number < least || number > most) {
    return std::nullopt;
  }
  return number;
}

std::string FaultOfAssignment(const std::string& data) {
  const size_t equals = data.find('=');
  if (equals == std::string::npos && HasReference(data)) return "";
  if (equals == 0 || equals == std::string::npos) return "\"" + data + "\" is not name=value";
  return FaultOfVariable(data.substr(0, equals), data.substr(equals + 1));
}

std::string FaultOfExport(const std::string& data) {
  const std::string prefix = "nolocal:";
  return FaultOfAssignment(data.rfind(prefix, 0) == 0 ? data.substr(prefix.size()) : data);
}

std::string FaultOfHangup(const std::string& data) {
  return data.empty() || HasReference(data) || CauseOfText(data) ? "" : "\"" + data + "\" is no hang-up cause";
}

std::string FaultOfSleep(const std::string& data) {
  return HasReference(data) || SleepOfText(data)
             ? ""
             : "\"" + data + "\" is not a number of milliseconds from 0 to 86400000";
}

std::string FaultOfTransfer(const std::string& data) {
  std::string error;
  if (!HasReference(data)) ParseDestination(WordsOf(data), error);
  return error;
}

std::string FaultOfNoData(const std::string& data) {
  return data.empty() ? "" : "it takes no data, not \"" + data + "\"";
}

std::string NoFault(const std::string&) {
  return "";
}

struct Application {
  const char* name;
  std::string (*fault)(const std::string& data);
};

constexpr Application kApplications[] = {
    {"answer", &FaultOfNoData},
    {"bridge", &FaultsOfDialString},
    {"export", &FaultOfExport},
    {"hangup", &FaultOfHangup},
    {"log", &NoFault},
    {"park", &FaultOfNoData},
    {"set", &FaultOfAssignment},
    {"sleep", &FaultOfSleep},
    {"transfer", &FaultOfTransfer},
};

}  // namespace

std::string FaultOfAction(const std::string& application, const std::string& data) {
  for (const Application& known : kApplications) {
    if (application != known.name) continue;
    const std::string fault = known.fault(data);
    return fault.empty() ? "" : application + ": " + fault;
  }
  return "there is no application \"" + application + "\"";
}

std::optional<switch_call_cause_t> CauseOfText(const std::string& text) {
  const switch_call_cause_t cause = switch_channel_str2cause(text.c_str());
  const std::optional<long> number = NumberBetween(text, 1, 999);
  const bool known = number ? cause == static_cast<switch_call_cause_t>(*number)
                            : strcasecmp(switch_channel_cause2str(cause), text.c_str()) == 0;
  return known ? std::optional<switch_call_cause_t>(cause) : std::nullopt;
}

std::optional<std::chrono::milliseconds> SleepOfText(const std::string& text) {
  const std::optional<long> number = NumberBetween(text, 0, kLongestSleep);
  return number ? std::optional<std::chrono::milliseconds>(*number) : std::nullopt;
}

std::optional<std::chrono::seconds> RingTimeOfText(const std::string& text) {
  const std::optional<long> number = NumberBetween(text, 1, kLongestRing);
  return number ? std::optional<std::chrono::seconds>(*number) : std::nullopt;
}

bool ContinuesOnFail(const std::string& value, switch_call_cause_t cause) {
  if (switch_true(value.c_str()) && !NumberBetween(value, 2, 999)) return true;
  std::istringstream names(value);
  for (std::string name; std::getline(names, name, ',');) {
    if (CauseOfText(name) == cause) return true;
  }
  return false;
}

}  // namespace kvx_switch
