/// One description of one side's media, as it travels between the application and the media server.
///
/// Offer and answer carry two dozen settings of which a given call sets a few; what it leaves alone must stay as the
/// server has it. The record therefore remembers which fields were set: the optional getters yield none for a field
/// that nobody touched, which is not the same as false or zero.
///
/// A value: copyable, owns copies of all texts. What a getter returns as `const char*` lives as long as the record and
/// until the field is set again; null means not set. Threads: no locking, one thread at a time.
#pragma once

#include "kelvaro/jsr309/media_config_parts.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelvaro::jsr309 {

class MediaConfig {
 public:
  enum JitterMode : int32_t {
    JITTER_MODE_NONE = 0,      ///< packets leave as they come
    JITTER_MODE_STATIC = 1,    ///< a fixed delay
    JITTER_MODE_ADAPTIVE = 2,  ///< a delay that follows the network
    JITTER_MODE_INVALID = 3,   ///< not a mode
  };

  /// Which silence a timeout is about.
  enum RtpTimeoutType : int32_t {
    RTP_TIMEOUT_INACTIVE = 0,  ///< no RTP for that long after the first packet
    RTP_TIMEOUT_PENDING = 1,   ///< no RTP at all since the local description
  };

  using Codec = MediaCodec;
  using Crypto = MediaCrypto;
  using PassThruPeer = MediaPassThruPeer;

  /// Nothing set.
  MediaConfig();

  /// "none", "static" and "adaptive" in any case; anything else, null included, is JITTER_MODE_INVALID.
  static JitterMode JitterModeFromStr(const char* text);
  /// The texts above, "invalid" for the rest.
  static const char* JitterModeToStr(JitterMode mode);

  // Addresses. Texts are numeric; the brackets of an IPv6 literal are taken off. Null takes the value back.
  void SetIPAddress(const char* address);
  const char* GetIPAddress() const { return Text(ip_address_); }
  void SetPublicIPAddress(const char* address);
  /// Where the far end reaches the address above from outside; null when the media server has no such address.
  const char* GetPublicIPAddress() const { return Text(public_ip_address_); }
  void SetRtpPort(uint16_t port) { rtp_port_ = port; }
  uint16_t GetRtpPort() const { return rtp_port_; }  ///< 0 when not set
  void SetRtcpPort(uint16_t port) { rtcp_port_ = port; }
  uint16_t GetRtcpPort() const { return rtcp_port_; }  ///< 0 when not set
  /// Whether reports are sent to the far end; they are unless this says otherwise.
  void SetRtcpFlag(bool on) { rtcp_flag_ = on; }
  std::optional<bool> GetRtcpFlag() const { return rtcp_flag_; }
  /// The RTCP name of the participant (RFC 3550, section 6.5.1).
  void SetCname(const char* cname) { Assign(cname_, cname); }
  const char* GetCname() const { return Text(cname_); }

  // Codecs.
  void AddCodec(const char* name, int payload_type, int packet_time_ms, int sample_rate, int bit_rate, bool video,
                int frame_width, int frame_height, int frame_rate, const char* format_parameters, int channels,
                double pixel_aspect_ratio);
  const std::vector<Codec>& GetCodecs() const { return codecs_; }
  void ClearCodecs() { codecs_.clear(); }
  /// AMR and AMR-WB in octet-aligned rather than bandwidth-efficient form (RFC 4867).
  void SetAMROctetAlign(bool on) { amr_octet_align_ = on; }
  std::optional<bool> GetAMROctetAlign() const { return amr_octet_align_; }
  void SetG729AnnexBFlag(bool on) { g729_annex_b_ = on; }
  std::optional<bool> GetG729AnnexBFlag() const { return g729_annex_b_; }
  void SetG723AnnexAFlag(bool on) { g723_annex_a_ = on; }
  std::optional<bool> GetG723AnnexAFlag() const { return g723_annex_a_; }

