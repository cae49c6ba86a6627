#include "kelvaro/jsr309/media_config.h"

#include "address_text.h"

#include <strings.h>

namespace kelvaro::jsr309 {

MediaConfig::MediaConfig() = default;

MediaConfig::JitterMode MediaConfig::JitterModeFromStr(const char* text) {
  if (text == nullptr) return JITTER_MODE_INVALID;
  for (JitterMode mode : {JITTER_MODE_NONE, JITTER_MODE_STATIC, JITTER_MODE_ADAPTIVE}) {
    if (strcasecmp(text, JitterModeToStr(mode)) == 0) return mode;
  }
  return JITTER_MODE_INVALID;
}

const char* MediaConfig::JitterModeToStr(JitterMode mode) {
  switch (mode) {
    case JITTER_MODE_NONE:
      return "none";
    case JITTER_MODE_STATIC:
      return "static";
    case JITTER_MODE_ADAPTIVE:
      return "adaptive";
    case JITTER_MODE_INVALID:
      break;
  }
  return "invalid";
}

void MediaConfig::Assign(OptionalText& text, const char* value) {
  if (value == nullptr) {
    text.reset();
  } else {
    text = value;
  }
}

void MediaConfig::AssignAddress(OptionalText& text, const char* address) {
  if (address == nullptr) {
    text.reset();
  } else {
    text = WithoutBrackets(address);
  }
}

void MediaConfig::SetIPAddress(const char* address) {
  AssignAddress(ip_address_, address);
}

void MediaConfig::SetPublicIPAddress(const char* address) {
  AssignAddress(public_ip_address_, address);
}

void MediaConfig::SetUdpPassThruPeerRemoteIPAddress(const char* address) {
  AssignAddress(Peer().remote_ip_address, address);
}

void MediaConfig::SetUdpPassThruPeerLocalIPAddress(const char* address) {
  AssignAddress(Peer().local_ip_address, address);
}

void MediaConfig::AddCodec(const char* name, int payload_type, int packet_time_ms, int sample_rate, int bit_rate,
                           bool video, int frame_width, int frame_height, int frame_rate, const char* format_parameters,
                           int channels, double pixel_aspect_ratio) {
  Codec codec;
  codec.name = name == nullptr ? "" : name;
  codec.payload_type = payload_type;
  codec.packet_time_ms = packet_time_ms;
  codec.sample_rate = sample_rate;
  codec.bit_rate = bit_rate;
  codec.video = video;
  codec.frame_width = frame_width;
  codec.frame_height = frame_height;
  codec.frame_rate = frame_rate;
  Assign(codec.format_parameters, format_parameters);
  codec.channels = channels;
  codec.pixel_aspect_ratio = pixel_aspect_ratio;
  codecs_.push_back(std::move(codec));
}

void MediaConfig::SetRtpTimeoutSec(RtpTimeoutType type, uint32_t seconds) {
  (type == RTP_TIMEOUT_PENDING ? rtp_timeout_pending_sec_ : rtp_timeout_inactive_sec_) = seconds;
}

std::optional<uint32_t> MediaConfig::GetRtpTimeoutSec(RtpTimeoutType type) const {
  return type == RTP_TIMEOUT_PENDING ? rtp_timeout_pending_sec_ : rtp_timeout_inactive_sec_;
}

void MediaConfig::SetCrypto(const char* suite, const void* key, int key_length, int lifetime_exponent,
                            const char* mki_length) {
  Crypto crypto;
  crypto.suite = suite == nullptr ? "" : suite;
  if (key != nullptr && key_length > 0) {
    const auto* bytes = static_cast<const uint8_t*>(key);
    crypto.key.assign(bytes, bytes + key_length);
  }
  crypto.lifetime_exponent = lifetime_exponent;
  Assign(crypto.mki_length, mki_length);
  crypto_ = std::move(crypto);
}

}  // namespace kelvaro::jsr309
