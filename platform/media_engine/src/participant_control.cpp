// The requests of a participant: descriptions and joins.
#include "endpoint_route.h"
#include "participant.h"
#include "server_context.h"

namespace media_engine {
namespace {

Outcome RefuseCrypto(const CryptoSettings& crypto) {
  const bool wanted = !crypto.suite.empty() && crypto.suite != "NO_CRYPTO";
  if (!wanted && !crypto.mandatory) return Outcome::Done();
  return Outcome::Refused("SRTP is not supported yet: crypto suite '" + crypto.suite + "'" +
                          (crypto.mandatory ? ", mandatory," : "") + " refused");
}

}  // namespace

Outcome Participant::DescribeLocal(const LocalSettings& settings, std::unique_ptr<PortPair>& offered, TimePoint now) {
  if (Outcome outcome = RefuseCrypto(settings.crypto); !outcome) return outcome;
  if (std::string fault = PayloadTypes::FaultIn(settings.codecs); !fault.empty()) return Outcome::Refused(fault);
  if (settings.telephone_event_payload_type && *settings.telephone_event_payload_type > 127) {
    return Outcome::Refused("telephone-event payload type " + std::to_string(*settings.telephone_event_payload_type) +
                            " is not in 0-127");
  }
  if (offered && (!ports_ || settings.renew_ports)) ports_ = std::move(offered);
  if (!ports_) return Outcome::Refused("the endpoint has no ports");
  payload_types_.SetLocal(settings);
  ApplySource(settings.source);
  if (settings.inactive_timeout) silence_.SetInactiveTimeout(*settings.inactive_timeout);
  if (settings.pending_timeout) silence_.SetPendingTimeout(*settings.pending_timeout);
  if (settings.udp_pass_through != pass_through_) silence_.Restart(now);
  pass_through_ = settings.udp_pass_through;
  ApplyIpHeader(settings.ip_header);
  silence_.Described(now);
  MediaMayBegin(now);
  UpdateRoutes();
  return Outcome::Done();
}

void Participant::ApplyIpHeader(const IpHeaderSettings& settings) const {
  for (const UdpSocket* socket : {&ports_->rtp(), &ports_->rtcp()}) {
    const std::string refused = socket->ApplyIpHeader(server_->address().family(), settings);
    if (!refused.empty()) server_->Log(LogLevel::kWarning, route_->name() + ": the system refused " + refused);
  }
}

Outcome Participant::DescribeRemote(const RemoteDescription& description, TimePoint now) {
  if (Outcome outcome = RefuseCrypto(description.crypto); !outcome) return outcome;
  if (std::string fault = PayloadTypes::FaultIn(description.codecs); !fault.empty()) return Outcome::Refused(fault);
  const auto rtp = SocketAddress::Parse(description.address, description.rtp_port);
  if (!rtp) {
    return Outcome::Refused("remote address '" + description.address + "' is not a numeric IPv4 or IPv6 address");
  }
  if (rtp->family() != server_->address().family()) {
    return Outcome::Refused("remote address " + rtp->Host() + " and local address " + server_->address().Host() +
                            " are of different families");
  }
  uint16_t rtcp_port = description.rtcp_port;
  if (rtcp_port == 0 && description.rtp_port != 0) rtcp_port = static_cast<uint16_t>(description.rtp_port + 1);
  remote_.Describe(*rtp, rtp->WithPort(rtcp_port), now);
  payload_types_.SetRemote(description);
  ApplySource(description.our_source);
  if (description.udp_pass_through != pass_through_) silence_.Restart(now);
  pass_through_ = description.udp_pass_through;
  MediaMayBegin(now);
  UpdateRoutes();
  return Outcome::Done();
}

void Participant::MediaMayBegin(TimePoint now) {
  if (!silence_.received()) remote_.ExtendLearning(now);
}

Outcome Participant::CheckCarriage(const Participant& other) const {
  if (pass_through_ != other.pass_through_) {
    const std::string& relayed = (pass_through_ ? *this : other).route_->name();
    return Outcome::Refused(relayed + " is in UDP pass-through and the other endpoint is not");
  }
  if (pass_through_ || payload_types_.CanCarry(other.payload_types_)) return Outcome::Done();
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
  if (peer_ != &other) {
    Separate(now);
    other.Separate(now);
    peer_ = &other;
    other.peer_ = this;
  }
  SetFlow(other, forward);
  other.SetFlow(*this, backward);
  UpdateRoutes();
  for (Participant* one : {this, &other}) {
    one->silence_.Restart(now);
    one->MediaMayBegin(now);
  }
  return Outcome::Done();
}

void Participant::SetFlow(Participant& to, bool flows) {
  if (flows && !carries_) ++to.feed_;
  carries_ = flows;
}

void Participant::Separate(TimePoint now) {
  if (peer_ == nullptr) return;
  for (Participant* one : {peer_, this}) {
    one->peer_ = nullptr;
    one->carries_ = false;
    one->silence_.Restart(now);
  }
}

void Participant::UpdateRoutes() {
  if (peer_ == nullptr) return;
  const bool could = payload_types_.CanCarry(peer_->payload_types_);
  routes_ = payload_types_.RoutesTo(peer_->payload_types_);
  peer_->routes_ = peer_->payload_types_.RoutesTo(payload_types_);
  if (!could && !pass_through_ && (carries_ || peer_->carries_)) WarnOfUnlikeCodecs();
}

/// A new description of one leg may run ahead of the other's, so it is not refused; but nobody hears anything now.
void Participant::WarnOfUnlikeCodecs() const {
  server_->Log(LogLevel::kWarning, route_->name() + " and " + peer_->route_->name() + " are joined, but codecs " +
                                       payload_types_.AgreedText() + " and " + peer_->payload_types_.AgreedText() +
                                       " cannot be carried into each other: nothing is sent");
}

}  // namespace media_engine