  // Telephone events (RFC 4733, formerly 2833) and silence.
  void SetRfc2833Flag(bool on) { rfc2833_flag_ = on; }
  std::optional<bool> GetRfc2833Flag() const { return rfc2833_flag_; }
  void SetRfc2833Payload(uint8_t payload_type) { rfc2833_payload_ = payload_type; }
  std::optional<uint8_t> GetRfc2833Payload() const { return rfc2833_payload_; }
  void SetAllowInbandTo2833Conversion(bool on) { allow_inband_to_2833_ = on; }
  std::optional<bool> GetAllowInbandTo2833Conversion() const { return allow_inband_to_2833_; }
  void SetSilenceSuppressionFlag(bool on) { silence_suppression_ = on; }
  std::optional<bool> GetSilenceSuppressionFlag() const { return silence_suppression_; }
  void SetCngSuppressionFlag(bool on) { cng_suppression_ = on; }
  std::optional<bool> GetCngSuppressionFlag() const { return cng_suppression_; }
  void SetSidFlag(bool on) { sid_ = on; }
  std::optional<bool> GetSidFlag() const { return sid_; }

  // IP header fields of what the server sends.
  void SetIpv4Tos(uint8_t tos) { ipv4_tos_ = tos; }
  uint8_t GetIpv4Tos() const { return ipv4_tos_.value_or(0); }
  bool HasIpv4Tos() const { return ipv4_tos_.has_value(); }
  void SetIpv6TrafficClass(uint8_t traffic_class) { ipv6_traffic_class_ = traffic_class; }
  uint8_t GetIpv6TrafficClass() const { return ipv6_traffic_class_.value_or(0); }
  bool HasIpv6TrafficClass() const { return ipv6_traffic_class_.has_value(); }
  void SetIpv4TimeToLive(uint8_t hops) { ipv4_time_to_live_ = hops; }
  uint8_t GetIpv4TimeToLive() const { return ipv4_time_to_live_.value_or(0); }
  bool HasIpv4TimeToLive() const { return ipv4_time_to_live_.has_value(); }
  void SetIpv6HopLimit(uint8_t hops) { ipv6_hop_limit_ = hops; }
  uint8_t GetIpv6HopLimit() const { return ipv6_hop_limit_.value_or(0); }
  bool HasIpv6HopLimit() const { return ipv6_hop_limit_.has_value(); }

  // Behaviour of the stream.
  /// Seconds; 0 switches the timeout off.
  void SetRtpTimeoutSec(RtpTimeoutType type, uint32_t seconds);
  std::optional<uint32_t> GetRtpTimeoutSec(RtpTimeoutType type) const;
  /// When the far end's SSRC changes, what the joined endpoint sends on begins anew under another SSRC, too.
  void SetResetRtpOnRemoteSSRCChange(bool on) { reset_rtp_on_remote_ssrc_change_ = on; }
  std::optional<bool> GetResetRtpOnRemoteSSRCChange() const { return reset_rtp_on_remote_ssrc_change_; }
  /// A new local port with each answer, instead of the one that stands.
  void SetAutoLocalPortRenew(bool on) { auto_local_port_renew_ = on; }
  std::optional<bool> GetAutoLocalPortRenew() const { return auto_local_port_renew_; }
  /// Dynamic payload type numbers may differ between the two directions.
  void SetAsymmetricDynamicPayload() { asymmetric_dynamic_payload_ = true; }
  bool GetAsymmetricDynamicPayload() const { return asymmetric_dynamic_payload_; }
  /// Which signals switch the stream to fax, in the media server's own notation.
  void SetFaxModeAutoSwitchMask(const char* mask) { Assign(fax_mode_auto_switch_mask_, mask); }
  const char* GetFaxModeAutoSwitchMask() const { return Text(fax_mode_auto_switch_mask_); }

  // SRTP. The key, any block of bytes, is the described side's to send with. Null is empty: a local one is then made.
  void SetCrypto(const char* suite, const void* key, int key_length, int lifetime_exponent, const char* mki_length);
  const std::optional<Crypto>& GetCrypto() const { return crypto_; }
  /// Without SRTP there shall be no media at all; it stays so once either side's record said so.
  void SetCryptoMandFlag(bool on) { crypto_mandatory_ = on; }
  std::optional<bool> GetCryptoMandFlag() const { return crypto_mandatory_; }

