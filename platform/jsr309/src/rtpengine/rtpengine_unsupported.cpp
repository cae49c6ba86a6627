#include "rtpengine/rtpengine_unsupported.h"

#include <algorithm>
#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

void NameStreamSettings(const MediaConfig& config, RtpengineContext& context) {
  if (config.GetSilenceSuppressionFlag().value_or(false)) {
    context.NameUnsupported("SilenceSuppressionFlag", "silence is not looked for, packets are passed on as they come");
  }
  if (config.GetSidFlag().value_or(false)) {
    context.NameUnsupported("SidFlag", "no silence descriptors are made, those of the far ends are passed on");
  }
  if (config.GetCngSuppressionFlag().value_or(false)) {
    context.NameUnsupported("CngSuppressionFlag", "comfort noise is passed on as it comes");
  }
  if (!config.GetG729AnnexBFlag().value_or(true) || !config.GetG723AnnexAFlag().value_or(true)) {
    context.NameUnsupported("G729AnnexBFlag and G723AnnexAFlag", "silence descriptors are passed on as they come");
  }
  if (config.GetAllowInbandTo2833Conversion().value_or(false)) {
    context.NameUnsupported("AllowInbandTo2833Conversion", "tones stay in the audio");
  }
  const char* const fax_mask = config.GetFaxModeAutoSwitchMask();
  if (fax_mask != nullptr && *fax_mask != '\0') {
    context.NameUnsupported("FaxModeAutoSwitchMask", "fax signals do not switch the stream");
  }
}

void NameJitterBuffer(const MediaConfig& config, RtpengineContext& context) {
  const auto mode = config.GetJitterMode();
  const bool delays = config.GetJitterInitialDelayMs() || config.GetJitterMinDelayMs() || config.GetJitterMaxPdvMs();
  if (delays || (mode && *mode != MediaConfig::JITTER_MODE_NONE)) {
    context.NameUnsupported("JitterMode and delays", "the daemon's own jitter-buffer option counts for all calls");
  }
}

void NameRtcp(const MediaConfig& config, RtpengineContext& context) {
  if (!config.GetRtcpFlag().value_or(true)) {
    context.NameUnsupported("RtcpFlag", "reports are relayed between the far ends as they come");
  }
  if (config.GetResetRtpOnRemoteSSRCChange().value_or(false)) {
    context.NameUnsupported("ResetRtpOnRemoteSSRCChange", "sources are passed on as they come");
  }
}

void NameCrypto(const MediaConfig& config, RtpengineContext& context) {
  constexpr int kLongest = 48;
  if (!config.GetCrypto()) return;
  const int exponent = config.GetCrypto()->lifetime_exponent;
  if (exponent > 0 && exponent < kLongest) {
    context.NameUnsupported("lifetimes of SRTP keys", "keys serve for as many packets as there are");
  }
}

void NameMarks(const MediaConfig& config, RtpengineContext& context) {
  if (config.HasIpv4TimeToLive() || config.HasIpv6HopLimit()) {
    context.NameUnsupported("Ipv4TimeToLive and Ipv6HopLimit", "they are those of the daemon's host");
  }
}

/// What is said of our side belongs into a local description, where it is looked for.
void NameLocalSettings(const MediaConfig& config, RtpengineContext& context) {
  const char* const unchanged = "they stay as they are";
  if (config.HasIpv4Tos() || config.HasIpv4TimeToLive() || config.HasIpv6TrafficClass() || config.HasIpv6HopLimit()) {
    context.NameUnsupported("IP header fields in a remote description", unchanged);
  }
  if (config.GetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_INACTIVE) ||
      config.GetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING)) {
    context.NameUnsupported("RTP timeouts in a remote description", unchanged);
  }
  if (config.GetAutoLocalPortRenew().value_or(false)) {
    context.NameUnsupported("AutoLocalPortRenew in a remote description", "the local port stays");
  }
}

void NameVideo(const MediaConfig& config, RtpengineContext& context) {
  for (const MediaCodec& codec : config.GetCodecs()) {
    if (codec.video) context.NameUnsupported("video codecs", "they are left out");
  }
  const char* const no_video = "there is no video";
  if (config.GetVideoJitterBufferType() != nullptr) context.NameUnsupported("VideoJitterBufferType", no_video);
  if (config.GetVideoJitterBufferInitialDelayMs()) {
    context.NameUnsupported("VideoJitterBufferInitialDelayMs", no_video);
  }
  if (config.GetVideoJitterBufferMinDelayMs()) context.NameUnsupported("VideoJitterBufferMinDelayMs", no_video);
}

}  // namespace

void NameIgnoredElements(RtpengineContext& context) {
  const std::vector<std::string>& given = context.settings().given;
  for (const auto& [element, option] :
       {std::pair("rtp_port_min", "port-min"), {"rtp_port_max", "port-max"}, {"threads", "num-threads"}}) {
    if (std::find(given.begin(), given.end(), element) == given.end()) continue;
    context.NameUnsupported(element, "the daemon's own " + std::string(option) + " option counts");
  }
}

void NameUnsupportedSettings(const MediaConfig& config, Side side, RtpengineContext& context) {
  NameStreamSettings(config, context);
  NameJitterBuffer(config, context);
  NameRtcp(config, context);
  NameCrypto(config, context);
  if (side == Side::kRemote) {
    NameLocalSettings(config, context);
  } else {
    NameMarks(config, context);
    if (config.GetUdpPassThruPeer()) {
      context.NameUnsupported("UdpPassThruPeer in a local description", "what is relayed stays as it is");
    }
  }
  NameVideo(config, context);
}

}  // namespace kelvaro::jsr309::rtpengine
