/// The parts of a media description that have several fields each. Plain values; see MediaConfig for what sets them.
#pragma once

#include "kelvaro/jsr309/secret_bytes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelvaro::jsr309 {

/// A codec with the arguments of MediaConfig::AddCodec. Codecs stand in order of preference.
struct MediaCodec {
  std::string name;  ///< encoding name as registered with IANA, any case
  int payload_type = 0;
  int packet_time_ms = 0;
  int sample_rate = 0;  ///< samples per second, as the codec's clock runs in RTP
  int bit_rate = 0;     ///< bits per second, 0 when it varies
  bool video = false;
  int frame_width = 0;   ///< video only: pixels
  int frame_height = 0;  ///< video only: pixels
  int frame_rate = 0;    ///< video only: frames per second
  std::optional<std::string> format_parameters;
  int channels = 0;  ///< 0 for what the codec's name implies
  double pixel_aspect_ratio = 1.0;
};

/// SRTP keying as SDP carries it (RFC 4568).
struct MediaCrypto {
  std::string suite;                      ///< "AES_CM_128_HMAC_SHA1_80", "AES_CM_128_HMAC_SHA1_32", "NO_CRYPTO"
  SecretBytes key;                        ///< master key and salt, empty without crypto
  int lifetime_exponent = 0;              ///< the key serves for 2 to this power packets; 0 for the suite's own limit
  std::optional<std::string> mki_length;  ///< master key identifier and its length, "value:length"
};

/// Where the other leg of a UDP pass-through sends and receives, and the IP header fields to use towards it.
struct MediaPassThruPeer {
  uint16_t remote_port = 0;
  std::optional<std::string> remote_ip_address;
  uint16_t local_port = 0;
  std::optional<std::string> local_ip_address;
  std::optional<uint8_t> local_tos;
  std::optional<uint8_t> local_traffic_class;
  std::optional<uint8_t> local_time_to_live;
  std::optional<uint8_t> local_hop_limit;
};

}  // namespace kelvaro::jsr309
