// A participant's image stream: fax over UDP, relayed as it is.
#include <utility>

#include "endpoint_route.h"
#include "participant.h"
#include "server_context.h"

namespace media_engine {

/// Nothing of an image stream is encrypted.
Outcome Participant::CheckUnencrypted(bool mandatory_crypto) const {
  if (!mandatory_crypto && !crypto_.mandatory()) return Outcome::Done();
  return Outcome::Refused("crypto is mandatory and UDP pass-through relays packets as they are");
}

Outcome Participant::DescribeLocalImage(const LocalSettings& settings, std::unique_ptr<PortPair>& offered,
                                        TimePoint now) {
  if (Outcome outcome = CheckUnencrypted(settings.crypto.mandatory); !outcome) return outcome;
  const PortPair* const former = ports();
  if (!TakePorts(offered, settings.renew_ports)) return Outcome::Refused("the endpoint has no ports");
  // The audio comes back to the new ones.
  if (ports() != former) crypto_.PortRenewed();
  ApplyIpHeader(settings.ip_header);
  const bool was_image = image_.in_use();
  image_.DescribedLocally(true, settings.answer_follows);
  FollowImageStream(was_image, now);
  return Outcome::Done();
}

Outcome Participant::DescribeRemoteImage(const RemoteDescription& description, TimePoint now) {
  if (Outcome outcome = CheckUnencrypted(description.crypto.mandatory); !outcome) return outcome;
  SocketAddress far_end;
  if (Outcome outcome = ParseFarEnd(description.address, description.rtp_port, far_end); !outcome) return outcome;
  description.answer_follows ? image_.OfferFarEnd(far_end) : image_.SetFarEnd(far_end);
  const bool was_image = image_.in_use();
  image_.DescribedRemotely(true, description.answer_follows);
  FollowImageStream(was_image, now);
  return Outcome::Done();
}

void Participant::FollowImageStream(bool was_in_use, TimePoint now) {
  if (image_.in_use() == was_in_use) return;
  CheckSoon();
  silence_.Restart(now);
  DiscardHeld();
  if (image_.in_use()) {
    image_.FollowAudio(remote_);
  } else if (fax_peers_) {
    Separate(now);
  }
  server_->Log(LogLevel::kInfo,
               route_->name() + (image_.in_use() ? " relays UDP as it is: its far end is at " + image_.far_end().Text()
                                                 : std::string(" carries audio again")));
}

ImageDescription Participant::LocalImage() const {
  return {ports_->address().Host(), ports_->rtp_port(), ip_header_};
}

ImageDescription Participant::RemoteImage() const {
  const SocketAddress far_end = image_.described_far_end();
  if (far_end.empty()) return {};
  return {far_end.Host(), far_end.port(), ip_header_};
}

Outcome Participant::CheckPassThroughPeer(const Participant& peer, const PassThroughPeer& description) const {
  if (&peer == this) return Outcome::Refused("an endpoint cannot be its own UDP pass-through peer");
  if (Outcome outcome = peer.CheckUnencrypted(false); !outcome) return outcome;
  if (description.remote_address.empty()) return Outcome::Done();
  SocketAddress far_end;
  return peer.ParseFarEnd(description.remote_address, description.remote_port, far_end);
}

void Participant::PassThroughTo(Participant& peer, const PassThroughPeer& description, TimePoint now) {
  SocketAddress far_end;
  if (!description.remote_address.empty() &&
      peer.ParseFarEnd(description.remote_address, description.remote_port, far_end)) {
    peer.image_.SetFarEnd(far_end);
  }
  peer.ApplyIpHeader(description.ip_header);
  for (Participant* one : {this, &peer}) {
    const bool was_image = one->image_.in_use();
    one->image_.Use();
    one->FollowImageStream(was_image, now);
  }
  LinkWith(peer, now);
  SetFlow(peer, true);
  peer.SetFlow(*this, true);
  UpdateRoutes();
  fax_peers_ = peer.fax_peers_ = true;
}

Handover Participant::Relay(uint8_t* packet, std::size_t length, const SocketAddress& from) {
  if (from != image_.far_end()) {
    ++counters_.strangers;
    return {};
  }
  if (peer_ == nullptr || !carries_) {
    ++counters_.not_joined;
    return {};
  }
  // It became mandatory after the fax had begun, and audio has not been agreed on yet.
  for (Participant* one : {this, peer_}) {
    if (!one->crypto_.mandatory()) continue;
    ++one->crypto_.missing();
    return {};
  }
  if (!peer_->image_.in_use()) {
    ++counters_.untranslatable;
    return {};
  }
  if (!peer_->image_.CanSend() || peer_->ports_ == nullptr) {
    ++counters_.on_hold;
    return {};
  }
  ++counters_.datagrams_relayed;
  return {peer_, packet, length, 0, false};
}

}  // namespace media_engine
