// The requests of a participant: descriptions and joins.
#include "endpoint_route.h"
#include "participant.h"
#include "server_context.h"

namespace media_engine {

bool Participant::TakePorts(std::unique_ptr<PortPair>& offered, bool renew) {
  if (offered && (!ports_ || renew)) {
    ports_ = std::move(offered);
    ports_->MarkUsed();
    CheckSoon();
    ApplyIpHeader({});  // what was said of the former sockets
  }
  return ports_ != nullptr;
}

namespace {

Outcome CheckEventType(const std::optional<uint8_t>& type) {
  if (!type || *type <= 127) return Outcome::Done();
  return Outcome::Refused("telephone-event payload type " + std::to_string(*type) + " is not in 0-127");
}

}  // namespace

Outcome Participant::DescribeLocal(const LocalSettings& settings, std::unique_ptr<PortPair>& offered, TimePoint now) {
  CheckSoon();
  if (settings.udp_pass_through) return DescribeLocalImage(settings, offered, now);
  if (std::string fault = PayloadTypes::FaultIn(settings.codecs); !fault.empty()) return Outcome::Refused(fault);
  if (Outcome outcome = CheckEventType(settings.telephone_event_payload_type); !outcome) return outcome;
  if (!ports_ && !offered) return Outcome::Refused("the endpoint has no ports");
  const bool new_port = offered && (!ports_ || settings.renew_ports);
  if (Outcome outcome = crypto_.DescribeLocal(settings, new_port); !outcome) return outcome;
  TakePorts(offered, settings.renew_ports);
  payload_types_.SetLocal(settings);
  ApplySource(settings.source);
  if (settings.jitter_buffer) SetJitterBuffer(*settings.jitter_buffer);
  if (settings.inactive_timeout) silence_.SetInactiveTimeout(*settings.inactive_timeout);
  if (settings.pending_timeout) silence_.SetPendingTimeout(*settings.pending_timeout);
  ApplyIpHeader(settings.ip_header);
  silence_.Described(now);
  const bool was_image = image_.in_use();
  image_.DescribedLocally(false, settings.answer_follows);
  FollowImageStream(was_image, now);
  MediaMayBegin(now);
  UpdateRoutes();
  return Outcome::Done();
}

void Participant::ApplyIpHeader(const IpHeaderSettings& settings) {
  ip_header_.TakeOver(settings);
  for (const UdpSocket* socket : {&ports_->rtp(), &ports_->rtcp(), &ports_->express()}) {
    if (!socket->is_open()) continue;
    const std::string refused = socket->ApplyIpHeader(server_->address().family(), ip_header_);
    if (!refused.empty()) server_->Log(LogLevel::kWarning, route_->name() + ": the system refused " + refused);
  }
}

Outcome Participant::ParseFarEnd(const std::string& address, uint16_t port, SocketAddress& far_end) const {
  const auto parsed = SocketAddress::Parse(address, port);
  if (!parsed) return Outcome::Refused("remote address '" + address + "' is not a numeric IPv4 or IPv6 address");
  if (parsed->family() != server_->address().family()) {
    return Outcome::Refused("remote address " + parsed->Host() + " and local address " + server_->address().Host() +
                            " are of different families");
  }
  far_end = *parsed;
  return Outcome::Done();
}

Outcome Participant::DescribeRemote(const RemoteDescription& description, TimePoint now) {
  CheckSoon();
  if (description.udp_pass_through) return DescribeRemoteImage(description, now);
  if (std::string fault = PayloadTypes::FaultIn(description.codecs); !fault.empty()) return Outcome::Refused(fault);
  if (Outcome outcome = CheckEventType(description.telephone_event_payload_type); !outcome) return outcome;
  SocketAddress rtp;
  if (Outcome outcome = ParseFarEnd(description.address, description.rtp_port, rtp); !outcome) return outcome;
  if (Outcome outcome = crypto_.DescribeRemote(description); !outcome) return outcome;
  uint16_t rtcp_port = description.rtcp_port;
  if (rtcp_port == 0 && description.rtp_port != 0) rtcp_port = static_cast<uint16_t>(description.rtp_port + 1);
  remote_.Describe(rtp, rtp.WithPort(rtcp_port), now);
  payload_types_.SetRemote(description);
  ApplySource(description.our_source);
  const bool was_image = image_.in_use();
  image_.DescribedRemotely(false, description.answer_follows);
  FollowImageStream(was_image, now);
  MediaMayBegin(now);
  UpdateRoutes();
  return Outcome::Done();
}

void Participant::MediaMayBegin(TimePoint now) {
  if (!silence_.received()) remote_.ExtendLearning(now);
}

Outcome Participant::CheckCarriage(const Participant& other) const {
  if (image_.in_use() != other.image_.in_use()) {
    // The one has been described anew before the other: they will be alike soon, and nothing flows until then.
    if (image_.is_changing() || other.image_.is_changing()) return Outcome::Done();
    const std::string& relayed = (image_.in_use() ? *this : other).route_->name();
    return Outcome::Refused(relayed + " is in UDP pass-through and the other endpoint is not");
  }
  if (image_.in_use() || payload_types_.CanCarry(other.payload_types_)) return Outcome::Done();
  return Outcome::Refused("codecs " + payload_types_.AgreedText() + " and " + other.payload_types_.AgreedText() +
                          " cannot be carried into each other");
}

Outcome Participant::Join(Direction direction, Participant& other, TimePoint now) {
  if (&other == this) return Outcome::Refused("an endpoint cannot be joined with itself");
  if (session_ != other.session_) return Outcome::Refused("the two endpoints are not in one session");
  const bool forward = direction == Direction::kDuplex || direction == Direction::kReceive;
  const bool backward = direction == Direction::kDuplex || direction == Direction::kSend;
  if (forward || backward) {
    if (Outcome outcome = CheckCarriage(other); !outcome) {
      if (peer_ == &other) Separate(now);
      return outcome;
    }
  }
  LinkWith(other, now);
  SetFlow(other, forward);
  other.SetFlow(*this, backward);
  UpdateRoutes();
  for (Participant* one : {this, &other}) {
    one->silence_.Restart(now);
    one->MediaMayBegin(now);
  }
  return Outcome::Done();
}

void Participant::LinkWith(Participant& other, TimePoint now) {
  if (peer_ != &other) {
    Separate(now);
    other.Separate(now);
    peer_ = &other;
    other.peer_ = this;
  }
  fax_peers_ = other.fax_peers_ = false;
}

void Participant::SetFlow(Participant& to, bool flows) {
  if (flows && !carries_) ++to.feed_;
  if (!flows) DiscardHeld();
  carries_ = flows;
}

void Participant::Separate(TimePoint now) {
  if (peer_ == nullptr) return;
  for (Participant* one : {peer_, this}) {
    one->peer_ = nullptr;
    one->carries_ = one->fax_peers_ = false;
    one->DiscardHeld();
    one->silence_.Restart(now);
  }
}

void Participant::UpdateRoutes() {
  const Codec* const agreed = payload_types_.agreed();
  outgoing_clock_rate_ = agreed != nullptr ? static_cast<uint32_t>(agreed->clock_rate) : kUsualClockRate;
  meaning_ = PayloadMeaning();
  if (peer_ == nullptr) return;
  peer_->meaning_ = PayloadMeaning();
  const bool could = payload_types_.CanCarry(peer_->payload_types_);
  routes_ = payload_types_.RoutesTo(peer_->payload_types_);
  peer_->routes_ = peer_->payload_types_.RoutesTo(payload_types_);
  if (!could && !image_.in_use() && (carries_ || peer_->carries_)) WarnOfUnlikeCodecs();
}

/// A new description of one leg may run ahead of the other's, so it is not refused; but nobody hears anything now.
void Participant::WarnOfUnlikeCodecs() const {
  server_->Log(LogLevel::kWarning, route_->name() + " and " + peer_->route_->name() + " are joined, but codecs " +
                                       payload_types_.AgreedText() + " and " + peer_->payload_types_.AgreedText() +
                                       " cannot be carried into each other: nothing is sent");
}

}  // namespace media_engine
