#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace module_calls {

/// What the module has asked of the control library, in order, one text per call.
inline std::vector<std::string>& calls() {
  static std::vector<std::string> made;
  return made;
}

inline void write_arguments(std::ostream&) {}
template <typename First, typename... Rest>
void write_arguments(std::ostream& out, const First& first, const Rest&... rest) {
  out << first;
  if (sizeof...(rest) != 0) out << ", ";
  write_arguments(out, rest...);
}

template <typename... Arguments>
void record(const char* name, const Arguments&... arguments) {
  std::ostringstream text;
  text << std::boolalpha << name << "(";
  write_arguments(text, arguments...);
  text << ")";
  calls().push_back(text.str());
}

inline const char* text_of(const char* text) {
  return text ? text : "null";
}

}  // namespace module_calls

namespace kelvaro::jsr309 {

/// The media description as the module sees it, setters and getters, in place of the control library's: it keeps no
/// setting but writes down that it was made. Values are the arguments as numbers, so 64 is 64 and not "@".
class RecordingMediaConfig {
 public:
  enum JitterMode : int32_t {
    JITTER_MODE_NONE = 0,
    JITTER_MODE_STATIC = 1,
    JITTER_MODE_ADAPTIVE = 2,
    JITTER_MODE_INVALID = 3,
  };
  enum RtpTimeoutType : int32_t { RTP_TIMEOUT_INACTIVE = 0, RTP_TIMEOUT_PENDING = 1 };

  static JitterMode JitterModeFromStr(const char* text) {
    const std::string mode = text;
    return mode == "adaptive" ? JITTER_MODE_ADAPTIVE : mode == "static" ? JITTER_MODE_STATIC : JITTER_MODE_INVALID;
  }
  static const char* JitterModeToStr(JitterMode mode) { return mode == JITTER_MODE_ADAPTIVE ? "adaptive" : "static"; }

  void SetIPAddress(const char* address) { module_calls::record("SetIPAddress", module_calls::text_of(address)); }
  void SetRtpPort(uint16_t port) { module_calls::record("SetRtpPort", port); }
  void SetRtcpPort(uint16_t port) { module_calls::record("SetRtcpPort", port); }
  void SetRtcpFlag(bool on) { module_calls::record("SetRtcpFlag", on); }
  void SetCname(const char* cname) { module_calls::record("SetCname", cname); }

  void AddCodec(const char* name, int payload_type, int packet_time_ms, int sample_rate, int bit_rate, bool video,
                int frame_width, int frame_height, int frame_rate, const char* format_parameters, int channels,
                double pixel_aspect_ratio) {
    module_calls::record("AddCodec", name, payload_type, packet_time_ms, sample_rate, bit_rate, video, frame_width,
                         frame_height, frame_rate, module_calls::text_of(format_parameters), channels,
                         pixel_aspect_ratio);
  }
  void SetAMROctetAlign(bool on) { module_calls::record("SetAMROctetAlign", on); }
  void SetG729AnnexBFlag(bool on) { module_calls::record("SetG729AnnexBFlag", on); }
  void SetG723AnnexAFlag(bool on) { module_calls::record("SetG723AnnexAFlag", on); }

  void SetRfc2833Flag(bool on) { module_calls::record("SetRfc2833Flag", on); }
  void SetRfc2833Payload(uint8_t payload) { module_calls::record("SetRfc2833Payload", +payload); }
  void SetAllowInbandTo2833Conversion(bool on) { module_calls::record("SetAllowInbandTo2833Conversion", on); }
  void SetSilenceSuppressionFlag(bool on) { module_calls::record("SetSilenceSuppressionFlag", on); }
  void SetCngSuppressionFlag(bool on) { module_calls::record("SetCngSuppressionFlag", on); }
  void SetSidFlag(bool on) { module_calls::record("SetSidFlag", on); }

  void SetIpv4Tos(uint8_t tos) { module_calls::record("SetIpv4Tos", +tos); }
  void SetIpv6TrafficClass(uint8_t value) { module_calls::record("SetIpv6TrafficClass", +value); }
  void SetIpv4TimeToLive(uint8_t hops) { module_calls::record("SetIpv4TimeToLive", +hops); }
  void SetIpv6HopLimit(uint8_t hops) { module_calls::record("SetIpv6HopLimit", +hops); }

