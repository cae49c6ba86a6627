#include "sip/sip_profile.h"

#include <arpa/inet.h>
#include <switch.h>

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>
#include <set>
#include <utility>

#include "core/configuration.h"
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
    const bool ipv4 = inet_pton(AF_INET, value.c_str(), address) == 1;
    const bool known = ipv4 || inet_pton(AF_INET6, value.c_str(), address) == 1;
    // Far ends are told of it: one that stands for all of this machine's would lead them nowhere.
    const bool one =
        std::any_of(address, address + (ipv4 ? sizeof(in_addr) : sizeof(in6_addr)), [](auto b) { return b; });
    expected = known ? "one address of this machine" : "a numeric address";
    if (known && one) target = value;
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

/// The words of a list, without blanks; an empty one between two commas, or behind the last, is one that is missing.
bool SplitList(const std::string& value, std::vector<std::string>& words) {
  words.clear();
  std::string word;
  for (char c : value + ",") {
    if (c == ' ') continue;
    if (c == ',')
      words.push_back(std::exchange(word, {}));
    else
      word += c;
  }
  return std::none_of(words.begin(), words.end(), [](const std::string& one) { return one.empty(); });
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
    std::vector<std::string> names;
    const bool whole = value.empty() || SplitList(value, names);
    expected = "a list of NAME, NAME@20i, NAME@8000h or NAME@24000b";
    if (!whole) expected += " without an empty place in it";
    if (!whole || !std::all_of(names.begin(), names.end(), IsCodecPreference)) return false;
    target = std::move(names);
    return true;
  };
}

/// As appended to the address that is bound: "transport=udp,tcp".
Setter BindParams(SipTransports& transports) {
  return [&transports](const std::string& value, std::string& expected) {
    expected = "\"transport=udp\", \"transport=tcp\" or \"transport=udp,tcp\"";
    const std::string start = "transport=";
    if (value.compare(0, start.size(), start) != 0) return false;
    std::vector<std::string> names;
    SplitList(value.substr(start.size()), names);
    SipTransports wanted{false, false};
    for (const std::string& name : names) {
      if (name != "udp" && name != "tcp") return false;
      (name == "udp" ? wanted.udp : wanted.tcp) = true;
    }
    transports = wanted;
    return true;
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
    SplitList(value, names);
    std::vector<SrtpSuite> wanted;
    for (const std::string& name : names) {
      const std::optional<SrtpSuite> suite = SrtpSuiteOfName(name);
      if (suite) wanted.push_back(*suite);
    }
    expected = "a list of AES_CM_128_HMAC_SHA1_80 and AES_CM_128_HMAC_SHA1_32";
    if (wanted.size() != names.size()) return false;
    suites = std::move(wanted);
    return true;
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

void Warn(const std::string& lines) {
  if (!lines.empty()) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%s\n", lines.c_str());
}

/// Takes the parameters of a profile and gathers every mistake in them.
class ProfileReader {
 public:
  explicit ProfileReader(SipProfile& profile) : profile_(profile), known_(Parameters(profile)) {}

  std::string Read(const LocatedElement& root) {
    WarnOfAttributes(root, {"name"});
    for (const LocatedElement& section : root.children) {
      if (!Expect("settings", section)) continue;
      WarnOfAttributes(section, {});
      for (const LocatedElement& param : section.children) {
        if (Expect("param", param)) ReadParam(param);
      }
    }
    // Nobody knows what they would come to.
    if (bad_.count("sip-ip") || bad_.count("sip-port")) profile_.sip_port = 0;
    if (bad_.count("context")) profile_.context.clear();
    if (bad_.count("apply-inbound-acl")) profile_.access_list.clear();
    if (!bad_.count("session-timeout") && !bad_.count("minimum-session-expires")) WarnOfTimers();
    return mistakes_;
  }

 private:
  void WarnOfAttributes(const LocatedElement& element, std::initializer_list<const char*> known) {
    Warn(UnknownAttributes(profile_.file, element, known, "; ignored"));
  }

  /// An element of another name is a mistyped one.
  bool Expect(const std::string& name, const LocatedElement& element) {
    if (element.name == name) return true;
    Warn(At(profile_.file, element) + "expected <" + name + ">, not <" + element.name + ">; ignored");
    return false;
  }

  void ReadParam(const LocatedElement& param) {
    WarnOfAttributes(param, {"name", "value"});
    const std::string* name = param.Attribute("name");
    const std::string* value = param.Attribute("value");
    const std::string place = At(profile_.file, param);
    if (name && !names_.insert(*name).second) Warn(place + "\"" + *name + "\" stands here again; the last counts");
    if (!name || !value) {
      AddLine(mistakes_, place + "a \"param\" needs \"name\" and \"value\"");
      if (name) bad_.insert(*name);
      return;
    }
    auto setter = known_.find(*name);
    if (setter == known_.end()) return Warn(place + "unknown parameter \"" + *name + "\", ignored");
    std::string expected;
    if (setter->second(*value, expected)) return;
    bad_.insert(*name);
    AddLine(mistakes_, place + "\"" + *name + "\" is \"" + *value + "\", not " + expected);
  }

  void WarnOfTimers() const;

  SipProfile& profile_;
  const std::map<std::string, Setter> known_;
  std::set<std::string> names_;  // of the parameters that were given
  std::set<std::string> bad_;    // those of them whose value makes no sense
  std::string mistakes_;
};

void ProfileReader::WarnOfTimers() const {
  constexpr uint32_t kLeast = 90;  // RFC 4028, 5
  const SessionTimerSettings& timer = profile_.session_timer;
  const auto warn = [this](const char* name, const std::string& what) {
    Warn(PlaceOfParameter(profile_.file, name) + what);
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
  profile = {};
  LocatedElement root;
  if (!ReadLocatedXml(path, root, error)) return false;
  const std::string* name = root.Attribute("name");
  if (root.name != "profile" || !name || name->empty()) {
    error = At(path, root) + "expected <profile name=\"...\">, not <" + root.name + ">";
    return false;
  }
  profile.file = path;
  profile.name = *name;
  error = ProfileReader(profile).Read(root);
  return error.empty();
}

}  // namespace kvx_switch
