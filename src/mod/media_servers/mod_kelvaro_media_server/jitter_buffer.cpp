#include <boost/optional.hpp>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "mod_kelvaro_media_server.h"

using kelvaro::jsr309::MediaConfig;

namespace {

const int32_t kNotGiven = -1;
const int32_t kMaxPdvLimitMs = 200;

/// One of the two buffers, by what the log calls it ("audio"), what stands before "Jitter Buffer" in error texts, and
/// the leg's variables for it.
struct BufferKind {
  const char* name;
  const char* title;
  const char* mode_variable;
  const char* msec_variable;
};

const BufferKind kAudio = {"audio", "", "jitterbuffer_mode", "jitterbuffer_msec"};
const BufferKind kVideo = {"video", "Video ", "video_jitterbuffer_mode", "video_jitterbuffer_msec"};

/// The mode to set. None when the leg names none, or one that the media server does not know: the millisecond values
/// then do not count either.
boost::optional<MediaConfig::JitterMode> chosen_mode(switch_channel_t* chan, const BufferKind& kind) {
  const char* text = switch_channel_get_variable(chan, kind.mode_variable);
  if (!text) {
    if (switch_channel_get_variable(chan, kind.msec_variable)) {
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG,
                        "Setting %s jitter buffer mode to default mode (adaptive).\n", kind.name);
    }
    return boost::none;
  }

  const MediaConfig::JitterMode mode = MediaConfig::JitterModeFromStr(text);
  if (mode == MediaConfig::JITTER_MODE_INVALID) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR,
                      "Invalid %sJitter Buffer mode specified (%s). %sJitter Buffer settings ignored!\n", kind.title,
                      text, kind.title);
    return boost::none;
  }
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "Setting %s jitter buffer mode to %s.\n", kind.name, text);
  return mode;
}

void log_delay(const BufferKind& kind, const char* which, int32_t milliseconds) {
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "Setting %s jitter buffer %s to %d msec\n", kind.name, which,
                    milliseconds);
}

/// A minimum delay means something only where the delay moves.
bool min_delay_applies(const BufferKind& kind, MediaConfig::JitterMode mode) {
  if (mode == MediaConfig::JITTER_MODE_ADAPTIVE) return true;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR,
                    "%sJitter Buffer Min Delay is only supported in Adaptive mode!\n", kind.title);
  return false;
}

void set_audio_buffer(MediaConfig& cfg, switch_channel_t* chan) {
  const auto mode = chosen_mode(chan, kAudio);
  if (!mode) return;
  cfg.SetJitterMode(*mode);

  int32_t max_pdv, initial_delay, min_delay;
  get_jitterbuffer_msec(switch_channel_get_variable(chan, kAudio.msec_variable), max_pdv, initial_delay, min_delay);
  if (initial_delay != kNotGiven) {
    log_delay(kAudio, "initial delay", initial_delay);
    cfg.SetJitterInitialDelayMs(initial_delay);
  }
  if (min_delay != kNotGiven && min_delay_applies(kAudio, *mode)) {
    log_delay(kAudio, "min delay", min_delay);
    cfg.SetJitterMinDelayMs(min_delay);
  }
  if (max_pdv != kNotGiven) {
    if (max_pdv <= kMaxPdvLimitMs) {
      log_delay(kAudio, "Max PDV", max_pdv);
      cfg.SetJitterMaxPdvMs(max_pdv);
    } else {
      KVX_MS_LOG(SWITCH_LOG_ERROR, "Jitter Buffer Max Pdv out of range! Valid range: 0-200");
    }
  }
}

void set_video_buffer(MediaConfig& cfg, switch_channel_t* chan) {
  const auto mode = chosen_mode(chan, kVideo);
  if (!mode) return;
  cfg.SetVideoJitterBufferType(MediaConfig::JitterModeToStr(*mode));

  int32_t initial_delay, min_delay, unused;
  get_jitterbuffer_msec(switch_channel_get_variable(chan, kVideo.msec_variable), initial_delay, min_delay, unused);
  if (initial_delay != kNotGiven) {
    log_delay(kVideo, "initial delay", initial_delay);
    cfg.SetVideoJitterBufferInitialDelayMs(static_cast<uint32_t>(initial_delay));
  }
  if (min_delay != kNotGiven && min_delay_applies(kVideo, *mode)) {
    log_delay(kVideo, "min delay", min_delay);
    cfg.SetVideoJitterBufferMinDelayMs(static_cast<uint32_t>(min_delay));
  }
}

/// Reads the number at the start of a field and moves to the start of the next; null when there is none.
int32_t next_number(const char*& field) {
  if (!field) return kNotGiven;
  const long value = std::strtol(field, NULL, 10);
  const char* colon = std::strchr(field, ':');
  field = colon ? colon + 1 : NULL;
  return value > 0 && value != LONG_MAX ? static_cast<int32_t>(value) : kNotGiven;
}

}  // namespace

void get_jitterbuffer_msec(const char* jitter_buffer_str, int32_t& first_num, int32_t& second_num, int32_t& third_num) {
  const char* field = jitter_buffer_str;
  first_num = next_number(field);
  second_num = next_number(field);
  third_num = next_number(field);
}

void get_jitterbuffer_settings(MediaConfig& cfg, switch_channel_t* chan) {
  set_audio_buffer(cfg, chan);
  set_video_buffer(cfg, chan);
}
