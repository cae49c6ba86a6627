#include "rtpengine/daemon_call.h"

#include "address_text.h"

#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

bool ReadReply(const Dictionary& reply, NgDescription& description, std::string& error) {
  if (ReadSdp(TextOf(reply, "sdp"), description, error)) {
    if (description.rtp_port != 0) return true;
    error = "it gave no port";
  }
  error = "rtpengine's reply cannot be used: " + error;
  return false;
}

uint16_t RtcpPortOf(const NgDescription& description) {
  return description.rtcp_port != 0 ? description.rtcp_port : static_cast<uint16_t>(description.rtp_port + 1);
}

}  // namespace

DaemonCall::DaemonCall(std::shared_ptr<RtpengineContext> context, uint64_t epoch)
    : context_(std::move(context)), name_{context_->NewCall(epoch), context_->interface()}, epoch_(epoch) {}

bool DaemonCall::Open(CallPicture picture, NgTime deadline, std::string& error) {
  picture.leg = picture.bus = Discarded(context_->family());
  picture.keys.reset();
  picture.image = picture.block = picture.learn = false;
  NgDescription leg, bus;
  bool open = Exchange(picture, OfferOf(name_, picture), leg, bus, deadline, error);
  if (open) {
    error = FaultOf(leg);
    open = error.empty();
  }
  if (!open) {
    Drop();
    return false;
  }
  leg_ = {context_->settings().addresses.front(), leg.rtp_port, RtcpPortOf(leg)};
  bus_ = {bus.address, bus.rtp_port, RtcpPortOf(bus)};
  return true;
}

/// Descriptions, statistics and operators' commands go by the configured address.
std::string DaemonCall::FaultOf(const NgDescription& leg) const {
  const std::string& configured = context_->settings().addresses.front();
  if (SameIp(leg.address, configured)) return "";
  return "the daemon gave a port on " + leg.address + ", and the server's address is " + configured +
         " (check address and interface)";
}

bool DaemonCall::Exchange(const CallPicture& picture, const Dictionary& offer, NgDescription& leg, NgDescription& bus,
                          NgTime deadline, std::string& error) {
  const auto offered = context_->Ask(offer, epoch_, deadline, error);
  if (!offered || !ReadReply(*offered, leg, error)) return false;
  const auto answered = context_->Ask(AnswerOf(name_, picture), epoch_, deadline, error);
  return answered && ReadReply(*answered, bus, error);
}

bool DaemonCall::ExchangeOnOurPorts(const CallPicture& picture, const Dictionary& offer, NgTime deadline,
                                    std::string& error) {
  NgDescription leg, bus;
  if (!Exchange(picture, offer, leg, bus, deadline, error)) return false;
  if (leg.rtp_port == leg_.rtp_port && bus.rtp_port == bus_.rtp_port) return true;
  // An offer makes a call that is not there; the one that was has been ended by the daemon.
  ReportUnknown();
  error = "the daemon has ended the call by itself";
  return false;
}

void DaemonCall::ReportUnknown() const {
  context_->ReportUnknownCall(epoch_);
}

bool DaemonCall::ApplyKeys(const CallPicture& picture, NgTime deadline, std::string& error) {
  const bool has_them = picture.image || !picture.keys || (applied_keys_ && *applied_keys_ == *picture.keys);
  if (!has_them && !ExchangeOnOurPorts(picture, KeyOfferOf(name_, picture), deadline, error)) return false;
  applied_keys_ = picture.image ? std::nullopt : picture.keys;
  return true;
}

bool DaemonCall::Apply(const CallPicture& picture, NgTime deadline, std::string& error) {
  if (!ApplyKeys(picture, deadline, error)) return false;
  // A daemon that has made up its mind on a far end looks for it again with the second description that lets it.
  const int times = picture.learn && !applied_learning_ ? 2 : 1;
  for (int i = 0; i < times; ++i) {
    if (!ExchangeOnOurPorts(picture, OfferOf(name_, picture), deadline, error)) return false;
  }
  applied_learning_ = picture.learn;
  if (picture.block) was_blocked_ = true;
  if (!was_blocked_) return true;
  return context_->Ask(BlockOf(name_, picture.block), epoch_, deadline, error).has_value();
}

void DaemonCall::Post(const CallPicture& picture, const std::shared_ptr<PostedRequests>& posted) {
  context_->Post(OfferOf(name_, picture), epoch_, posted);
  context_->Post(AnswerOf(name_, picture), epoch_, posted);
  if (!picture.learn) applied_learning_ = false;
  if (picture.block) was_blocked_ = true;
  if (was_blocked_) context_->Post(BlockOf(name_, picture.block), epoch_, posted);
}

std::optional<Dictionary> DaemonCall::Query(NgTime deadline, std::string& error) {
  return context_->Ask(QueryOf(name_), epoch_, deadline, error);
}

}  // namespace kelvaro::jsr309::rtpengine
