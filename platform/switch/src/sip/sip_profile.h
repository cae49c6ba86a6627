#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sip/session_timer.h"
#include "sip/srtp_keys.h"

/// A SIP address to serve and what holds for every call through it: one file of conf/sip_profiles. Values only.
namespace kvx_switch {

/// What get_media and set_media are told for every leg of the profile.
struct MediaSettings {
  bool telephone_events = true;        ///< negotiate RFC 4733 events
  uint8_t telephone_event_type = 101;  ///< payload type that we offer, 96 to 127
  bool inband_dtmf_to_events = false;
  bool silence_suppression = false;
  bool suppress_comfort_noise = false;
  bool sid = false;
  bool g729_annex_b = true;
  uint8_t ipv4_tos = 0;
  uint8_t ipv6_traffic_class = 0;
  uint8_t hop_limit = 64;            ///< 1 to 255
  uint32_t rtp_timeout_seconds = 0;  ///< 0: never
  bool remote_address_detection = false;
  bool auto_local_port_renew = false;
  bool asymmetric_dynamic_payload = false;
  SecurityWish security;
};

/// What SIP is served over.
struct SipTransports {
  bool udp = true;
  bool tcp = true;

  std::string Names() const { return udp && tcp ? "udp and tcp" : udp ? "udp" : "tcp"; }
};

/// How patient SIP is, in milliseconds (RFC 3261, 17.1.1.1).
struct SipTimers {
  uint32_t t1 = 500;       ///< a round trip: when a message is first repeated
  uint32_t t1x64 = 32000;  ///< when a request that nobody answers is given up
  uint32_t t2 = 4000;      ///< the longest pause between two repetitions
  uint32_t t4 = 5000;      ///< how long a message may stay in the network
};

struct SipProfile {
  std::string file;  ///< path it was read from
  std::string name;
  std::string sip_address = "127.0.0.1";  ///< numeric
  uint16_t sip_port = 5060;               ///< 0: any free port
  SipTransports transports;
  SipTimers timers;
  uint32_t tcp_idle_seconds = 600;  ///< after which a connection that says nothing is closed
  uint32_t tcp_connections = 1000;  ///< that far ends may have made at once
  std::string context = "default";
  std::string access_list;               ///< of acl.conf.xml: who may call; empty: everybody
  uint32_t leg_timeout_seconds = 60;     ///< how long a called leg may ring
  std::vector<std::string> codec_prefs;  ///< NAME@20i@8000h; empty: every registered codec
  SessionTimerSettings session_timer;
  MediaSettings media;

  bool IsIpv6() const { return sip_address.find(':') != std::string::npos; }
};

/// False and `error`, as lines "file:line: what", when the file is malformed or values are out of their range.
/// `profile` then holds what was good, so that it can be looked at further: its context or access list is empty and its
/// port 0 when theirs was not, and its file is empty when nothing could be read. What is not known is logged and passed
/// over.
bool LoadSipProfile(const std::string& path, SipProfile& profile, std::string& error);

}  // namespace kvx_switch