  void SetRtpTimeoutSec(RtpTimeoutType type, uint32_t seconds) {
    module_calls::record("SetRtpTimeoutSec", type == RTP_TIMEOUT_PENDING ? "PENDING" : "INACTIVE", seconds);
  }
  void SetResetRtpOnRemoteSSRCChange(bool on) { module_calls::record("SetResetRtpOnRemoteSSRCChange", on); }
  void SetAutoLocalPortRenew(bool on) { module_calls::record("SetAutoLocalPortRenew", on); }
  void SetAsymmetricDynamicPayload() { module_calls::record("SetAsymmetricDynamicPayload"); }
  void SetFaxModeAutoSwitchMask(const char* mask) { module_calls::record("SetFaxModeAutoSwitchMask", mask); }

  void SetCrypto(const char* suite, const void* key, int key_length, int lifetime_exponent, const char* mki_length) {
    module_calls::record("SetCrypto", suite, key ? "key" : "null", key_length, lifetime_exponent,
                         module_calls::text_of(mki_length));
  }
  void SetCryptoMandFlag(bool on) { module_calls::record("SetCryptoMandFlag", on); }

  void SetJitterMode(JitterMode mode) { module_calls::record("SetJitterMode", JitterModeToStr(mode)); }
  void SetJitterInitialDelayMs(int32_t ms) { module_calls::record("SetJitterInitialDelayMs", ms); }
  void SetJitterMinDelayMs(int32_t ms) { module_calls::record("SetJitterMinDelayMs", ms); }
  void SetJitterMaxPdvMs(int32_t ms) { module_calls::record("SetJitterMaxPdvMs", ms); }
  void SetVideoJitterBufferType(const char* type) { module_calls::record("SetVideoJitterBufferType", type); }
  void SetVideoJitterBufferInitialDelayMs(uint32_t ms) {
    module_calls::record("SetVideoJitterBufferInitialDelayMs", ms);
  }
  void SetVideoJitterBufferMinDelayMs(uint32_t ms) { module_calls::record("SetVideoJitterBufferMinDelayMs", ms); }

  void SetUdpPassThru() { module_calls::record("SetUdpPassThru"); }
  void SetUdpPassThruPeerRemotePort(uint16_t port) { module_calls::record("SetUdpPassThruPeerRemotePort", port); }
  void SetUdpPassThruPeerRemoteIPAddress(const char* address) {
    module_calls::record("SetUdpPassThruPeerRemoteIPAddress", module_calls::text_of(address));
  }
  void SetUdpPassThruPeerLocalPort(uint16_t port) { module_calls::record("SetUdpPassThruPeerLocalPort", port); }
  void SetUdpPassThruPeerLocalIPAddress(const char* address) {
    module_calls::record("SetUdpPassThruPeerLocalIPAddress", module_calls::text_of(address));
  }
  void SetUdpPassThruPeerLocalTos(uint8_t tos) { module_calls::record("SetUdpPassThruPeerLocalTos", +tos); }
  void SetUdpPassThruPeerLocalTrafficClass(uint8_t value) {
    module_calls::record("SetUdpPassThruPeerLocalTrafficClass", +value);
  }
  void SetUdpPassThruPeerLocalTimeToLive(uint8_t hops) {
    module_calls::record("SetUdpPassThruPeerLocalTimeToLive", +hops);
  }
  void SetUdpPassThruPeerLocalHopLimit(uint8_t hops) { module_calls::record("SetUdpPassThruPeerLocalHopLimit", +hops); }

  const char* GetIPAddress() const { return filled_.ip; }
  const char* GetPublicIPAddress() const { return filled_.public_ip; }
  uint16_t GetRtpPort() const { return filled_.rtp_port; }
  uint16_t GetRtcpPort() const { return filled_.rtcp_port; }
  uint8_t GetIpv4Tos() const { return filled_.tos; }
  uint8_t GetIpv6TrafficClass() const { return filled_.traffic_class; }
  uint8_t GetIpv4TimeToLive() const { return filled_.time_to_live; }
  uint8_t GetIpv6HopLimit() const { return filled_.hop_limit; }

  /// What a media server fills in.
  struct Filled {
    const char* ip = nullptr;
    const char* public_ip = nullptr;
    uint16_t rtp_port = 0;
    uint16_t rtcp_port = 0;
    uint8_t tos = 0;
    uint8_t traffic_class = 0;
    uint8_t time_to_live = 0;
    uint8_t hop_limit = 0;
  };
  void Fill(const Filled& filled) { filled_ = filled; }

 private:
  Filled filled_;
};

}  // namespace kelvaro::jsr309

// Whoever speaks of the control library's media description means this one.
#define MediaConfig RecordingMediaConfig
