/// The two halves of an endpoint's media description: what our side wants and got, and what the far end said.
///
/// Descriptions come again and again during a call and mostly repeat themselves. An optional field that is not set
/// leaves what the endpoint has; lists replace what the endpoint has when they are not empty.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "media_engine/clock.h"
#include "media_engine/jitter_buffer_settings.h"
#include "media_engine/secret_bytes.h"
#include "media_engine/silence_settings.h"

namespace media_engine {

/// An audio codec as RTP sees it (RFC 3551). Only payloads are carried, so a codec is its name and what tells two
/// unlike payload formats of one name apart.
struct Codec {
  std::string name;       ///< encoding name, any case
  int payload_type = 0;   ///< 0 to 127
  int clock_rate = 8000;  ///< ticks of the RTP timestamp per second
  int packet_time_ms = 20;
  int bit_rate = 0;  ///< bits per second; tells G7221 and iLBC variants apart
};

/// Fields of the IP header. IPv4 sockets use the first two, IPv6 sockets the last two. A time to live or hop limit of
/// 0 leaves the system's default.
struct IpHeaderSettings {
  std::optional<uint8_t> ipv4_tos;
  std::optional<uint8_t> ipv4_time_to_live;
  std::optional<uint8_t> ipv6_traffic_class;
  std::optional<uint8_t> ipv6_hop_limit;

  /// Takes over the fields that are set.
  void TakeOver(const IpHeaderSettings& newer) {
    if (newer.ipv4_tos) ipv4_tos = newer.ipv4_tos;
    if (newer.ipv4_time_to_live) ipv4_time_to_live = newer.ipv4_time_to_live;
    if (newer.ipv6_traffic_class) ipv6_traffic_class = newer.ipv6_traffic_class;
    if (newer.ipv6_hop_limit) ipv6_hop_limit = newer.ipv6_hop_limit;
  }
};

/// SRTP keys (RFC 3711) as a session description carries them (RFC 4568). They are the keys of the side that describes
/// itself: with them it protects what it sends. When both sides have keys, everything is protected both ways and what
/// is not is dropped. When one side has none, RTP goes in the clear both ways, unless crypto is mandatory.
///
/// The same keys again leave counters and replay lists as they are; other keys take over without an interruption. Keys
/// that were replaced must not come back: what was sent would be protected with the same key stream again.
struct CryptoSettings {
  std::string suite;  ///< "AES_CM_128_HMAC_SHA1_80", "AES_CM_128_HMAC_SHA1_32"; "NO_CRYPTO": no keys; empty: as before
  SecretBytes key;    ///< master key, 16 octets, and master salt, 14; empty in local settings: one is made here
  /// The keys serve for 2 to this power packets each way of RTP, and of RTCP; 1 to 48, RTCP never more than 31. 0: for
  /// as long as the suite allows. Then they are done: packets are dropped until other keys come, nothing goes in the
  /// clear.
  int lifetime_exponent = 0;
  std::string mki;  ///< master key identifier and its length in octets, "value:length"; empty: packets carry none
  /// Nothing ever goes in the clear, either way: without keys a description is refused, and so is UDP pass-through.
  /// Stays once it was set, whichever side said so.
  bool mandatory = false;
};

/// How our side appears to the far end as a source (RFC 3550).
struct SourceSettings {
  std::optional<bool> rtcp;  ///< whether reports are sent; on by default. What comes is taken in any case
  std::string cname;         ///< of our reports, at most 255 octets; empty: as before, at first one drawn at random
  /// When this far end's SSRC changes, the joined endpoint's stream goes on under another SSRC, too, with BYE for the
  /// former one, at most ten times a second. Off by default: it goes on as the same stream. A change of what is joined
  /// never changes the SSRC.
  std::optional<bool> renew_with_remote;
};

/// What our side wishes for the endpoint.
struct LocalSettings {
  std::vector<Codec>
      codecs;  ///< with the payload types that the far end shall use towards us; the first of a number wins
  std::optional<bool> amr_octet_align;
  std::optional<bool> telephone_event;  ///< RFC 4733 events are understood
  std::optional<uint8_t> telephone_event_payload_type;
  SilenceSettings silence;
  std::optional<JitterBufferSettings> jitter_buffer;  ///< for what comes from the far end; taken as a whole
  IpHeaderSettings ip_header;
  std::optional<seconds> inactive_timeout;  ///< silence after the first packet; 0 is off, and the default
  std::optional<seconds> pending_timeout;   ///< silence from the local description on; 0 is off, and the default
  /// An image stream (fax, ITU-T T.38 over UDP) instead of audio: datagrams are relayed as they are, whatever they are.
  /// It is in use once both sides have described it; what is said here of audio and silences does not count then.
  bool udp_pass_through = false;
  bool renew_ports = false;  ///< another port pair instead of the one that stands
  CryptoSettings crypto;
  /// The far end learns of this only later, and answers: what is protected goes on under the former keys until then.
  bool answer_follows = false;
  SourceSettings source;
};

/// Where the endpoint receives.
struct LocalDescription {
  std::string address;
  std::string public_address;  ///< empty when there is none
  uint16_t rtp_port = 0;
  uint16_t rtcp_port = 0;
  SecretBytes made_key;  ///< empty, or what stands for the key that the settings left out
};

/// An endpoint's image stream: one side's address, and the header fields of what is sent towards the far end.
struct ImageDescription {
  std::string address;
  uint16_t port = 0;
  IpHeaderSettings ip_header;
};

/// The other endpoint of a UDP pass-through, by what its own image stream says of itself. Datagrams are relayed between
/// the two as soon as the description is taken, and until one of them is described as audio on both sides again. Where
/// neither address is given there is no such endpoint yet.
struct PassThroughPeer {
  std::string local_address;  ///< numeric; with the port, that of an endpoint of the same session
  uint16_t local_port = 0;
  std::string remote_address;  ///< numeric; empty: what the other endpoint has
  uint16_t remote_port = 0;
  IpHeaderSettings ip_header;  ///< towards the other endpoint's far end
};

/// What the far end said. An address that is all zero or a port of 0 means that it wants nothing sent (RFC 3264).
struct RemoteDescription {
  std::string address;  ///< numeric; an IPv6 literal may stand in brackets
  uint16_t rtp_port = 0;
  uint16_t rtcp_port = 0;     ///< 0: the one above the RTP port
  std::vector<Codec> codecs;  ///< the first is what is sent to the far end, under its payload type
  std::optional<bool> amr_octet_align;
  std::optional<bool> telephone_event;
  std::optional<uint8_t> telephone_event_payload_type;
  SilenceSettings silence;
  bool udp_pass_through = false;  ///< as in the local settings
  /// Only under UDP pass-through. Without, nothing is relayed until the endpoint is joined.
  std::optional<PassThroughPeer> pass_through_peer;
  CryptoSettings crypto;
  /// We have yet to answer it.
  bool answer_follows = false;
  SourceSettings our_source;  ///< ours all the same: what is set here is as good as set in LocalSettings
};

/// Which way media flows in a join, seen from the network side of the endpoint on which Join is called.
enum class Direction {
  kDuplex,   ///< both ways
  kReceive,  ///< what this endpoint's far end sends goes to the other; nothing comes back
  kSend,     ///< what the other's far end sends goes to this one's; nothing goes the other way
  kNone,     ///< joined, no audio either way
};

}  // namespace media_engine
