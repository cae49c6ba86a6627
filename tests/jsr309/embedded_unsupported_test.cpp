// Every setting that a record may have and the embedded media server has nothing for: named once, whoever asks.
#include "embedded_fixture.h"

#include <functional>

namespace {

using namespace kelvaro::jsr309;
using test_support::EmbeddedTest;

enum class In { kLocal, kRemote };

struct Setting {
  const char* name;
  const char* consequence;
  In in;
  std::function<void(MediaConfig&)> set;
};

void AddPlainCodec(MediaConfig& config, const char* name, bool video, const char* format, int channels) {
  config.AddCodec(name, 96, 20, video ? 90000 : 8000, 0, video, 0, 0, 0, format, channels, 1.0);
}

const char* const kNoVideo = "there is no video";
const char* const kBufferStays = "the jitter buffer stays as it is";
const char* const kStay = "they stay as they are";

const Setting kSettings[] = {
    {"SilenceSuppressionFlag", "silence is not looked for, packets are passed on as they come", In::kLocal,
     [](MediaConfig& config) { config.SetSilenceSuppressionFlag(true); }},
    {"SidFlag", "no silence descriptors are made, those of the far ends are passed on", In::kRemote,
     [](MediaConfig& config) { config.SetSidFlag(true); }},
    {"SidFlag false", "silence descriptors of the far ends are passed on unless annex A or B is declined", In::kLocal,
     [](MediaConfig& config) { config.SetSidFlag(false); }},
    {"AllowInbandTo2833Conversion", "tones stay in the audio", In::kLocal,
     [](MediaConfig& config) { config.SetAllowInbandTo2833Conversion(true); }},
    {"FaxModeAutoSwitchMask", "fax signals do not switch the stream", In::kLocal,
     [](MediaConfig& config) { config.SetFaxModeAutoSwitchMask("CNG"); }},
    {"JitterMode and delays in a remote description", kBufferStays, In::kRemote,
     [](MediaConfig& config) { config.SetJitterMode(MediaConfig::JITTER_MODE_STATIC); }},
    {"jitter buffer delays without JitterMode", kBufferStays, In::kLocal,
     [](MediaConfig& config) { config.SetJitterMaxPdvMs(100); }},
    {"JitterMode 3", kBufferStays, In::kLocal,
     [](MediaConfig& config) { config.SetJitterMode(MediaConfig::JITTER_MODE_INVALID); }},
    {"jitter buffer delays of JitterMode none", "packets pass at once", In::kLocal,
     [](MediaConfig& config) {
       config.SetJitterMode(MediaConfig::JITTER_MODE_NONE);
       config.SetJitterInitialDelayMs(40);
     }},
    {"JitterMinDelayMs of a static jitter buffer", "it counts in adaptive mode only", In::kLocal,
     [](MediaConfig& config) {
       config.SetJitterMode(MediaConfig::JITTER_MODE_STATIC);
       config.SetJitterMinDelayMs(20);
     }},
    {"UdpPassThruPeer in a local description", "what is relayed stays as it is", In::kLocal,
     [](MediaConfig& config) { config.SetUdpPassThruPeerRemotePort(4000); }},
    {"codec format parameters", "payloads are passed on as they come", In::kRemote,
     [](MediaConfig& config) { AddPlainCodec(config, "AMR", false, "mode-set=7", 0); }},
    {"codecs of several channels", "they count as the same as those of one", In::kLocal,
     [](MediaConfig& config) { AddPlainCodec(config, "L16", false, nullptr, 2); }},
    {"IP header fields in a remote description", kStay, In::kRemote,
     [](MediaConfig& config) { config.SetIpv6HopLimit(4); }},
    {"RTP timeouts in a remote description", kStay, In::kRemote,
     [](MediaConfig& config) { config.SetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING, 4); }},
    {"AutoLocalPortRenew in a remote description", "the local port stays", In::kRemote,
     [](MediaConfig& config) { config.SetAutoLocalPortRenew(true); }},
    {"video codecs", "they are left out", In::kLocal,
     [](MediaConfig& config) { AddPlainCodec(config, "H264", true, "profile-level-id=1", 0); }},
    {"VideoJitterBufferType", kNoVideo, In::kLocal,
     [](MediaConfig& config) { config.SetVideoJitterBufferType("static"); }},
    {"VideoJitterBufferInitialDelayMs", kNoVideo, In::kLocal,
     [](MediaConfig& config) { config.SetVideoJitterBufferInitialDelayMs(1); }},
    {"VideoJitterBufferMinDelayMs", kNoVideo, In::kLocal,
     [](MediaConfig& config) { config.SetVideoJitterBufferMinDelayMs(1); }},
};

class EmbeddedUnsupported : public EmbeddedTest {
 protected:
  std::vector<std::string> Named() {
    std::vector<std::string> named;
    for (const std::string& message : logger().Messages(kelvaro::INFO_LOG_LEVEL)) {
      const auto at = message.find("The embedded media server does not support ");
      if (at != std::string::npos) named.push_back(message.substr(at));
    }
    return named;
  }
  /// A connection whose description, of that side, has the setting.
  void AskFor(const SessionPtr& session, const Setting& setting) {
    Leg leg;
    leg.connection = NewConnection(session);
    AddCodec(leg.local);
    MediaConfig remote = RemoteOf(leg);
    setting.set(setting.in == In::kLocal ? leg.local : remote);
    ASSERT_TRUE(leg.connection->GetLocalOffer(leg.local)) << setting.name;
    ASSERT_TRUE(leg.connection->SetRemoteAnswer(remote)) << setting.name;
  }
};

TEST_F(EmbeddedUnsupported, EachSettingIsNamedOnceHoweverManyConnectionsAskForIt) {
  for (const Setting& setting : kSettings) {
    Start();
    const auto session = NewSession();
    const auto before = Named().size();
    for (int i = 0; i < 3; ++i) AskFor(session, setting);
    const auto named = Named();
    ASSERT_EQ(named.size(), before + 1) << setting.name;
    EXPECT_EQ(named.back(), std::string("The embedded media server does not support ") + setting.name +
                                " yet: " + setting.consequence);
    DestroyFactory();
  }
}

TEST_F(EmbeddedUnsupported, EachServerNamesItForItself) {
  test_support::EmbeddedOptions options;
  options.addresses = {"127.0.0.1", "127.0.0.2"};
  Start(options);
  const auto here = NewSession(), there = NewSession();
  for (const auto& session : {here, there, here, there}) AskFor(session, kSettings[0]);
  EXPECT_EQ(Named().size(), 2u);
}

}  // namespace
