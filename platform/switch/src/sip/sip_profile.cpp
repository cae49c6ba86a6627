#include "sip/sip_profile.h"

#include <arpa/inet.h>
#include <switch.h>

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>
#include <set>
#include <utility>

#include "sip/located_xml.h"

namespace kvx_switch {

namespace {

/// Takes a parameter's value; false with the expectation that it does not meet.
using Setter = std::function<bool(const std::string& value, std::string& expected)>;

template <typename Number>
Setter NumberBetween(Number& target, uint32_t least, uint32_t most) {
  return [&target, least, most](const std::string& value, std::string& expected) {
    uint32_t number = 0;
    auto result = std::from_chars(value.data(), value.data() + value.size(), number);
    if (result.ec != std::errc() || result.ptr != value.data() + value.size() || number < least || number > most) {
      expected = "a number from " + std::to_string(least) + " to " + std::to_string(most);
      return false;
    }
    target = static_cast<Number>(number);
    return true;
  };
}

Setter TruthValue(bool& target) {
  return [&target](const std::string& value, std::string& expected) {
    target = switch_true(value.c_str());
    if (target || (!value.empty() && switch_false(value.c_str()))) return true;
    expected = "\"true\" or \"false\"";
    return false;
  };
}

Setter NumericAddress(std::string& target) {
  return [&target](const std::string& value, std::string& expected) {
    unsigned char address[sizeof(in6_addr)];
    target = value;
    const bool ipv4 = inet_pton(AF_INET, value.c_str(), address) == 1;
    const bool known = ipv4 || inet_pton(AF_INET6, value.c_str(), address) == 1;
    // Far ends are told of it: one that stands for all of this machine's would lead them nowhere.
    const bool one =
        std::any_of(address, address + (ipv4 ? sizeof(in_addr) : sizeof(in6_addr)), [](auto b) { return b; });
    expected = known ? "one address of this machine" : "a numeric address";
    return known && one;
  };
}

Setter Word(std::string& target) {
  return [&target](const std::string& value, std::string& expected) {
    target = value;
    expected = "a word";
    return !value.empty();
  };
}

Setter DtmfType(bool& telephone_events) {
  return [&telephone_events](const std::string& value, std::string& expected) {
    telephone_events = value == "rfc2833";
    expected = "\"rfc2833\" or \"none\"";
    return telephone_events || value == "none";
  };
}

Setter CommaList(std::vector<std::string>& target) {
  return [&target](const std::string& value, std::string&) {
    target.clear();
    std::string word;
    for (char c : value + ",") {
      if (c == ' ') continue;
      if (c != ',')
        word += c;
      else if (!word.empty())
        target.push_back(std::exchange(word, {}));
    }
    return true;
  };
}

/// NAME, or NAME with numbers behind: "@20i", "@8000h", "@24000b", in any order.
bool IsCodecPreference(const std::string& text) {
  size_t at = std::min(text.find('@'), text.size());
  if (at == 0) return false;
  while (at < text.size()) {
    const size_t unit = std::min(text.find_first_not_of("0123456789", at + 1), text.size());
    if (unit == at + 1 || unit == text.size() || std::string("ihb").find(text[unit]) == std::string::npos) return false;
    at = unit + 1;
    if (at < text.size() && text[at] != '@') return false;
  }
  return true;
}

Setter CodecPreferences(std::vector<std::string>& target) {
  return [&target](const std::string& value, std::string& expected) {
    CommaList(target)(value, expected);
    expected = "a list of NAME, NAME@20i, NAME@8000h or NAME@24000b";
    return std::all_of(target.begin(), target.end(), IsCodecPreference);
  };
}

/// As appended to the address that is bound: "transport=udp,tcp".
Setter BindParams(SipTransports& transports) {
  return [&transports](const std::string& value, std::string& expected) {
    expected = "\"transport=udp\", \"transport=tcp\" or \"transport=udp,tcp\"";
    const std::string start = "transport=";
    if (value.compare(0, start.size(), start) != 0) return false;
    std::vector<std::string> names;
    CommaList(names)(value.substr(start.size()), expected);
    transports = {false, false};
    for (const std::string& name : names) {
      if (name != "udp" && name != "tcp") return false;
      (name == "udp" ? transports.udp : transports.tcp) = true;
    }
    return !names.empty();
  };
}

Setter Security(SecureMedia& wanted) {
  return [&wanted](const std::string& value, std::string& expected) {
    const std::optional<SecureMedia> known = SecureMediaOfName(value);
    if (known) wanted = *known;
    expected = "\"off\", \"optional\" or \"mandatory\"";
    return known.has_value();
  };
}

Setter Suites(std::vector<SrtpSuite>& suites) {
  return [&suites](const std::string& value, std::string& expected) {
    std::vector<std::string> names;
    CommaList(names)(value, expected);
    suites.clear();
    for (const std::string& name : names) {
      const std::optional<SrtpSuite> suite = SrtpSuiteOfName(name);
      if (suite) suites.push_back(*suite);
    }
    expected = "a list of AES_CM_128_HMAC_SHA1_80 and AES_CM_128_HMAC_SHA1_32";
    return !names.empty() && suites.size() == names.size();
  };
}

std::map<std::string, Setter> Parameters(SipProfile& profile) {
  MediaSettings& media = profile.media;
  return {{"sip-ip", NumericAddress(profile.sip_address)},
          {"sip-port", NumberBetween(profile.sip_port, 0, 65535)},
          {"bind-params", BindParams(profile.transports)},
          {"timer-T1", NumberBetween(profile.timers.t1, 10, 10000)},
          {"timer-T1X64", NumberBetween(profile.timers.t1x64, 100, 640000)},
          {"timer-T2", NumberBetween(profile.timers.t2, 10, 40000)},
          {"timer-T4", NumberBetween(profile.timers.t4, 10, 50000)},
          {"tcp-idle-sec", NumberBetween(profile.tcp_idle_seconds, 1, 86400)},
          {"tcp-max-connections", NumberBetween(profile.tcp_connections, 1, 65535)},
          {"context", Word(profile.context)},
          {"apply-inbound-acl", Word(profile.access_list)},
          {"leg-timeout", NumberBetween(profile.leg_timeout_seconds, 1, 3600)},
          {"enable-timer", TruthValue(profile.session_timer.enabled)},
          {"session-timeout", NumberBetween(profile.session_timer.session_seconds, 1, 86400)},
          {"minimum-session-expires", NumberBetween(profile.session_timer.least_seconds, 1, 86400)},
          {"codec-prefs", CodecPreferences(profile.codec_prefs)},
          {"dtmf-type", DtmfType(media.telephone_events)},
          {"rfc2833-pt", NumberBetween(media.telephone_event_type, 96, 127)},
          {"inband-dtmf-to-rfc2833", TruthValue(media.inband_dtmf_to_events)},
          {"silence-suppression", TruthValue(media.silence_suppression)},
          {"suppress-cng", TruthValue(media.suppress_comfort_noise)},
          {"sid", TruthValue(media.sid)},
          {"g729-annexb", TruthValue(media.g729_annex_b)},
          {"rtp-ipv4-tos", NumberBetween(media.ipv4_tos, 0, 255)},
          {"rtp-ipv6-traffic-class", NumberBetween(media.ipv6_traffic_class, 0, 255)},
          {"rtp-hop-limit", NumberBetween(media.hop_limit, 1, 255)},
          {"rtp-timeout-sec", NumberBetween(media.rtp_timeout_seconds, 0, 86400)},
          {"remote-address-detection", TruthValue(media.remote_address_detection)},
          {"auto-local-port-renew", TruthValue(media.auto_local_port_renew)},
          {"asymmetric-dynamic-payload", TruthValue(media.asymmetric_dynamic_payload)},
          {"rtp-secure-media", Security(media.security.wanted)},
          {"rtp-secure-media-suites", Suites(media.security.suites)}};
}

bool ApplyParameter(const LocatedElement& param, const std::map<std::string, Setter>& known, const SipProfile& profile,
                    std::string& error) {
  const std::string* name = param.Attribute("name");
  const std::string* value = param.Attribute("value");
  if (!name || !value) {
    error = At(profile.file, param) + "a \"param\" needs \"name\" and \"value\"";
    return false;
  }
  auto setter = known.find(*name);
  if (setter == known.end()) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%sunknown parameter \"%s\", ignored\n",
                      At(profile.file, param).c_str(), name->c_str());
    return true;
  }
  std::string expected;
  if (setter->second(*value, expected)) return true;
  error = At(profile.file, param) + "\"" + *name + "\" is \"" + *value + "\", not " + expected;
  return false;
}

