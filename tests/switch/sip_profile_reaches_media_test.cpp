#include <switch.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "sip_applications_fixture.h"

namespace kvx_switch {
namespace {

using testing::ElementsAre;

/// What the two callbacks are told without any parameter; see FakeMediaServer::Arguments::settings.
const std::vector<int> kUsualLocal = {0, 0, 0, 0, 1, 0, 0, 0, 0};
const std::vector<int> kUsualRemote = {0, 0, 0, 0};

std::vector<int> With(std::vector<int> settings, int place, int value) {
  if (place >= 0) settings[static_cast<size_t>(place)] = value;
  return settings;
}

struct Parameter {
  const char* name;
  const char* value;
  int in_local;   ///< its place in get_media's settings; -1: none
  int in_remote;  ///< in set_media's
  int number;     ///< what arrives there

  friend void PrintTo(const Parameter& one, std::ostream* out) { *out << one.name << "=" << one.value; }
};

class SipProfileReachesMedia : public SipCall, public testing::WithParamInterface<Parameter> {};

TEST_P(SipProfileReachesMedia, OnBothLegs) {
  const Parameter& parameter = GetParam();
  Profile(std::string("<param name=\"") + parameter.name + "\" value=\"" + parameter.value + "\"/>");
  StopSipSide();
  StartSipSide();
  ConnectToBob();
  for (const char* leg : {"A", "B"}) {
    SCOPED_TRACE(leg);
    EXPECT_EQ(media_->Of(std::string(leg) + " get_media").settings,
              With(kUsualLocal, parameter.in_local, parameter.number));
    EXPECT_EQ(media_->Of(std::string(leg) + " set_media").settings,
              With(kUsualRemote, parameter.in_remote, parameter.number));
  }
}

INSTANTIATE_TEST_SUITE_P(EachParameter, SipProfileReachesMedia,
                         testing::Values(Parameter{"inband-dtmf-to-rfc2833", "true", 0, -1, 1},
                                         Parameter{"silence-suppression", "true", 1, 0, 1},
                                         Parameter{"rtp-ipv4-tos", "184", 2, -1, 184},
                                         Parameter{"rtp-ipv6-traffic-class", "40", 3, -1, 40},
                                         Parameter{"g729-annexb", "false", 4, -1, 0},
                                         Parameter{"suppress-cng", "true", 5, 2, 1}, Parameter{"sid", "true", 6, 3, 1},
                                         Parameter{"auto-local-port-renew", "true", 7, -1, 1},
                                         Parameter{"asymmetric-dynamic-payload", "true", 8, -1, 1},
                                         Parameter{"remote-address-detection", "true", -1, 1, 1}),
                         [](const testing::TestParamInfo<Parameter>& info) {
                           std::string name = info.param.name;
                           for (char& c : name) {
                             if (c == '-') c = '_';
                           }
                           return name;
                         });

class SipProfileNumbers : public SipCall {};

TEST_F(SipProfileNumbers, ReachBothLegs) {
  Profile(
      "<param name=\"rtp-hop-limit\" value=\"7\"/><param name=\"rtp-timeout-sec\" value=\"86400\"/>"
      "<param name=\"rfc2833-pt\" value=\"127\"/>");
  StopSipSide();
  StartSipSide();
  ConnectToBob(SipPeer::Sdp("0 98", "a=rtpmap:98 telephone-event/8000\n"), SipPeer::Sdp("0"));
  EXPECT_EQ(media_->Of("B get_media").event_type, 127);
  for (const char* call : {"A get_media", "B get_media"}) {
    EXPECT_EQ(media_->Of(call).hop_limit, 7) << call;
    EXPECT_EQ(media_->Of(call).rtp_timeout, 86400u) << call;
  }
}

TEST_F(SipProfileNumbers, DtmfTypeNoneNegotiatesNoEvents) {
  Profile("<param name=\"dtmf-type\" value=\"none\"/>");
  StopSipSide();
  StartSipSide();
  const std::string events = "a=rtpmap:98 telephone-event/8000\n";
  ConnectToBob(SipPeer::Sdp("0 98", events), SipPeer::Sdp("0 98", events));
  for (const char* call : {"A set_media", "A get_media", "B get_media", "B set_media"}) {
    EXPECT_EQ(media_->Of(call).event_type, 0) << call;
  }
}

/// The variables of a leg as the media server sees them in a call.
class SipVariablesReachMedia : public SipApplications {
 protected:
  /// What leg "A" or "B" has for `names` in `call`.
  void Watch(const std::string& leg, const std::string& call, const std::vector<std::string>& names) {
    const auto direction = leg == "A" ? SWITCH_CALL_DIRECTION_INBOUND : SWITCH_CALL_DIRECTION_OUTBOUND;
    media_->OnCall(leg + " " + call, [this, leg, names, direction] {
      std::string seen;
      for (const std::string& name : names) seen += VariableOfLeg(direction, name.c_str()) + " ";
      std::lock_guard<std::mutex> lock(mutex_);
      seen_[leg] = seen;
    });
  }
  std::string Seen(const std::string& leg) {
    std::lock_guard<std::mutex> lock(mutex_);
    return seen_[leg];
  }

 private:
  std::mutex mutex_;
  std::map<std::string, std::string> seen_;  // guarded by mutex_
};

/// A variable that is read at each description, and a value for each leg.
struct LegVariables {
  const char* name;
  const char* a;
  const char* b;
};
constexpr LegVariables kReadAtEachDescription[] = {
    {"jitterbuffer_mode", "static", "adaptive"},     {"jitterbuffer_msec", "100:60", "150:40:20"},
    {"video_jitterbuffer_mode", "adaptive", "none"}, {"video_jitterbuffer_msec", "70:30", "80"},
    {"bridge_answer_timeout", "10", "11"},           {"rtp_allow_inband_to_2833_dtmf_conversion", "false", "true"},
    {"rtp_fax_mode_auto_switch_mask", "CED", "CNG"}, {"reset_rtp_on_remote_ssrc_change", "true", "no"}};

TEST_F(SipVariablesReachMedia, WhenTheDialplanSetsThemBeforeTheMediaIsMade) {
  std::string set;
  std::string braces;
  std::string expected_a;
  std::string expected_b;
  std::vector<std::string> names;
  for (const auto& [name, a, b] : kReadAtEachDescription) {
    names.push_back(name);
    set += Action("set", name + std::string("=") + a);
    braces += (braces.empty() ? "" : ",") + (name + std::string("=")) + b;
    expected_a += a + std::string(" ");
    expected_b += b + std::string(" ");
  }
  Start(set + Action("bridge", "{" + braces + "}" + Bob()));
  Watch("A", "get_media", names);
  Watch("B", "get_media", names);
  TalkToBob();
  EXPECT_EQ(Seen("A"), expected_a);
  EXPECT_EQ(Seen("B"), expected_b);
}

TEST_F(SipVariablesReachMedia, MediaSessionIsKnownWhenTheLegIsCreated) {
  Start(Action("set", "media_session_uuid=01234567-89ab-4cde-8123-456789abcdef") + Action("bridge", Bob()));
  Watch("A", "create", {"media_session_uuid"});
  TalkToBob();
  EXPECT_EQ(Seen("A"), "01234567-89ab-4cde-8123-456789abcdef ");
}

}  // namespace
}  // namespace kvx_switch
