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
};

/// SRTP is not offered yet: anything but an empty suite or "NO_CRYPTO", and mandatory crypto, is refused.
struct CryptoSettings {
  std::string suite;
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
  IpHeaderSettings ip_header;
  std::optional<seconds> inactive_timeout;  ///< silence after the first packet; 0 is off, and the default
  std::optional<seconds> pending_timeout;   ///< silence from the local description on; 0 is off, and the default
  bool udp_pass_through = false;            ///< datagrams are relayed as they are, whatever they are
  bool renew_ports = false;                 ///< another port pair instead of the one that stands
  CryptoSettings crypto;
  SourceSettings source;
};

/// Where the endpoint receives.
struct LocalDescription {
  std::string address;
  std::string public_address;  ///< empty when there is none
  uint16_t rtp_port = 0;
  uint16_t rtcp_port = 0;
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
  bool udp_pass_through = false;
  CryptoSettings crypto;
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
