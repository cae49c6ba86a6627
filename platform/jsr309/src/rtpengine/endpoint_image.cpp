// Image streams: fax over UDP, relayed as it is.
#include "address_text.h"
#include "rtpengine/rtpengine_endpoint.h"

#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

std::string PlaceText(const std::string& address, uint16_t port) {
  if (address.find(':') != std::string::npos) return "[" + address + "]:" + std::to_string(port);
  return address + ":" + std::to_string(port);
}

}  // namespace

bool NamesNobody(const MediaPassThruPeer& peer) {
  return peer.local_ip_address.value_or("").empty() && peer.local_port == 0 &&
         peer.remote_ip_address.value_or("").empty() && peer.remote_port == 0;
}

bool RtpengineEndpoint::GetLocalImageConfig(MediaConfig& config) {
  const NgTime deadline = context_->DeadlineFrom(NgTime::clock::now());
  const GatePass pass(gate_, deadline);
  if (!pass) return Report("local image description", kBusy);
  {
    const Lock lock(context_->books().mutex);
    if (!Usable() || !record_.image.is_described()) return false;
  }
  if (!Report("local image description", EnsureCall(deadline))) return false;
  const Lock lock(context_->books().mutex);
  FillImage(call_->leg(), config);
  return true;
}

bool RtpengineEndpoint::GetRemoteImageConfig(MediaConfig& config) {
  const Lock lock(context_->books().mutex);
  if (!Usable()) return false;
  const NgPlace place = record_.image.described_far_end();
  if (place.empty()) return false;
  FillImage(place, config);
  return true;
}

void RtpengineEndpoint::FillImage(const NgPlace& place, MediaConfig& config) const {
  config.SetIPAddress(place.address.c_str());
  config.SetRtpPort(place.rtp_port);
  const LegMarks& marks = record_.marks;
  if (marks.tos) config.SetIpv4Tos(*marks.tos);
  if (marks.time_to_live) config.SetIpv4TimeToLive(*marks.time_to_live);
  if (marks.traffic_class) config.SetIpv6TrafficClass(*marks.traffic_class);
  if (marks.hop_limit) config.SetIpv6HopLimit(*marks.hop_limit);
}

/// The endpoint of the session whose local image stream the record names; null when it names none.
std::string RtpengineEndpoint::FindImagePeer(const MediaConfig& config, Self& peer) const {
  if (!config.GetUdpPassThruPeer()) return "";
  const MediaPassThruPeer& named = *config.GetUdpPassThruPeer();
  if (NamesNobody(named)) return "";
  const std::string address = named.local_ip_address.value_or("");
  for (const auto& sibling : session_->endpoints) {
    const Self one = sibling.lock();
    if (one == nullptr || one->call_ == nullptr) continue;
    const NgPlace& leg = one->call_->leg();
    if (leg.rtp_port == named.local_port && SameIp(leg.address, address)) peer = one;
  }
  if (peer == nullptr) {
    return "the UDP pass-through peer " + (address.empty() ? "''" : PlaceText(address, named.local_port)) +
           " is no endpoint of the session";
  }
  if (peer.get() == this) return "an endpoint cannot be its own UDP pass-through peer";
  MediaConfig of_peer;
  if (std::string fault = peer->record_.crypto.RefuseImage(of_peer); !fault.empty()) return fault;
  if (!named.remote_ip_address) return "";
  of_peer.SetIPAddress(named.remote_ip_address->c_str());
  NgPlace ignored;
  return peer->ParseFarEnd(of_peer, ignored);
}

std::string RtpengineEndpoint::LinkImagePeer(const Self& peer, const MediaConfig& config, NgTime deadline) {
  const MediaPassThruPeer& named = *config.GetUdpPassThruPeer();
  NgPlace far_end;
  if (named.remote_ip_address) far_end = {*named.remote_ip_address, named.remote_port, 0};
  std::vector<Self> parted;
  {
    const Lock lock(context_->books().mutex);
    if (session_ == nullptr || session_ != peer->session_) return kGone;
    const NgTime now = NgTime::clock::now();
    record_.image.Use(NgPlace());
    peer->record_.image.Use(far_end);
    LinkWith(*peer, true, true, parted, now);
    fax_peers_ = peer->fax_peers_ = true;
  }
  const auto posted = std::make_shared<PostedRequests>();
  parted.push_back(peer);
  SettleAll(parted, posted);
  std::string error;
  if (!Settle(deadline, error)) return error;
  posted->Wait(deadline);
  return "";
}

}  // namespace kelvaro::jsr309::rtpengine