  // Jitter buffers. Milliseconds.
  void SetJitterMode(JitterMode mode) { jitter_mode_ = mode; }
  std::optional<JitterMode> GetJitterMode() const { return jitter_mode_; }
  void SetJitterInitialDelayMs(int32_t ms) { jitter_initial_delay_ms_ = ms; }
  std::optional<int32_t> GetJitterInitialDelayMs() const { return jitter_initial_delay_ms_; }
  void SetJitterMinDelayMs(int32_t ms) { jitter_min_delay_ms_ = ms; }
  std::optional<int32_t> GetJitterMinDelayMs() const { return jitter_min_delay_ms_; }
  /// The largest packet delay variation that is still evened out.
  void SetJitterMaxPdvMs(int32_t ms) { jitter_max_pdv_ms_ = ms; }
  std::optional<int32_t> GetJitterMaxPdvMs() const { return jitter_max_pdv_ms_; }
  void SetVideoJitterBufferType(const char* type) { Assign(video_jitter_type_, type); }
  const char* GetVideoJitterBufferType() const { return Text(video_jitter_type_); }
  void SetVideoJitterBufferInitialDelayMs(uint32_t ms) { video_jitter_initial_delay_ms_ = ms; }
  std::optional<uint32_t> GetVideoJitterBufferInitialDelayMs() const { return video_jitter_initial_delay_ms_; }
  void SetVideoJitterBufferMinDelayMs(uint32_t ms) { video_jitter_min_delay_ms_ = ms; }
  std::optional<uint32_t> GetVideoJitterBufferMinDelayMs() const { return video_jitter_min_delay_ms_; }

  // UDP pass-through: packets are relayed as they are to the peer given here, another connection of the session, as its
  // image configurations tell (see NetworkConnection). Null addresses and port 0 are accepted: there is no peer yet.
  void SetUdpPassThru() { udp_pass_thru_ = true; }
  bool GetUdpPassThru() const { return udp_pass_thru_; }
  void SetUdpPassThruPeerRemotePort(uint16_t port) { Peer().remote_port = port; }
  void SetUdpPassThruPeerRemoteIPAddress(const char* address);
  void SetUdpPassThruPeerLocalPort(uint16_t port) { Peer().local_port = port; }
  void SetUdpPassThruPeerLocalIPAddress(const char* address);
  void SetUdpPassThruPeerLocalTos(uint8_t tos) { Peer().local_tos = tos; }
  void SetUdpPassThruPeerLocalTrafficClass(uint8_t traffic_class) { Peer().local_traffic_class = traffic_class; }
  void SetUdpPassThruPeerLocalTimeToLive(uint8_t hops) { Peer().local_time_to_live = hops; }
  void SetUdpPassThruPeerLocalHopLimit(uint8_t hops) { Peer().local_hop_limit = hops; }
  /// None until one of the peer's fields was set.
  const std::optional<PassThruPeer>& GetUdpPassThruPeer() const { return pass_thru_peer_; }

 private:
  using OptionalText = std::optional<std::string>;

  static const char* Text(const OptionalText& text) { return text ? text->c_str() : nullptr; }
  static void Assign(OptionalText& text, const char* value);
  static void AssignAddress(OptionalText& text, const char* address);
  PassThruPeer& Peer() { return pass_thru_peer_ ? *pass_thru_peer_ : pass_thru_peer_.emplace(); }

  OptionalText ip_address_, public_ip_address_;
  uint16_t rtp_port_ = 0, rtcp_port_ = 0;
  std::optional<bool> rtcp_flag_;
  OptionalText cname_;

  std::vector<Codec> codecs_;
  std::optional<bool> amr_octet_align_, g729_annex_b_, g723_annex_a_;

  std::optional<bool> rfc2833_flag_;
  std::optional<uint8_t> rfc2833_payload_;
  std::optional<bool> allow_inband_to_2833_, silence_suppression_, cng_suppression_, sid_;

  std::optional<uint8_t> ipv4_tos_, ipv6_traffic_class_, ipv4_time_to_live_, ipv6_hop_limit_;

  std::optional<uint32_t> rtp_timeout_inactive_sec_, rtp_timeout_pending_sec_;
  std::optional<bool> reset_rtp_on_remote_ssrc_change_, auto_local_port_renew_;
  bool asymmetric_dynamic_payload_ = false;
  OptionalText fax_mode_auto_switch_mask_;

  std::optional<Crypto> crypto_;
  std::optional<bool> crypto_mandatory_;

  std::optional<JitterMode> jitter_mode_;
  std::optional<int32_t> jitter_initial_delay_ms_, jitter_min_delay_ms_, jitter_max_pdv_ms_;
  OptionalText video_jitter_type_;
  std::optional<uint32_t> video_jitter_initial_delay_ms_, video_jitter_min_delay_ms_;

  bool udp_pass_thru_ = false;
  std::optional<PassThruPeer> pass_thru_peer_;
};

}  // namespace kelvaro::jsr309