/// An element of another name is a mistyped one.
bool Expect(const char* name, const LocatedElement& element, const std::string& path) {
  if (element.name == name) return true;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%sexpected <%s>, not <%s>; ignored\n",
                    At(path, element).c_str(), name, element.name.c_str());
  return false;
}

void WarnOfTimers(const SipProfile& profile) {
  constexpr uint32_t kLeast = 90;  // RFC 4028, 5
  const SessionTimerSettings& timer = profile.session_timer;
  const auto warn = [&profile](const char* name, const std::string& what) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s%s\n", PlaceOfParameter(profile.file, name).c_str(),
                      what.c_str());
  };
  if (timer.least_seconds < kLeast) {
    warn("minimum-session-expires", "\"minimum-session-expires\" is " + std::to_string(timer.least_seconds) +
                                        ", less than the 90 of RFC 4028; far ends may refuse it");
  }
  if (timer.session_seconds < timer.least_seconds) {
    warn("session-timeout", "\"session-timeout\" is " + std::to_string(timer.session_seconds) + ", less than the " +
                                std::to_string(timer.least_seconds) +
                                " of \"minimum-session-expires\", which is taken");
  }
}

}  // namespace

bool LoadSipProfile(const std::string& path, SipProfile& profile, std::string& error) {
  LocatedElement root;
  if (!ReadLocatedXml(path, root, error)) return false;
  const std::string* name = root.Attribute("name");
  if (root.name != "profile" || !name || name->empty()) {
    error = At(path, root) + "expected <profile name=\"...\">, not <" + root.name + ">";
    return false;
  }
  profile = {};
  profile.file = path;
  profile.name = *name;
  const std::map<std::string, Setter> known = Parameters(profile);
  // Every mistake of the file, not only the first.
  error.clear();
  std::set<std::string> names;
  for (const LocatedElement& section : root.children) {
    if (!Expect("settings", section, path)) continue;
    for (const LocatedElement& param : section.children) {
      std::string mistake;
      const std::string* given = param.Attribute("name");
      if (given && !names.insert(*given).second) {
        switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s\"%s\" stands here again; the last counts\n",
                          At(path, param).c_str(), given->c_str());
      }
      if (!Expect("param", param, path) || ApplyParameter(param, known, profile, mistake)) continue;
      error += (error.empty() ? "" : "\n") + mistake;
    }
  }
  if (error.empty()) WarnOfTimers(profile);
  return error.empty();
}

}  // namespace kvx_switch
