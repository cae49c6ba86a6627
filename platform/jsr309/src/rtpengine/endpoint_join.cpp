// Who hears whom.
#include "rtpengine/rtpengine_endpoint.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

bool GoesForward(Direction direction) {
  return direction == kDuplex || direction == kAudioNoVideo || direction == kReceive;
}
bool GoesBackward(Direction direction) {
  return direction == kDuplex || direction == kAudioNoVideo || direction == kSend;
}

/// The library joins and imports endpoints of one driver only.
std::shared_ptr<RtpengineEndpoint> Ours(const std::shared_ptr<ServerEndpoint>& endpoint) {
  return std::static_pointer_cast<RtpengineEndpoint>(endpoint);
}

}  // namespace

bool RtpengineEndpoint::Join(Direction direction, const std::shared_ptr<ServerEndpoint>& other) {
  return Report("join", JoinWith(direction, Ours(other)));
}

std::string RtpengineEndpoint::CheckCarriage(const RtpengineEndpoint& other) const {
  const LegImage &image = record_.image, &others = other.record_.image;
  if (image.in_use() != others.in_use()) {
    // The one has been described anew before the other: they will be alike soon, and nothing flows until then.
    if (image.is_changing() || others.is_changing()) return "";
    return "one of the two endpoints is in UDP pass-through and the other is not";
  }
  if (context_->family() != other.context_->family()) return "the two servers' addresses are of different families";
  return image.in_use() ? "" : PlanBus(record_.codecs, other.record_.codecs).reason;
}

std::string RtpengineEndpoint::CheckJoin(Direction direction, const RtpengineEndpoint& other) const {
  if (!Usable() || !other.Usable()) return kGone;
  if (session_ != other.session_) return "the two endpoints are not in one session";
  return GoesForward(direction) || GoesBackward(direction) ? CheckCarriage(other) : "";
}

std::string RtpengineEndpoint::JoinWith(Direction direction, const Self& other) {
  const NgTime now = NgTime::clock::now();
  const NgTime deadline = std::min(context_->DeadlineFrom(now), other->context_->DeadlineFrom(now));
  const std::string refusal = TryJoin(direction, other, now, deadline);
  if (refusal.empty()) return "";
  // Whatever the two were before.
  std::vector<Self> parted;
  {
    const Lock lock(context_->books().mutex);
    if (partner_.lock() == other) Part(parted, now);
  }
  const auto posted = std::make_shared<PostedRequests>();
  SettleAll(parted, posted);
  posted->Wait(deadline);
  return refusal;
}

std::string RtpengineEndpoint::TryJoin(Direction direction, const Self& other, NgTime now, NgTime deadline) {
  const GatePass pass(gate_, other->gate_, deadline);
  if (!pass) return kBusy;
  for (RtpengineEndpoint* one : {this, other.get()}) {
    if (std::string fault = one->EnsureCall(deadline); !fault.empty()) return fault;
  }
  std::vector<Self> parted;
  std::string refusal, loss;
  {
    const Lock lock(context_->books().mutex);
    refusal = CheckJoin(direction, *other);
    if (!refusal.empty()) return refusal;
    LinkWith(*other, GoesForward(direction), GoesBackward(direction), parted, now);
    loss = PlanBus(record_.codecs, other->record_.codecs).loss;
  }
  const auto posted = std::make_shared<PostedRequests>();
  SettleAll(parted, posted);
  if (!loss.empty()) context_->NameUnsupported(loss, "they reach the other leg under the type they came with");
  refusal = SettleJoin(other, deadline);
  posted->Wait(deadline);
  return refusal;
}

std::string RtpengineEndpoint::SettleJoin(const Self& other, NgTime deadline) {
  std::string error;
  if (!Settle(deadline, error) || !other->Settle(deadline, error)) return error;
  const Lock lock(context_->books().mutex);
  return partner_.lock() == other ? "" : "another operation has dissolved the join";
}

bool RtpengineEndpoint::Unjoin(const std::shared_ptr<ServerEndpoint>& server_endpoint) {
  const Self other = Ours(server_endpoint);
  const NgTime now = NgTime::clock::now();
  const NgTime deadline = std::min(context_->DeadlineFrom(now), other->context_->DeadlineFrom(now));
  const GatePass pass(gate_, other->gate_, deadline);
  if (!pass) return Report("unjoin", kBusy);
  std::vector<Self> parted;
  {
    const Lock lock(context_->books().mutex);
    if (Usable() && partner_.lock() == other) Part(parted, now);
  }
  if (parted.empty()) {
    context_->Log(DEBUG_LOG_LEVEL, "Refused unjoin: the two endpoints are not joined");
    return false;
  }
  bool settled = true;
  for (const Self& one : parted) {
    std::string error;
    if (!one->Settle(deadline, error)) settled = Report("unjoin", error);
  }
  return settled;
}

void RtpengineEndpoint::LinkWith(RtpengineEndpoint& other, bool forward, bool backward, std::vector<Self>& parted,
                                 NgTime now) {
  const Self partner = partner_.lock();
  if (partner.get() != &other) {
    Part(parted, now);
    other.Part(parted, now);
    partner_ = other.weak_from_this();
    other.partner_ = weak_from_this();
  }
  carries_ = forward;
  other.carries_ = backward;
  for (RtpengineEndpoint* one : {this, &other}) {
    one->fax_peers_ = false;
    one->silence_.Restart(now);
    one->KeepLearning(now);
    ++one->changes_;
  }
}

void RtpengineEndpoint::Part(std::vector<Self>& parted, NgTime now) {
  const Self partner = partner_.lock();
  partner_.reset();
  if (partner == nullptr) return;
  for (const Self& one : {partner, shared_from_this()}) {
    one->partner_.reset();
    one->carries_ = one->fax_peers_ = false;
    one->silence_.Restart(now);
    ++one->changes_;
    parted.push_back(one);
  }
}

bool RtpengineEndpoint::ExpectsMedia() const {
  if (record_.image.in_use()) return false;
  return carries_ || partner_.expired();
}

}  // namespace kelvaro::jsr309::rtpengine
