#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mod_kelvaro_media_server.h"
#include "module/module_fixture.h"
#include "support/log_capture.h"
#include "support/scripted_media_server.h"

namespace module_test {

/// A codec implementation of the switch, as negotiation hands it over.
switch_codec_implementation_t implementation(const char* name, switch_payload_t ianacode, int packet_time_ms,
                                             uint32_t sample_rate, int bit_rate);
/// A negotiated codec of that implementation, which must outlive it.
switch_codec_t negotiated(const switch_codec_implementation_t& implementation, switch_payload_t agreed_payload,
                          const char* fmtp_in = nullptr, const char* fmtp_out = nullptr);

/// The arguments of channel_get_media, filled in as for a plain call.
struct LocalMedia {
  std::vector<const switch_codec_implementation_t*> codecs;
  switch_codec_t* answer_codec = nullptr;
  switch_bool_t default_inband_to_rfc2833_conversion = SWITCH_FALSE;
  int rfc2833flag = 0;
  switch_payload_t rfc2833payload = 101;
  int enable_silence_supp = 0;
  char ip_addr[128] = "untouched";
  int ip_addr_size = sizeof(ip_addr);
  switch_port_t out_port = 4711;
  switch_core_crypto_setting crypto = {};
  switch_bool_t enable_udp_passthru = SWITCH_FALSE;
  switch_sdp_negotiation_state_t state = SWITCH_SDP_STATE_UNKNOWN;
  uint8_t ipv4_tos = 0;
  uint8_t ipv6_tc = 0;
  uint8_t hop = 64;
  int support_g729_annexb = 0;
  switch_bool_t enable_cng_supp = SWITCH_FALSE;
  switch_bool_t enable_sid = SWITCH_FALSE;
  uint32_t rtp_timeout_sec = 0;
  switch_bool_t enable_auto_local_port_renew = SWITCH_FALSE;
  int enable_asymmetric_dynamic_payload = 0;
};

/// The arguments of channel_set_media, likewise.
struct RemoteMedia {
  const char* ip = "192.0.2.7";
  switch_port_t rtp_port = 4000;
  switch_port_t rtcp_port = 0;
  const char* session_name = "call";
  switch_codec_t* codec = nullptr;
  int rfc2833flag = 0;
  switch_payload_t rfc2833payload = 101;
  int enable_silence_supp = 0;
  switch_core_crypto_setting* crypto = nullptr;
  switch_bool_t enable_udp_passthru = SWITCH_FALSE;
  switch_sdp_negotiation_state_t state = SWITCH_SDP_OFFER_RECEIVED;
  switch_bool_t enable_remote_address_detect = SWITCH_FALSE;
  switch_bool_t enable_cng_supp = SWITCH_FALSE;
  switch_bool_t enable_sid = SWITCH_FALSE;
};

/// A leg with its media connection and the callbacks as the switch makes them.
class MediaLeg : public Leg {
 public:
  using Leg::Leg;

  switch_media_connection_t* Connection() const { return switch_core_session_get_media_connection(Session()); }

  switch_status_t Create() { return channel_create(Connection(), Session()); }
  /// As the switch does it: the private info goes with the leg.
  switch_status_t Destroy();
  switch_status_t GetMedia(LocalMedia& media);
  switch_status_t SetMedia(const RemoteMedia& media);
  switch_status_t Bridge(RTPDirection direction = RTPDIR_DUPLEX) { return channel_bridge(Connection(), direction); }
  switch_status_t Unbridge() { return channel_unbridge(Connection()); }

  /// Whether the table of FS uuids has the leg.
  bool Known() const;
  /// Nil when the leg is unknown.
  boost::uuids::uuid MediaSession() const;
  /// Empty when there is none.
  kvx_media_server::NetworkConnectionNodeSharedPtr Node() const;
};

/// The module, loaded onto media servers that do what the test tells them. What a test leaves in the tables goes with
/// the module.
class MediaCallbacks : public testing::Test {
 protected:
  explicit MediaCallbacks(const test_support::ScriptedOptions& options = {});
  ~MediaCallbacks() override;

  /// The lines that these sources of the module have logged since the log was last cleared.
  std::vector<test_support::LogLine> LinesOf(const std::vector<std::string>& files) const {
    return log_.LinesOf(files);
  }
  /// The record of the operation that came last; fails the test when there was none.
  kelvaro::jsr309::MediaConfig LastConfig(test_support::ScriptedOperation operation) const;
  /// Makes a leg unknown to the tables without touching the media server.
  static void Forget(const MediaLeg& leg);
  static std::size_t MediaSessions() { return mod_globals->GetMSTable()->CountMediaSessionAllFSUuid(); }

  test_support::ScriptedMediaServers servers_;
  ConfigurationFile configuration_;
  LoadedModule module_;
  test_support::LogCapture log_;
};

/// What objects_cleanup says of a leg that the table of FS uuids does not have: the trace of a clean-up.
test_support::LogLine nothing_to_clean_up(const std::string& fs_uuid);

}  // namespace module_test
