#include "rtpengine/daemon_call.h"

#include "address_text.h"

#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

bool ReadReply(const Dictionary& reply, NgDescription& description, std::string& error) {
  const auto sdp = reply.find("sdp");
  const std::string* const text = sdp == reply.end() ? nullptr : sdp->second.Text();
  if (ReadSdp(text == nullptr ? std::string_view() : *text, description, error)) {
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
  const bool whole = CanBeToldInPart(picture);
  if (!whole) picture.leg = Nowhere(context_->family());
  picture.image = picture.block = picture.learn = false;
  NgDescription leg, bus;
  const Dictionary offer = picture.keys ? KeyOfferOf(name_, picture) : OfferOf(name_, picture);
  bool open = Exchange(picture, offer, leg, bus, deadline, error);
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
  applied_keys_ = picture.keys;
  const std::lock_guard<std::mutex> lock(mutex_);
  if (whole) told_ = Told{std::move(picture), true};
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
  return AskOnPort(offer, leg_.rtp_port, deadline, error) &&
         AskOnPort(AnswerOf(name_, picture), bus_.rtp_port, deadline, error);
}

bool DaemonCall::AskOnPort(const Dictionary& request, uint16_t port, NgTime deadline, std::string& error) {
  NgDescription description;
  const auto reply = context_->Ask(request, epoch_, deadline, error);
  if (!reply || !ReadReply(*reply, description, error)) return false;
  if (description.rtp_port == port) return true;
  // An offer makes a call that is not there; the one that was has been ended by the daemon.
  ReportUnknown();
  error = "the daemon has ended the call by itself";
  return false;
}

void DaemonCall::ReportUnknown() const {
  context_->ReportUnknownCall(epoch_);
}

bool DaemonCall::ApplyKeys(const CallPicture& picture, NgTime deadline, std::string& error) {
  if (keys_replaced_.exchange(false)) applied_keys_.reset();
  const bool has_them = picture.image || !picture.keys || (applied_keys_ && *applied_keys_ == *picture.keys);
  // Until the daemon has said that it has taken others, it may have those or these.
  if (!has_them) applied_keys_.reset();
  if (!has_them && !ExchangeOnOurPorts(picture, KeyOfferOf(name_, picture), deadline, error)) return false;
  applied_keys_ = picture.image ? std::nullopt : picture.keys;
  return true;
}

std::optional<DaemonCall::Told> DaemonCall::TakeTold(uint64_t& posts) {
  const std::lock_guard<std::mutex> lock(mutex_);
  posts = posts_;
  return std::exchange(told_, std::nullopt);
}

bool DaemonCall::Apply(const CallPicture& picture, NgTime deadline, std::string& error) {
  uint64_t posts = 0;
  const std::optional<Told> told = TakeTold(posts);
  PictureChange change = told ? ChangeOf(told->picture, picture) : PictureChange::kBoth;
  // A description that is repeated later finds out whether the call is still there.
  if (change == PictureChange::kNothing && !told->by_open) change = PictureChange::kBoth;
  if (!Describe(change, picture, deadline, error)) return false;
  applied_learning_ = picture.learn;
  if (picture.block) was_blocked_ = true;
  if (was_blocked_ && !context_->Ask(BlockOf(name_, picture.block), epoch_, deadline, error)) return false;
  const std::lock_guard<std::mutex> lock(mutex_);
  if (posts == posts_ && CanBeToldInPart(picture)) told_ = Told{picture};
  return true;
}

bool DaemonCall::Describe(PictureChange change, const CallPicture& picture, NgTime deadline, std::string& error) {
  switch (change) {
    case PictureChange::kNothing:
      return true;
    case PictureChange::kBus:
      return AskOnPort(OfferOf(name_, picture), leg_.rtp_port, deadline, error);
    case PictureChange::kLeg:
      return AskOnPort(AnswerOf(name_, picture), bus_.rtp_port, deadline, error);
    case PictureChange::kBoth:
      break;
  }
  return DescribeBoth(picture, deadline, error);
}

bool DaemonCall::DescribeBoth(const CallPicture& picture, NgTime deadline, std::string& error) {
  if (!ApplyKeys(picture, deadline, error)) return false;
  // A daemon that has made up its mind on a far end looks for it again with the second description that lets it.
  const int times = picture.learn && !applied_learning_ ? 2 : 1;
  for (int i = 0; i < times; ++i) {
    if (!ExchangeOnOurPorts(picture, OfferOf(name_, picture), deadline, error)) return false;
  }
  return true;
}

void DaemonCall::Post(const CallPicture& picture, const std::shared_ptr<PostedRequests>& posted) {
  std::optional<Told> told;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++posts_;
    told = std::exchange(told_, std::nullopt);
  }
  const PictureChange change = told ? ChangeOf(told->picture, picture) : PictureChange::kBoth;
  if (change != PictureChange::kLeg) context_->Post(OfferOf(name_, picture), epoch_, posted);
  if (change != PictureChange::kBus) context_->Post(AnswerOf(name_, picture), epoch_, posted);
  if (!picture.learn) applied_learning_ = false;
  if (picture.image) keys_replaced_ = true;
  if (picture.block) was_blocked_ = true;
  if (was_blocked_) context_->Post(BlockOf(name_, picture.block), epoch_, posted);
  // Whoever has told it something meanwhile does not know in which order that was.
  const std::lock_guard<std::mutex> lock(mutex_);
  ++posts_;
  told_.reset();
}

std::optional<Dictionary> DaemonCall::Query(NgTime deadline, std::string& error) {
  return context_->Ask(QueryOf(name_), epoch_, deadline, error);
}

}  // namespace kelvaro::jsr309::rtpengine
