// What a record may ask for and the engine cannot do, told by name.
#include "embedded/embedded_translation.h"

#include <strings.h>

namespace kelvaro::jsr309 {
namespace {

bool Lists(const MediaConfig& config, const char* codec_name) {
  for (const MediaCodec& codec : config.GetCodecs()) {
    if (strcasecmp(codec.name.c_str(), codec_name) == 0) return true;
  }
  return false;
}

void NameStreamSettings(const MediaConfig& config, EmbeddedContext& context) {
  if (config.GetSilenceSuppressionFlag().value_or(false)) {
    context.NameUnsupported("SilenceSuppressionFlag", "packets are passed on as they come");
  }
  if (config.GetCngSuppressionFlag().value_or(false)) {
    context.NameUnsupported("CngSuppressionFlag", "comfort noise packets are never passed on");
  }
  if (config.GetSidFlag().value_or(false)) {
    context.NameUnsupported("SidFlag", "silence descriptors within a codec are passed on as they come");
  }
  if (config.GetAllowInbandTo2833Conversion().value_or(false)) {
    context.NameUnsupported("AllowInbandTo2833Conversion", "tones stay in the audio");
  }
  const char* const fax_mask = config.GetFaxModeAutoSwitchMask();
  if (fax_mask != nullptr && *fax_mask != '\0') {
    context.NameUnsupported("FaxModeAutoSwitchMask", "fax signals do not switch the stream");
  }
}

void NameCodecSettings(const MediaConfig& config, EmbeddedContext& context) {
  for (const MediaCodec& codec : config.GetCodecs()) {
    if (codec.video) context.NameUnsupported("video codecs", "they are left out");
  }
  if (!config.GetG729AnnexBFlag().value_or(true) && Lists(config, "G729")) {
    context.NameUnsupported("G729AnnexBFlag", "silence descriptors of the other leg are passed on as they come");
  }
  if (!config.GetG723AnnexAFlag().value_or(true) && Lists(config, "G723")) {
    context.NameUnsupported("G723AnnexAFlag", "silence descriptors of the other leg are passed on as they come");
  }
}

void NameJitterBuffer(const MediaConfig& config, EmbeddedContext& context) {
  const char* const no_delay = "packets leave as they come";
  if (config.GetJitterMode().value_or(MediaConfig::JITTER_MODE_NONE) != MediaConfig::JITTER_MODE_NONE) {
    context.NameUnsupported("JitterMode", no_delay);
  }
  if (config.GetJitterInitialDelayMs()) context.NameUnsupported("JitterInitialDelayMs", no_delay);
  if (config.GetJitterMinDelayMs()) context.NameUnsupported("JitterMinDelayMs", no_delay);
  if (config.GetJitterMaxPdvMs()) context.NameUnsupported("JitterMaxPdvMs", no_delay);
  const char* const no_video = "there is no video";
  if (config.GetVideoJitterBufferType() != nullptr) context.NameUnsupported("VideoJitterBufferType", no_video);
  if (config.GetVideoJitterBufferInitialDelayMs()) {
    context.NameUnsupported("VideoJitterBufferInitialDelayMs", no_video);
  }
  if (config.GetVideoJitterBufferMinDelayMs()) context.NameUnsupported("VideoJitterBufferMinDelayMs", no_video);
}

}  // namespace

void NameUnsupportedSettings(const MediaConfig& config, EmbeddedContext& context) {
  NameStreamSettings(config, context);
  NameCodecSettings(config, context);
  NameJitterBuffer(config, context);
}

}  // namespace kelvaro::jsr309
