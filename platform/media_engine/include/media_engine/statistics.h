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

  // Received, counted above, and not handed on.
  uint64_t not_joined = 0;             ///< no join, or none that carries this way
  uint64_t unknown_payload_types = 0;  ///< a payload type that neither side described
  uint64_t untranslatable = 0;         ///< the joined endpoint has no such codec, or no telephone events
  uint64_t on_hold = 0;                ///< the joined endpoint's far end wants nothing sent
  uint64_t late = 0;                   ///< too late to be given a sequence number on the other side
  uint64_t silence_dropped = 0;        ///< comfort noise or SID only, which the joined endpoint's far end does not take

  // In the jitter buffer: received, counted above, and not handed on, but for the reordered.
  uint64_t jitter_buffer_late = 0;        ///< came later than the time to play them, or than one behind them was played
  uint64_t jitter_buffer_duplicates = 0;  ///< came before
  uint64_t jitter_buffer_overflows = 0;   ///< found no room: far more packets than any codec sends
  uint64_t jitter_buffer_discarded = 0;   ///< were held when the stream they belonged to ended
  uint64_t jitter_buffer_reordered = 0;   ///< came behind a later one and were put back into their place
  uint32_t jitter_buffer_delay_ms = 0;    ///< what a packet that comes as early as any is held for now
};

}  // namespace media_engine
