// What descriptions change about an endpoint's keys.
#include "endpoint_crypto.h"

#include <utility>

namespace media_engine {
namespace {

Outcome CheckMandatory(bool mandatory, bool has_keys, bool pass_through, const char* side) {
  if (!mandatory) return Outcome::Done();
  if (pass_through) return Outcome::Refused("crypto is mandatory and UDP pass-through relays packets as they are");
  if (!has_keys) return Outcome::Refused(std::string("crypto is mandatory and ") + side + " has no keys");
  return Outcome::Done();
}

}  // namespace

Outcome EndpointCrypto::DescribeLocal(const LocalSettings& settings, bool new_port) {
  const bool mandatory = mandatory_ || settings.crypto.mandatory;
  const LocalSide& before = next_local_ ? *next_local_ : local_;
  const bool has_keys = settings.crypto.suite.empty() ? before.has_keys : NamesSuite(settings.crypto);
  Outcome outcome = CheckMandatory(mandatory, has_keys, settings.udp_pass_through, "the local description");
  if (outcome && mandatory && !settings.answer_follows && remote_described_ && !remote_has_keys_) {
    outcome = Outcome::Refused("crypto is mandatory and the far end's description has no keys");
  }
  LocalSide side;
  side.has_keys = has_keys;
  const bool moved = new_port || port_renewed_;
  if (outcome && NamesSuite(settings.crypto)) outcome = PrepareLocal(settings, moved, side);
  if (!outcome) return outcome;
  mandatory_ = mandatory;
  port_renewed_ = moved && settings.crypto.suite.empty();
  if (settings.crypto.suite.empty()) return outcome;
  if (settings.answer_follows && Protects()) {
    next_local_ = std::move(side);
  } else {
    Install(std::move(side));
    next_local_.reset();
  }
  return outcome;
}

/// Leaves side.outgoing null when the keys are those that stand.
Outcome EndpointCrypto::PrepareLocal(const LocalSettings& settings, bool new_port, LocalSide& side) {
  SrtpKeys keys;
  Outcome outcome = ParseSrtpKeys(settings.crypto, keys);
  if (outcome && keys.master.empty()) outcome = CompleteKeys(keys);
  if (!outcome) return outcome;
  if (local_.outgoing && local_.outgoing->keys().SameAs(keys)) {
    local_.outgoing->SetLifetime(keys);
  } else if (next_local_ && next_local_->outgoing && next_local_->outgoing->keys().SameAs(keys)) {
    next_local_->outgoing->SetLifetime(keys);
    side.outgoing = std::move(next_local_->outgoing);
    side.starts_anew = next_local_->starts_anew || new_port;
  } else {
    std::string reason;
    side.outgoing = SrtpTransform::Make(SrtpTransform::Direction::kOutgoing, keys, reason);
    if (!side.outgoing) return Outcome::Refused(reason);
    side.starts_anew = new_port;
  }
  return outcome;
}

const SrtpTransform* EndpointCrypto::LatestOutgoing() const {
  return next_local_ && next_local_->outgoing ? next_local_->outgoing.get() : local_.outgoing.get();
}

SecretBytes EndpointCrypto::LocalKey() const {
  const SrtpTransform* const latest = LatestOutgoing();
  const bool has_keys = next_local_ ? next_local_->has_keys : local_.has_keys;
  return has_keys && latest != nullptr ? latest->keys().master : SecretBytes();
}

/// The settings leave the choice to us: what was chosen for the same suite stands.
Outcome EndpointCrypto::CompleteKeys(SrtpKeys& keys) const {
  const SrtpTransform* const latest = LatestOutgoing();
  if (latest == nullptr || latest->keys().suite != keys.suite || latest->keys().mki != keys.mki) {
    return MakeMasterKey(keys);
  }
  keys.master = latest->keys().master;
  return Outcome::Done();
}

void EndpointCrypto::Install(LocalSide side) {
  local_.has_keys = side.has_keys;
  if (!side.outgoing) return;
  if (local_.outgoing && !side.starts_anew) {
    const SrtpTransform::Position position = local_.outgoing->LatestPosition();
    if (position.matters()) side.outgoing->ContinueAt(position);
  }
  local_.outgoing = std::move(side.outgoing);
  told_expired_locally_ = false;
}

Outcome EndpointCrypto::DescribeRemote(const RemoteDescription& description) {
  const bool mandatory = mandatory_ || description.crypto.mandatory;
  const bool has_keys = description.crypto.suite.empty() ? remote_has_keys_ : NamesSuite(description.crypto);
  Outcome outcome = CheckMandatory(mandatory, has_keys, description.udp_pass_through, "the far end's description");
  Transform fresh, continued;
  SrtpKeys keys;
  if (outcome && NamesSuite(description.crypto)) {
    outcome = ParseSrtpKeys(description.crypto, keys);
    if (outcome && keys.master.empty()) {
      outcome = Outcome::Refused("crypto suite " + description.crypto.suite + ": the far end's description has no key");
    }
    if (outcome) outcome = PrepareRemote(keys, fresh, continued);
  }
  if (!outcome) return outcome;
  mandatory_ = mandatory;
  remote_described_ = true;
  if (fresh) Replace(std::move(fresh), std::move(continued));
  if (NamesSuite(description.crypto)) incoming_->SetLifetime(keys);
  remote_has_keys_ = has_keys;
  // An offer of the far end's instead of an answer: ours was rejected, and the far end does not have its keys.
  std::optional<LocalSide> answered = std::exchange(next_local_, std::nullopt);
  if (answered && !description.answer_follows) Install(std::move(*answered));
  return outcome;
}

/// Where the far end is with its rollovers: keys under which no packet has come yet know it from those before them.
SrtpTransform::Position EndpointCrypto::LatestIncoming() const {
  const SrtpTransform* latest = incoming_.get();
  if (latest != nullptr && !latest->in_use()) {
    if (former_ && former_->in_use()) {
      latest = former_.get();
    } else if (continued_) {
      latest = continued_.get();
    }
  }
  return latest != nullptr ? latest->LatestPosition() : SrtpTransform::Position();
}

/// Leaves both null when the keys are those that stand.
Outcome EndpointCrypto::PrepareRemote(const SrtpKeys& keys, Transform& fresh, Transform& continued) {
  if (incoming_ && incoming_->keys().SameAs(keys)) return Outcome::Done();
  if (former_ && former_->keys().SameAs(keys)) {
    fresh = std::move(former_);  // back again, with all that came of them
    return Outcome::Done();
  }
  std::string reason;
  fresh = SrtpTransform::Make(SrtpTransform::Direction::kIncoming, keys, reason);
  if (!fresh) return Outcome::Refused(reason);
  const SrtpTransform::Position position = LatestIncoming();
  if (!position.matters()) return Outcome::Done();
  continued = SrtpTransform::Make(SrtpTransform::Direction::kIncoming, keys, reason);
  if (!continued) return Outcome::Refused(reason);
  continued->ContinueAt(position);
  return Outcome::Done();
}

void EndpointCrypto::Replace(Transform fresh, Transform continued) {
  // Of keys that were never in use nothing is on its way; the ones before them still are the former ones.
  if (incoming_ && (incoming_->in_use() || !former_)) {
    former_ = std::move(incoming_);
    former_until_.reset();
  }
  incoming_ = std::move(fresh);
  continued_ = std::move(continued);
  told_expired_remotely_ = told_unauthentic_ = false;
}

}  // namespace media_engine
