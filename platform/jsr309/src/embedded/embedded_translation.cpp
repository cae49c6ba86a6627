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

media_engine::SourceSettings ToSource(const MediaConfig& config) {
  media_engine::SourceSettings source;
  source.rtcp = config.GetRtcpFlag();
  if (config.GetCname() != nullptr) source.cname = config.GetCname();
  source.renew_with_remote = config.GetResetRtpOnRemoteSSRCChange();
  return source;
}

std::optional<std::chrono::seconds> ToTimeout(const MediaConfig& config, MediaConfig::RtpTimeoutType type) {
  const std::optional<uint32_t> timeout = config.GetRtpTimeoutSec(type);
  if (!timeout) return std::nullopt;
  return std::chrono::seconds(*timeout);
}

media_engine::SilenceSettings ToSilence(const MediaConfig& config) {
  media_engine::SilenceSettings silence;
  silence.suppress_comfort_noise = config.GetCngSuppressionFlag();
  silence.g729_annex_b = config.GetG729AnnexBFlag();
  silence.g723_annex_a = config.GetG723AnnexAFlag();
  return silence;
}

/// None when the record says nothing of a mode, or nothing that is one.
std::optional<media_engine::JitterBufferSettings> ToJitterBuffer(const MediaConfig& config) {
  media_engine::JitterBufferSettings settings;
  switch (config.GetJitterMode().value_or(MediaConfig::JITTER_MODE_INVALID)) {
    case MediaConfig::JITTER_MODE_NONE:
      settings.mode = media_engine::JitterMode::kNone;
      break;
    case MediaConfig::JITTER_MODE_STATIC:
      settings.mode = media_engine::JitterMode::kStatic;
      break;
    case MediaConfig::JITTER_MODE_ADAPTIVE:
      settings.mode = media_engine::JitterMode::kAdaptive;
      break;
    default:
      return std::nullopt;
  }
  settings.initial_delay_ms = config.GetJitterInitialDelayMs();
  settings.min_delay_ms = config.GetJitterMinDelayMs();
  settings.max_pdv_ms = config.GetJitterMaxPdvMs();
  return settings;
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

unsigned long ToMilliseconds(uint64_t microseconds) {
  return static_cast<unsigned long>((microseconds + 500) / 1000);
}

}  // namespace

media_engine::LocalSettings ToLocalSettings(const MediaConfig& config, LocalKind kind) {
  media_engine::LocalSettings settings;
  settings.codecs = ToCodecs(config);
  settings.amr_octet_align = config.GetAMROctetAlign();
  settings.telephone_event = config.GetRfc2833Flag();
  settings.telephone_event_payload_type = config.GetRfc2833Payload();
  settings.silence = ToSilence(config);
  settings.jitter_buffer = ToJitterBuffer(config);
  settings.ip_header = ToIpHeader(config);
  settings.inactive_timeout = ToTimeout(config, MediaConfig::RTP_TIMEOUT_INACTIVE);
  settings.pending_timeout = ToTimeout(config, MediaConfig::RTP_TIMEOUT_PENDING);
  settings.udp_pass_through = config.GetUdpPassThru();
  // The far end of an offer of ours may be sending to the port already.
  settings.renew_ports = kind == LocalKind::kAnswer && config.GetAutoLocalPortRenew().value_or(false);
  settings.crypto = ToCrypto(config);
  settings.answer_follows = kind == LocalKind::kOffer;
  settings.source = ToSource(config);
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
  description.silence = ToSilence(config);
  description.udp_pass_through = config.GetUdpPassThru();
  if (config.GetUdpPassThruPeer()) description.pass_through_peer = ToPassThroughPeer(*config.GetUdpPassThruPeer());
  description.crypto = ToCrypto(config);
  description.our_source = ToSource(config);
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

namespace {

RtcpStatsReport ToReport(const media_engine::StreamStatistics& stream) {
  RtcpStatsReport report;
  report.lssRTPPacketsSent = stream.packets_sent;
  report.lssBytesSent = stream.octets_sent;
  report.lssSenderReportCnt = static_cast<unsigned long>(stream.sender_reports_sent);
  report.lrsTotalLostRTPPacketsCnt = static_cast<unsigned long>(stream.packets_lost);
  report.lrsMaxFractionLost = stream.fraction_lost_maximum;
  report.lrsMaxInterArrivalJitter = stream.jitter_maximum;
  report.lrsAvgInterArrivalJitter = stream.jitter_average;
  report.maxroundtriptime = ToMilliseconds(stream.round_trip_maximum_us);
  report.avgroundtriptime = ToMilliseconds(stream.round_trip_average_us);
  report.rssRTPPacketsSent = stream.remote_packets_sent;
  report.rssBytesSent = stream.remote_octets_sent;
  report.rssSenderReportCnt = static_cast<unsigned long>(stream.sender_reports_received);
  report.rrsTotalLostRTPPacketsCnt = static_cast<unsigned long>(stream.remote_packets_lost);
  report.rrsMaxFractionLost = stream.remote_fraction_lost_maximum;
  report.rrsMaxInterArrivalJitter = stream.remote_jitter_maximum;
  report.rrsAvgInterArrivalJitter = stream.remote_jitter_average;
  return report;
}

}  // namespace

std::vector<RtcpStatsReport> ToReports(const media_engine::EndpointStatistics& statistics) {
  std::vector<RtcpStatsReport> reports;
  for (const media_engine::StreamStatistics& stream : statistics.streams) reports.push_back(ToReport(stream));
  return reports;
}

}  // namespace kelvaro::jsr309
