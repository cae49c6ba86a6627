#include "rtpengine/call_picture.h"

#include <sys/socket.h>

#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

constexpr char kBus[] = "bus";
constexpr char kLeg[] = "leg";
constexpr uint16_t kDiscardPort = 9;  // RFC 863

NgDescription Describe(const NgPlace& place, const CallPicture& picture, bool leg) {
  NgDescription description;
  description.address = place.address;
  description.rtp_port = place.rtp_port;
  description.rtcp_port = place.rtcp_port;
  description.image = picture.image;
  if (picture.image) return description;
  description.codecs = leg ? picture.leg_codecs : picture.bus_codecs;
  description.packet_time_ms = picture.packet_time_ms;
  if (leg && picture.keys) description.cryptos = {picture.keys->theirs};
  return description;
}

/// asymmetric: the far end is where it says; strict source: and nowhere else. port latching: a port stays with its
/// call.
Bencode::List Flags(bool learn) {
  Bencode::List flags = {"strict source", "port latching"};
  if (!learn) flags.emplace_back("asymmetric");
  return flags;
}

Dictionary Request(const char* command, const std::string& call_id) {
  return {{"command", command}, {"call-id", call_id}};
}

Dictionary Description(const char* command, const CallName& name, std::string sdp, bool learn) {
  Dictionary request = Request(command, name.call_id);
  request.emplace("from-tag", kBus);
  request.emplace("sdp", std::move(sdp));
  request.emplace("flags", Flags(learn));
  // Nobody's address is answered with the daemon's own.
  request.emplace("replace", Bencode::List{"origin", "zero-address"});
  request.emplace("rtcp-mux", Bencode::List{"demux"});
  request.emplace("ICE", "remove");
  return request;
}

Dictionary Offer(const CallName& name, const CallPicture& picture, NgDescription bus) {
  Dictionary request = Description("offer", name, WriteSdp(bus), false);
  if (!picture.image) request.emplace("transport-protocol", picture.keys ? "RTP/SAVP" : "RTP/AVP");
  if (!name.interface.empty()) request.emplace("direction", Bencode::List{name.interface, name.interface});
  if (picture.tos) request.emplace("TOS", static_cast<int64_t>(*picture.tos));
  return request;
}

}  // namespace

NgPlace Nowhere(int family) {
  return {family == AF_INET6 ? "::" : "0.0.0.0", kDiscardPort, 0};
}

bool CanBeToldInPart(const CallPicture& picture) {
  return !picture.image && !picture.learn && !picture.keys;
}

PictureChange ChangeOf(const CallPicture& told, const CallPicture& picture) {
  const auto whole = [](const CallPicture& one) { return !CanBeToldInPart(one) || one.leg_codecs != one.bus_codecs; };
  const bool same_streams = told.leg_codecs == picture.leg_codecs && told.bus_codecs == picture.bus_codecs &&
                            told.packet_time_ms == picture.packet_time_ms && told.tos == picture.tos;
  if (whole(told) || whole(picture) || !same_streams) return PictureChange::kBoth;
  const bool same_leg = told.leg == picture.leg, same_bus = told.bus == picture.bus;
  if (same_leg == same_bus) return same_leg ? PictureChange::kNothing : PictureChange::kBoth;
  return same_leg ? PictureChange::kBus : PictureChange::kLeg;
}

Dictionary OfferOf(const CallName& name, const CallPicture& picture) {
  return Offer(name, picture, Describe(picture.bus, picture, false));
}

Dictionary KeyOfferOf(const CallName& name, const CallPicture& picture) {
  NgDescription bus = Describe(picture.bus, picture, false);
  if (picture.keys) bus.cryptos = {picture.keys->ours};
  return Offer(name, picture, std::move(bus));
}

Dictionary AnswerOf(const CallName& name, const CallPicture& picture) {
  Dictionary request = Description("answer", name, WriteSdp(Describe(picture.leg, picture, true)), picture.learn);
  request.emplace("to-tag", kLeg);
  return request;
}

Dictionary BlockOf(const CallName& name, bool block) {
  Dictionary request = Request(block ? "block media" : "unblock media", name.call_id);
  request.emplace("from-tag", kLeg);
  return request;
}

Dictionary QueryOf(const CallName& name) {
  return Request("query", name.call_id);
}

Dictionary DeleteOf(const std::string& call_id) {
  Dictionary request = Request("delete", call_id);
  request.emplace("delete delay", int64_t{0});
  return request;
}

}  // namespace kelvaro::jsr309::rtpengine
