#include "sip/sdp.h"

namespace kvx_switch {

namespace {

const char* DirectionName(MediaDirection direction) {
  switch (direction) {
    case MediaDirection::kSendReceive:
      return "sendrecv";
    case MediaDirection::kSendOnly:
      return "sendonly";
    case MediaDirection::kReceiveOnly:
      return "recvonly";
    case MediaDirection::kInactive:
      return "inactive";
  }
  return "sendrecv";
}

std::string Network(const std::string& address) {
  return (address.find(':') == std::string::npos ? "IN IP4 " : "IN IP6 ") + address;
}

std::string Header(const LocalDescription& local) {
  return "v=0\r\no=- " + std::to_string(local.session_id) + " " + std::to_string(local.version) + " " +
         Network(local.address) + "\r\ns=kvx-switch\r\nc=" + Network(local.address) + "\r\nt=0 0\r\n";
}

std::string AudioStream(const LocalDescription& local) {
  std::string types;
  std::string attributes;
  for (const SdpPayload& payload : local.payloads) {
    std::string type = std::to_string(payload.type);
    types += " " + type;
    attributes += "a=rtpmap:" + type + " " + payload.name + "/" + std::to_string(payload.rate);
    if (payload.channels > 1) attributes += "/" + std::to_string(payload.channels);
    attributes += "\r\n";
    if (!payload.fmtp.empty()) attributes += "a=fmtp:" + type + " " + payload.fmtp + "\r\n";
  }
  if (local.packet_time) attributes += "a=ptime:" + std::to_string(local.packet_time) + "\r\n";
  if (!local.crypto.empty()) attributes += "a=crypto:" + local.crypto + "\r\n";
  if (local.rtcp_port) {
    attributes += "a=rtcp:" + std::to_string(local.rtcp_port) + " " + Network(local.address) + "\r\n";
  }
  return "m=audio " + std::to_string(local.port) + " " + local.protocol + types + "\r\n" + attributes +
         "a=" + DirectionName(local.direction) + "\r\n";
}

std::string ImageStream(const LocalDescription& local) {
  std::string stream = "m=image " + std::to_string(local.port) + " udptl t38\r\n";
  for (const std::string& attribute : local.fax_attributes) stream += "a=" + attribute + "\r\n";
  return stream;
}

std::string Stream(const LocalDescription& local) {
  return local.fax ? ImageStream(local) : AudioStream(local);
}

}  // namespace

MediaDirection Reversed(MediaDirection direction) {
  switch (direction) {
    case MediaDirection::kSendOnly:
      return MediaDirection::kReceiveOnly;
    case MediaDirection::kReceiveOnly:
      return MediaDirection::kSendOnly;
    default:
      return direction;
  }
}

std::string BuildOffer(const LocalDescription& local) {
  return Header(local) + Stream(local);
}

std::string BuildAnswer(const LocalDescription& local, const SessionDescription& offer, size_t accepted) {
  std::string answer = Header(local);
  for (size_t i = 0; i < offer.media.size(); ++i) {
    const SdpMedia& media = offer.media[i];
    answer += i == accepted ? Stream(local) : "m=" + media.kind + " 0 " + media.protocol + " " + media.formats + "\r\n";
  }
  return answer;
}

}  // namespace kvx_switch
