/// What an endpoint counted since it was made.
#pragma once

#include <cstdint>

namespace media_engine {

/// Octets are payload octets. Jitter is in timestamp units (RFC 3550, section 6.4.1 and A.8).
struct EndpointStatistics {
  uint64_t rtp_packets_sent = 0;
  uint64_t rtp_octets_sent = 0;
  uint64_t send_errors = 0;  ///< the system refused to send; the packet is gone

  uint64_t rtp_packets_received = 0;  ///< valid and from the far end, whatever became of them then
  uint64_t rtp_octets_received = 0;
  uint64_t rtp_packets_lost = 0;  ///< expected by sequence number and not received (RFC 3550, A.3), never below 0
  uint64_t source_changes = 0;    ///< the far end's SSRC changed, or its numbering started anew
  uint32_t jitter = 0;
  uint32_t jitter_maximum = 0;
  uint32_t jitter_average = 0;
  uint32_t local_ssrc = 0;
  uint32_t remote_ssrc = 0;  ///< 0 before the first packet

  uint64_t datagrams_relayed = 0;  ///< received under UDP pass-through and handed on

  uint64_t rtcp_packets_received = 0;
  uint64_t rtcp_strangers = 0;

  // Dropped on arrival.
  uint64_t strangers = 0;  ///< from an address that is not the far end's
  uint64_t malformed = 0;  ///< not valid RTP
  uint64_t oversized = 0;  ///< longer than any packet that is carried
  uint64_t receive_errors = 0;
  // Under SRTP, RTCP included.
  uint64_t srtp_unauthentic = 0;       ///< the tag does not fit: other keys, altered, cut short, in the clear
  uint64_t srtp_replayed = 0;          ///< came before, or is so old that nobody can tell
  uint64_t srtp_sources_exceeded = 0;  ///< authentic or not: of a source beyond those that one key may serve

  // Neither taken nor sent.
  uint64_t srtp_key_expired = 0;  ///< the keys have served for as long as they may
  uint64_t srtp_missing = 0;      ///< crypto is mandatory and one side has no keys
  uint64_t srtp_unsendable = 0;   ///< could not be protected, a number that was used already for instance

  // Received, counted above, and not handed on.
  uint64_t not_joined = 0;             ///< no join, or none that carries this way
  uint64_t unknown_payload_types = 0;  ///< a payload type that neither side described
  uint64_t untranslatable = 0;         ///< the joined endpoint has no such codec, or no telephone events
  uint64_t on_hold = 0;                ///< the joined endpoint's far end wants nothing sent
  uint64_t late = 0;                   ///< too late to be given a sequence number on the other side
};

}  // namespace media_engine
