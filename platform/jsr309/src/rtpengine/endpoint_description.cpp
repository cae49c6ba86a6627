// What the two sides of an endpoint say of themselves.
#include "address_text.h"
#include "rtpengine/rtpengine_endpoint.h"
#include "rtpengine/rtpengine_unsupported.h"

#include <sys/socket.h>

#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

void TakeMarks(const MediaConfig& config, LegMarks& marks) {
  if (config.HasIpv4Tos()) marks.tos = config.GetIpv4Tos();
  if (config.HasIpv4TimeToLive()) marks.time_to_live = config.GetIpv4TimeToLive();
  if (config.HasIpv6TrafficClass()) marks.traffic_class = config.GetIpv6TrafficClass();
  if (config.HasIpv6HopLimit()) marks.hop_limit = config.GetIpv6HopLimit();
}

void TakeTimeouts(const MediaConfig& config, LegSilence& silence) {
  if (const auto seconds = config.GetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_INACTIVE)) {
    silence.SetInactiveTimeout(std::chrono::seconds(*seconds));
  }
  if (const auto seconds = config.GetRtpTimeoutSec(MediaConfig::RTP_TIMEOUT_PENDING)) {
    silence.SetPendingTimeout(std::chrono::seconds(*seconds));
  }
}

}  // namespace

bool RtpengineEndpoint::GetLocal(const char* what, MediaConfig& config, bool offer) {
  NameUnsupportedSettings(config, Side::kLocal, *context_);
  return Report(what, DescribeLocal(config, offer));
}

bool RtpengineEndpoint::SetRemote(const char* what, const MediaConfig& config, bool offer) {
  NameUnsupportedSettings(config, Side::kRemote, *context_);
  return Report(what, DescribeRemote(config, offer));
}

std::string RtpengineEndpoint::DescribeLocalRecord(LegRecord& next, MediaConfig& config, bool offer) const {
  if (config.GetUdpPassThru()) {
    if (std::string fault = next.crypto.RefuseImage(config); !fault.empty()) return fault;
  } else {
    if (std::string fault = LegCodecs::FaultIn(config); !fault.empty()) return fault;
    if (std::string fault = next.crypto.DescribeLocal(config, offer); !fault.empty()) return fault;
    next.codecs.SetLocal(config);
  }
  TakeMarks(config, next.marks);
  next.image.DescribedLocally(config.GetUdpPassThru(), offer);
  return "";
}

std::string RtpengineEndpoint::DescribeLocal(MediaConfig& config, bool offer) {
  const NgTime now = NgTime::clock::now();
  const NgTime deadline = context_->DeadlineFrom(now);
  const GatePass pass(gate_, deadline);
  if (!pass) return kBusy;
  LegRecord next;
  Call call, former;
  {
    const Lock lock(context_->books().mutex);
    if (!Usable()) return kGone;
    next = record_;
    call = former = call_;
  }
  if (std::string fault = DescribeLocalRecord(next, config, offer); !fault.empty()) return fault;
  // The far end of an offer of ours may be sending to the port already.
  const bool renew = !offer && config.GetAutoLocalPortRenew().value_or(false);
  if (call == nullptr || renew) {
    if (std::string fault = OpenCall(next, deadline, call); !fault.empty()) return fault;
  }
  if (std::string fault = Commit(next, call, deadline); !fault.empty()) return fault;
  std::string error;
  if (former != nullptr && former != call && !former->End(deadline, error)) {
    context_->Log(WARN_LOG_LEVEL, "A port that was renewed is not free yet: " + error);
  }
  FillLocal(call->leg(), config);
  {
    const Lock lock(context_->books().mutex);
    const milliseconds interval = silence_.Interval();
    if (!config.GetUdpPassThru()) TakeTimeouts(config, silence_);
    silence_.Described(now);
    if (std::exchange(is_watched_, true) && silence_.Interval() == interval) return "";
  }
  context_->Watch(weak_from_this());
  return "";
}

std::string RtpengineEndpoint::OpenCall(const LegRecord& record, NgTime deadline, Call& call) const {
  auto made = std::make_shared<DaemonCall>(context_);
  std::string error;
  if (!made->Open(PictureAlone(record), deadline, error)) return error;
  call = std::move(made);
  return "";
}

std::string RtpengineEndpoint::EnsureCall(NgTime deadline) {
  LegRecord record;
  {
    const Lock lock(context_->books().mutex);
    if (!Usable()) return kGone;
    if (call_ != nullptr) return "";
    record = record_;
  }
  Call call;
  if (std::string fault = OpenCall(record, deadline, call); !fault.empty()) return fault;
  {
    const Lock lock(context_->books().mutex);
    if (session_ != nullptr) {
      call_ = call;
      ++changes_;
      return "";
    }
  }
  call->Drop();
  return kGone;
}

