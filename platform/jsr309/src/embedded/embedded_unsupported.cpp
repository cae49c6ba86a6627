// What a record may ask for and the engine cannot do, told by name.
#include "embedded/embedded_translation.h"

namespace kelvaro::jsr309 {
namespace {

void NameStreamSettings(const MediaConfig& config, EmbeddedContext& context) {
  if (config.GetSilenceSuppressionFlag().value_or(false)) {
    context.NameUnsupported("SilenceSuppressionFlag", "silence is not looked for, packets are passed on as they come");
  }
  if (config.GetSidFlag()) {
    if (*config.GetSidFlag()) {
      context.NameUnsupported("SidFlag", "no silence descriptors are made, those of the far ends are passed on");
    } else {
      context.NameUnsupported("SidFlag false",
                              "silence descriptors of the far ends are passed on unless annex A or B is declined");
    }
  }
  if (config.GetAllowInbandTo2833Conversion().value_or(false)) {
    context.NameUnsupported("AllowInbandTo2833Conversion", "tones stay in the audio");
  }
  const char* const fax_mask = config.GetFaxModeAutoSwitchMask();
  if (fax_mask != nullptr && *fax_mask != '\0') {
    context.NameUnsupported("FaxModeAutoSwitchMask", "fax signals do not switch the stream");
  }
}

/// Delays belong to a mode, and the buffer to the local side.
void NameJitterBuffer(const MediaConfig& config, Side side, EmbeddedContext& context) {
  const std::optional<MediaConfig::JitterMode> mode = config.GetJitterMode();
  const bool delays = config.GetJitterInitialDelayMs() || config.GetJitterMinDelayMs() || config.GetJitterMaxPdvMs();
  const char* const unchanged = "the jitter buffer stays as it is";
  if (side == Side::kRemote) {
    if (mode || delays) context.NameUnsupported("JitterMode and delays in a remote description", unchanged);
  } else if (!mode) {
    if (delays) context.NameUnsupported("jitter buffer delays without JitterMode", unchanged);
  } else if (*mode < MediaConfig::JITTER_MODE_NONE || *mode > MediaConfig::JITTER_MODE_ADAPTIVE) {
    context.NameUnsupported("JitterMode " + std::to_string(*mode), unchanged);
  } else if (*mode == MediaConfig::JITTER_MODE_NONE && delays) {
    context.NameUnsupported("jitter buffer delays of JitterMode none", "packets pass at once");
  } else if (*mode == MediaConfig::JITTER_MODE_STATIC && config.GetJitterMinDelayMs()) {
    context.NameUnsupported("JitterMinDelayMs of a static jitter buffer", "it counts in adaptive mode only");
  }
}

void NameCodecParameters(const MediaConfig& config, EmbeddedContext& context) {
  for (const MediaCodec& codec : config.GetCodecs()) {
    if (codec.video) continue;
    if (!codec.format_parameters.value_or("").empty()) {
      context.NameUnsupported("codec format parameters", "payloads are passed on as they come");
    }
    if (codec.channels > 1) {
      context.NameUnsupported("codecs of several channels", "they count as the same as those of one");
    }
  }
}

/// What is said of our side belongs into a local description, where it is looked for.
void NameLocalSettings(const MediaConfig& config, EmbeddedContext& context) {
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

void NameVideo(const MediaConfig& config, EmbeddedContext& context) {
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

void NameUnsupportedSettings(const MediaConfig& config, Side side, EmbeddedContext& context) {
  NameStreamSettings(config, context);
  NameJitterBuffer(config, side, context);
  NameCodecParameters(config, context);
  if (side == Side::kRemote) NameLocalSettings(config, context);
  if (side == Side::kLocal && config.GetUdpPassThruPeer()) {
    context.NameUnsupported("UdpPassThruPeer in a local description", "what is relayed stays as it is");
  }
  NameVideo(config, context);
}

}  // namespace kelvaro::jsr309
