#include "rtpengine/base64_text.h"
#include "rtpengine/ng_description.h"

namespace kelvaro::jsr309::rtpengine {
namespace {

std::string Plain(const std::string& text) {
  std::string plain;
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7f) plain += c;
  }
  return plain;
}

const char* TextOf(NgDirection direction) {
  switch (direction) {
    case NgDirection::kSendOnly:
      return "sendonly";
    case NgDirection::kRecvOnly:
      return "recvonly";
    case NgDirection::kInactive:
      return "inactive";
    case NgDirection::kSendRecv:
      break;
  }
  return "sendrecv";
}

std::string CodecLines(const NgCodec& codec) {
  const std::string type = std::to_string(codec.payload_type);
  std::string lines;
  if (!codec.name.empty()) {
    lines += "a=rtpmap:" + type + " " + Plain(codec.name) + "/" + std::to_string(codec.clock_rate);
    if (codec.channels > 1) lines += "/" + std::to_string(codec.channels);
    lines += "\r\n";
  }
  if (!codec.format_parameters.empty()) lines += "a=fmtp:" + type + " " + Plain(codec.format_parameters) + "\r\n";
  return lines;
}

void AddCrypto(const NgCryptoLine& crypto, SecretText& lines) {
  lines += "a=crypto:" + std::to_string(crypto.tag) + " " + Plain(crypto.suite) + " inline:";
  lines += ToBase64(crypto.key);
  if (!crypto.lifetime.empty()) lines += "|" + Plain(crypto.lifetime);
  if (!crypto.mki.empty()) lines += "|" + Plain(crypto.mki);
  lines += "\r\n";
}

SecretText AudioLines(const NgDescription& description) {
  SecretText lines = description.cryptos.empty() ? " RTP/AVP" : " RTP/SAVP";
  for (const NgCodec& codec : description.codecs) lines += " " + std::to_string(codec.payload_type);
  lines += "\r\n";
  for (const NgCodec& codec : description.codecs) lines += CodecLines(codec);
  if (description.rtcp_port != 0) lines += "a=rtcp:" + std::to_string(description.rtcp_port) + "\r\n";
  for (const NgCryptoLine& crypto : description.cryptos) AddCrypto(crypto, lines);
  if (description.packet_time_ms != 0) lines += "a=ptime:" + std::to_string(description.packet_time_ms) + "\r\n";
  return lines;
}

}  // namespace

std::string WriteSdp(const NgDescription& description) {
  const std::string address = Plain(description.address);
  const std::string at = (address.find(':') == std::string::npos ? "IN IP4 " : "IN IP6 ") + address + "\r\n";
  SecretText sdp;
  sdp += "v=0\r\no=- 1 1 " + at + "s=-\r\nc=" + at + "t=0 0\r\n";
  sdp += (description.image ? "m=image " : "m=audio ") + std::to_string(description.rtp_port);
  sdp += description.image ? " udptl t38\r\n" : AudioLines(description);
  sdp += "a=" + std::string(TextOf(description.direction)) + "\r\n";
  return {sdp.data(), sdp.size()};
}

}  // namespace kelvaro::jsr309::rtpengine
