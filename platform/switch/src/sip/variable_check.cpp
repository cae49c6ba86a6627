#include "sip/variable_check.h"

#include <strings.h>
#include <switch.h>

#include <algorithm>
#include <charconv>
#include <sstream>

#include "sip/dialplan_applications.h"
#include "sip/reference.h"
#include "sip/srtp_keys.h"

namespace kvx_switch {

namespace {

constexpr long kLongestAnswerTimeout = 86400;
constexpr long kWidestDelayVariation = 200;

/// "" when the value is what is expected, else what that is.
using Judge = std::string (*)(const std::string& value);

bool IsNumber(const std::string& text, long least, long most) {
  long number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return result.ec == std::errc() && result.ptr == text.data() + text.size() && number >= least && number <= most;
}

std::string Truth(const std::string& value) {
  return switch_true(value.c_str()) || switch_false(value.c_str()) ? "" : "\"true\" or \"false\"";
}

std::string RingTime(const std::string& value) {
  return RingTimeOfText(value) ? "" : "a number from 1 to 3600";
}

std::string AnswerTimeout(const std::string& value) {
  return IsNumber(value, 0, kLongestAnswerTimeout) ? "" : "a number from 0 to " + std::to_string(kLongestAnswerTimeout);
}

std::string Security(const std::string& value) {
  return SecureMediaOfName(value) ? "" : "\"off\", \"optional\" or \"mandatory\"";
}

std::string TruthOrCauses(const std::string& value) {
  if (Truth(value).empty()) return "";
  std::istringstream names(value);
  for (std::string name; std::getline(names, name, ',');) {
    if (!CauseOfText(name)) return "\"true\", \"false\" or a list of hang-up causes";
  }
  return "";
}

std::string JitterMode(const std::string& value) {
  for (const char* mode : {"none", "static", "adaptive"}) {
    if (strcasecmp(value.c_str(), mode) == 0) return "";
  }
  return "\"none\", \"static\" or \"adaptive\"";
}

/// "number:number:...", each of which may be missing.
bool AreDelays(const std::string& value, size_t most) {
  std::istringstream fields(value);
  size_t count = 0;
  for (std::string field; std::getline(fields, field, ':'); ++count) {
    if (!field.empty() && !IsNumber(field, 0, INT32_MAX)) return false;
  }
  return count <= most;
}

std::string AudioDelays(const std::string& value) {
  const std::string variation = value.substr(0, value.find(':'));
  const bool good = AreDelays(value, 3) && (variation.empty() || IsNumber(variation, 0, kWidestDelayVariation));
  return good ? "" : "pdv:initial:min in milliseconds, the first at most " + std::to_string(kWidestDelayVariation);
}

std::string VideoDelays(const std::string& value) {
  return AreDelays(value, 2) ? "" : "initial:min in milliseconds";
}

std::string Uuid(const std::string& value) {
  constexpr size_t kLength = 36;
  bool good = value.size() == kLength;
  for (size_t i = 0; good && i < value.size(); ++i) {
    const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    good = dash ? value[i] == '-' : isxdigit(static_cast<unsigned char>(value[i])) != 0;
  }
  return good ? "" : "a uuid";
}

struct Known {
  const char* name;
  Judge judge;
};

constexpr Known kKnown[] = {
    {"leg_timeout", &RingTime},
    {"call_timeout", &RingTime},
    {"originate_timeout", &RingTime},
    {"rtp_secure_media", &Security},
    {"continue_on_fail", &TruthOrCauses},
    {"hangup_after_bridge", &Truth},
    {"bridge_answer_timeout", &AnswerTimeout},
    {"generate_rtcp_report", &Truth},
    {"rtp_allow_inband_to_2833_dtmf_conversion", &Truth},
    {"jitterbuffer_mode", &JitterMode},
    {"jitterbuffer_msec", &AudioDelays},
    {"video_jitterbuffer_mode", &JitterMode},
    {"video_jitterbuffer_msec", &VideoDelays},
    {"media_session_uuid", &Uuid},
};

}  // namespace

std::string FaultOfVariable(const std::string& name, const std::string& value) {
  if (HasReference(name) || HasReference(value)) return "";
  const bool blank = std::any_of(name.begin(), name.end(), [](unsigned char c) { return c <= ' ' || c == 0x7f; });
  if (name.empty() || blank) return "\"" + name + "\" is no name of a variable";
  if (value.empty()) return "";
  for (const Known& known : kKnown) {
    if (strcasecmp(name.c_str(), known.name) != 0) continue;
    const std::string expected = known.judge(value);
    return expected.empty() ? "" : name + " is \"" + value + "\", not " + expected;
  }
  return "";
}

}  // namespace kvx_switch
