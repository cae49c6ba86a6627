/// What an endpoint counted since it was made.
#pragma once

#include <cstdint>
#include <vector>

namespace media_engine {

/// The media between the endpoint and one source (SSRC) of its far end. Octets are payload octets, fractions lost are
/// in 1/256, jitter is in timestamp units (RFC 3550, section 6.4.1).
struct StreamStatistics {
  uint32_t remote_ssrc = 0;  ///< 0: no media came

  // What went out while this source was the one that was heard.
  uint64_t packets_sent = 0;
  uint64_t octets_sent = 0;
  uint64_t sender_reports_sent = 0;

  // What was measured here.
  uint64_t packets_received = 0;      ///< with duplicates
  uint64_t packets_lost = 0;          ///< duplicates do not make up for losses
  uint8_t fraction_lost_maximum = 0;  ///< of the intervals between reports, the one under way included
  uint32_t jitter_maximum = 0;
  uint32_t jitter_average = 0;  ///< over the packets

  // What the far end's sender reports said last; 0 before the first.
  uint64_t remote_packets_sent = 0;
  uint64_t remote_octets_sent = 0;
  uint64_t sender_reports_received = 0;

  // What the far end's reports said of what went out.
  uint64_t remote_packets_lost = 0;  ///< never below 0
  uint8_t remote_fraction_lost_maximum = 0;
  uint32_t remote_jitter_maximum = 0;
  uint32_t remote_jitter_average = 0;  ///< over the reports

  // Microseconds; from those reports that answer a sender report of ours.
  uint64_t round_trip_maximum_us = 0;
  uint64_t round_trip_average_us = 0;
};

/// Octets are payload octets. Jitter is in timestamp units (RFC 3550, section 6.4.1 and A.8).
struct EndpointStatistics {
  uint64_t rtp_packets_sent = 0;
  uint64_t rtp_octets_sent = 0;
  uint64_t send_errors = 0;  ///< the system refused to send; the packet is gone

  uint64_t rtp_packets_received = 0;  ///< valid and from the far end, whatever became of them then
  uint64_t rtp_octets_received = 0;
  uint64_t rtp_packets_lost = 0;  ///< expected by sequence number and not received, duplicates not counted
  uint64_t rtp_duplicates = 0;    ///< came a second time
  uint64_t rtp_reordered = 0;     ///< came behind one with a higher number
  uint64_t source_changes = 0;    ///< the far end's SSRC changed, or its numbering started anew
  uint32_t jitter = 0;
  uint32_t jitter_maximum = 0;
  uint32_t jitter_average = 0;
  uint32_t local_ssrc = 0;
  uint32_t remote_ssrc = 0;  ///< 0 before the first packet

  uint64_t datagrams_relayed = 0;  ///< received under UDP pass-through and handed on

  uint64_t rtcp_packets_sent = 0;
  uint64_t rtcp_packets_received = 0;  ///< valid and from the far end
  uint64_t rtcp_strangers = 0;
  uint64_t rtcp_malformed = 0;  ///< from the far end, and not valid RTCP

  // Dropped on arrival.
  uint64_t too_early = 0;  ///< RTP and RTCP that came before the far end was described
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
  uint64_t srtp_unsendable = 0;   ///< could not be protected
  uint64_t srtp_duplicates = 0;   ///< not sent: a number cannot be protected a second time

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

  /// In their order: the sources that were heard, or one that was only sent to. None without RTP. The last sources have
  /// an entry each, those before them one together.
  std::vector<StreamStatistics> streams;
};

}  // namespace media_engine