std::string RtpengineEndpoint::ParseFarEnd(const MediaConfig& config, NgPlace& place) const {
  const std::string address = config.GetIPAddress() != nullptr ? config.GetIPAddress() : "";
  const std::optional<IpKey> parsed = ParseIp(address);
  if (!parsed) return "remote address '" + address + "' is not a numeric IPv4 or IPv6 address";
  if (parsed->family != context_->family()) {
    return "remote address " + address + " and local address " + context_->settings().addresses.front() +
           " are of different families";
  }
  place = {WithoutBrackets(address), config.GetRtpPort(), config.GetRtcpPort()};
  return "";
}

std::string RtpengineEndpoint::DescribeRemoteRecord(LegRecord& next, const MediaConfig& config, bool offer,
                                                    Self& peer) const {
  NgPlace place;
  const bool image = config.GetUdpPassThru();
  if (image) {
    if (std::string fault = FindImagePeer(config, peer); !fault.empty()) return fault;
    if (std::string fault = next.crypto.RefuseImage(config); !fault.empty()) return fault;
    if (std::string fault = ParseFarEnd(config, place); !fault.empty()) return fault;
    place.rtcp_port = 0;
  } else {
    if (config.GetUdpPassThruPeer()) return "a UDP pass-through peer without UDP pass-through";
    if (std::string fault = LegCodecs::FaultIn(config); !fault.empty()) return fault;
    if (std::string fault = ParseFarEnd(config, place); !fault.empty()) return fault;
    if (std::string fault = next.crypto.DescribeRemote(config, offer); !fault.empty()) return fault;
    next.SetFarEnd(place);
    next.codecs.SetRemote(config);
  }
  next.image.DescribedRemotely(image, offer, place);
  return "";
}

std::string RtpengineEndpoint::DescribeRemote(const MediaConfig& config, bool offer) {
  const NgTime deadline = context_->DeadlineFrom(NgTime::clock::now());
  const GatePass pass(gate_, deadline);
  if (!pass) return kBusy;
  LegRecord next;
  Call call;
  Self peer;
  {
    const Lock lock(context_->books().mutex);
    if (!Usable()) return kGone;
    next = record_;
    call = call_;
    if (std::string fault = DescribeRemoteRecord(next, config, offer, peer); !fault.empty()) return fault;
  }
  if (std::string fault = Commit(next, call, deadline); !fault.empty()) return fault;
  if (peer != nullptr) return LinkImagePeer(peer, config, deadline);
  if (config.GetUdpPassThruPeer() && NamesNobody(*config.GetUdpPassThruPeer())) {
    context_->Log(WARN_LOG_LEVEL, "The other leg has no image stream; nothing is relayed until the two are joined");
  }
  return "";
}

std::string RtpengineEndpoint::Commit(const LegRecord& next, const Call& call, NgTime deadline) {
  LegRecord former;
  Call former_call;
  std::vector<Self> parted;
  const auto posted = std::make_shared<PostedRequests>();
  bool ended = false;
  {
    const Lock lock(context_->books().mutex);
    ended = session_ == nullptr;
    if (!ended) {
      former = record_;
      former_call = std::exchange(call_, call);
      TakeRecord(next, parted);
    }
  }
  if (ended) {
    if (call != nullptr) call->Drop();
    return kGone;
  }
  SettleAll(parted, posted);
  std::string error;
  if (Settle(deadline, error)) {
    SettlePartner(deadline);
    posted->Wait(deadline);
    return "";
  }
  Self partner;
  {
    const Lock lock(context_->books().mutex);
    former.KeepFound(record_);
    record_ = former;
    call_ = former_call;
    ++changes_;
    partner = partner_.lock();
    if (partner != nullptr) ++partner->changes_;  // it may have been told of the other place meanwhile
  }
  if (call != nullptr && call != former_call) call->Drop();
  PostSettle(nullptr);
  if (partner != nullptr) partner->PostSettle(nullptr);
  return error;
}

void RtpengineEndpoint::TakeRecord(const LegRecord& next, std::vector<Self>& parted) {
  const LegRecord before = std::exchange(record_, next);
  record_.KeepFound(before);
  if (!(next.far_end == before.far_end)) is_learning_applied_ = false;
  const NgTime now = NgTime::clock::now();
  KeepLearning(now);
  ++changes_;
  const Self partner = partner_.lock();
  if (partner != nullptr) ++partner->changes_;
  if (before.image.in_use() == next.image.in_use()) return;
  silence_.Restart(now);
  if (!next.image.in_use() && fax_peers_) Part(parted, now);
}

void RtpengineEndpoint::FillLocal(const NgPlace& place, MediaConfig& config) const {
  const std::string& public_address = context_->settings().public_address;
  config.SetIPAddress(place.address.c_str());
  config.SetPublicIPAddress(public_address.empty() ? nullptr : public_address.c_str());
  config.SetRtpPort(place.rtp_port);
  config.SetRtcpPort(place.rtcp_port);
}

}  // namespace kelvaro::jsr309::rtpengine
