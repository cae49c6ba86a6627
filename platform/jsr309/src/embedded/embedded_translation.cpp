#include "embedded/embedded_translation.h"

namespace kelvaro::jsr309 {
namespace {

std::vector<media_engine::Codec> ToCodecs(const MediaConfig& config) {
  std::vector<media_engine::Codec> codecs;
  for (const MediaCodec& from : config.GetCodecs()) {
    if (from.video) continue;
    media_engine::Codec codec;
    codec.name = from.name;
    codec.payload_type = from.payload_type;
    codec.clock_rate = from.sample_rate;
    codec.packet_time_ms = from.packet_time_ms;
    codec.bit_rate = from.bit_rate;
    codecs.push_back(std::move(codec));
  }
  return codecs;
}

media_engine::CryptoSettings ToCrypto(const MediaConfig& config) {
  media_engine::CryptoSettings crypto;
  if (config.GetCrypto()) {
    const MediaCrypto& from = *config.GetCrypto();
    crypto.suite = from.suite;
    crypto.key.assign(from.key.begin(), from.key.end());
    crypto.lifetime_exponent = from.lifetime_exponent;
    crypto.mki = from.mki_length.value_or("");
  }
  crypto.mandatory = config.GetCryptoMandFlag().value_or(false);
  return crypto;
}

std::optional<std::chrono::seconds> ToTimeout(const MediaConfig& config, MediaConfig::RtpTimeoutType type) {
  const std::optional<uint32_t> timeout = config.GetRtpTimeoutSec(type);
  if (!timeout) return std::nullopt;
  return std::chrono::seconds(*timeout);
}

media_engine::IpHeaderSettings ToIpHeader(const MediaConfig& config) {
  media_engine::IpHeaderSettings header;
  if (config.HasIpv4Tos()) header.ipv4_tos = config.GetIpv4Tos();
  if (config.HasIpv4TimeToLive()) header.ipv4_time_to_live = config.GetIpv4TimeToLive();
  if (config.HasIpv6TrafficClass()) header.ipv6_traffic_class = config.GetIpv6TrafficClass();
  if (config.HasIpv6HopLimit()) header.ipv6_hop_limit = config.GetIpv6HopLimit();
  return header;
}

media_engine::PassThroughPeer ToPassThroughPeer(const MediaPassThruPeer& from) {
  media_engine::PassThroughPeer peer;
  peer.local_address = from.local_ip_address.value_or("");
  peer.local_port = from.local_port;
  peer.remote_address = from.remote_ip_address.value_or("");
  peer.remote_port = from.remote_port;
  peer.ip_header = {from.local_tos, from.local_time_to_live, from.local_traffic_class, from.local_hop_limit};
  return peer;
}

}  // namespace

media_engine::LocalSettings ToLocalSettings(const MediaConfig& config, LocalKind kind) {
  media_engine::LocalSettings settings;
  settings.codecs = ToCodecs(config);
  settings.amr_octet_align = config.GetAMROctetAlign();
  settings.telephone_event = config.GetRfc2833Flag();
  settings.telephone_event_payload_type = config.GetRfc2833Payload();
  settings.ip_header = ToIpHeader(config);
  settings.inactive_timeout = ToTimeout(config, MediaConfig::RTP_TIMEOUT_INACTIVE);
  settings.pending_timeout = ToTimeout(config, MediaConfig::RTP_TIMEOUT_PENDING);
  settings.udp_pass_through = config.GetUdpPassThru();
  // The far end of an offer of ours may be sending to the port already.
  settings.renew_ports = kind == LocalKind::kAnswer && config.GetAutoLocalPortRenew().value_or(false);
  settings.crypto = ToCrypto(config);
  settings.answer_follows = kind == LocalKind::kOffer;
  return settings;
}

media_engine::RemoteDescription ToRemoteDescription(const MediaConfig& config) {
  media_engine::RemoteDescription description;
  if (config.GetIPAddress() != nullptr) description.address = config.GetIPAddress();
  description.rtp_port = config.GetRtpPort();
  description.rtcp_port = config.GetRtcpPort();
  description.codecs = ToCodecs(config);
  description.amr_octet_align = config.GetAMROctetAlign();
  description.telephone_event = config.GetRfc2833Flag();
  description.telephone_event_payload_type = config.GetRfc2833Payload();
  description.udp_pass_through = config.GetUdpPassThru();
  if (config.GetUdpPassThruPeer()) description.pass_through_peer = ToPassThroughPeer(*config.GetUdpPassThruPeer());
  description.crypto = ToCrypto(config);
  return description;
}

media_engine::Direction ToEngineDirection(Direction direction) {
  switch (direction) {
    case kDuplex:
    case kAudioNoVideo:
      return media_engine::Direction::kDuplex;
    case kReceive:
      return media_engine::Direction::kReceive;
    case kSend:
      return media_engine::Direction::kSend;
    case kVideoNoAudio:
    case kDisable:
      break;
  }
  return media_engine::Direction::kNone;
}

void FillLocal(const media_engine::LocalDescription& description, MediaConfig& config) {
  config.SetIPAddress(description.address.c_str());
  config.SetPublicIPAddress(description.public_address.empty() ? nullptr : description.public_address.c_str());
  config.SetRtpPort(description.rtp_port);
  config.SetRtcpPort(description.rtcp_port);
  if (!description.made_key.empty() && config.GetCrypto()) {
    const MediaCrypto wished = *config.GetCrypto();
    config.SetCrypto(wished.suite.c_str(), description.made_key.data(), static_cast<int>(description.made_key.size()),
                     wished.lifetime_exponent, wished.mki_length ? wished.mki_length->c_str() : nullptr);
  }
}

void FillImage(const media_engine::ImageDescription& image, MediaConfig& config) {
  config.SetIPAddress(image.address.c_str());
  config.SetRtpPort(image.port);
  const media_engine::IpHeaderSettings& header = image.ip_header;
  if (header.ipv4_tos) config.SetIpv4Tos(*header.ipv4_tos);
  if (header.ipv4_time_to_live) config.SetIpv4TimeToLive(*header.ipv4_time_to_live);
  if (header.ipv6_traffic_class) config.SetIpv6TrafficClass(*header.ipv6_traffic_class);
  if (header.ipv6_hop_limit) config.SetIpv6HopLimit(*header.ipv6_hop_limit);
}

std::vector<RtcpStatsReport> ToReports(const media_engine::EndpointStatistics& statistics) {
  if (statistics.rtp_packets_sent == 0 && statistics.rtp_packets_received == 0) return {};
  RtcpStatsReport report;
  report.lssRTPPacketsSent = statistics.rtp_packets_sent;
  report.lssBytesSent = statistics.rtp_octets_sent;
  report.lrsTotalLostRTPPacketsCnt = static_cast<unsigned long>(statistics.rtp_packets_lost);
  report.lrsMaxInterArrivalJitter = statistics.jitter_maximum;
  report.lrsAvgInterArrivalJitter = statistics.jitter_average;
  return {report};
}

}  // namespace kelvaro::jsr309
