/// One side's media as rtpengine is told and tells it: the SDP (RFC 4566, RFC 3264) inside ng messages.
///
/// Only what a daemon needs is written: one stream, audio or T.38 image, its address and ports, its direction, its
/// codecs and its SRTP keys (RFC 4568). What is read comes from the network: the reader takes one such description and
/// refuses everything that would leave an address, a port or a key unclear; attributes that it does not know are passed
/// over.
///
/// A value. Any thread.
#pragma once

#include "kelvaro/jsr309/secret_bytes.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kelvaro::jsr309::rtpengine {

enum class NgDirection { kSendRecv, kSendOnly, kRecvOnly, kInactive };

struct NgCodec {
  int payload_type = 0;           ///< 0 to 127
  std::string name;               ///< encoding name, as registered with IANA; empty when there is no rtpmap
  int clock_rate = 0;             ///< of the RTP timestamps, Hz
  int channels = 0;               ///< 0: one
  std::string format_parameters;  ///< of a=fmtp, empty when there are none

  bool operator==(const NgCodec& other) const {
    return payload_type == other.payload_type && name == other.name && clock_rate == other.clock_rate &&
           channels == other.channels && format_parameters == other.format_parameters;
  }
};

struct NgCryptoLine {
  int tag = 1;           ///< 1 to 999999999; an answer repeats that of the offer that it chose
  std::string suite;     ///< "AES_CM_128_HMAC_SHA1_80", ...
  SecretBytes key;       ///< master key and salt
  std::string lifetime;  ///< "2^20", or a number; empty when not given
  std::string mki;       ///< "value:length"; empty when there is none
};

struct NgDescription {
  std::string address;     ///< numeric; IPv4 or IPv6 without brackets
  uint16_t rtp_port = 0;   ///< 0: no media; of an image: the UDPTL port
  uint16_t rtcp_port = 0;  ///< 0: the one above rtp_port
  NgDirection direction = NgDirection::kSendRecv;
  bool image = false;  ///< T.38 over UDPTL: no codecs and keys
  std::vector<NgCodec> codecs;
  int packet_time_ms = 0;             ///< 0: not given
  std::vector<NgCryptoLine> cryptos;  ///< in order of preference; any: SRTP
};

/// Control characters in texts are left out, so that no text adds a line of its own. With keys, the text holds them: it
/// is the caller's to wipe.
std::string WriteSdp(const NgDescription& description);

/// False when the text is not a description of one stream; error then names the line and what is wrong with it, and
/// never an octet of a key.
bool ReadSdp(std::string_view sdp, NgDescription& description, std::string& error);

}  // namespace kelvaro::jsr309::rtpengine
