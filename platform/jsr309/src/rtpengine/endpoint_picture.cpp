// From the books to the daemon.
#include "rtpengine/rtpengine_endpoint.h"

#include <sys/socket.h>

#include <functional>
#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

bool IsSomewhere(const NgPlace& place) {
  return !place.empty() && place.rtp_port != 0;
}

}  // namespace

CallPicture RtpengineEndpoint::PictureAlone(const LegRecord& record) const {
  CallPicture picture;
  picture.leg = picture.bus = Nowhere(context_->family());
  picture.leg_codecs = picture.bus_codecs = LegLines(record.codecs);
  picture.packet_time_ms = record.codecs.packet_time_ms();
  picture.tos = context_->family() == AF_INET6 ? record.marks.traffic_class : record.marks.tos;
  picture.image = record.image.in_use();
  NgPlace far_end = picture.image ? record.image.far_end() : record.target();
  if (picture.image) {
    // A far end whose audio comes from another place than it says sends its images from there too.
    const bool as_audio = far_end.address == record.far_end.address && far_end.rtp_port == record.far_end.rtp_port;
    if (as_audio && !record.found.empty()) far_end = record.found;
  } else {
    picture.keys = record.crypto.effective();
    if (record.crypto.mandatory() && !picture.keys) return picture;
    picture.learn = record.learning;
  }
  if (IsSomewhere(far_end)) picture.leg = far_end;
  return picture;
}

CallPicture RtpengineEndpoint::Picture() const {
  CallPicture picture = PictureAlone(record_);
  const Self partner = partner_.lock();
  const bool linked =
      partner != nullptr && partner->call_ != nullptr && partner->record_.image.in_use() == picture.image;
  if (linked && (carries_ || partner->carries_)) PictureBus(*partner, picture);
  return picture;
}

void RtpengineEndpoint::PictureBus(const RtpengineEndpoint& partner, CallPicture& picture) const {
  if (!picture.image) {
    if (record_.crypto.mandatory() && !picture.keys) return;
    // Both legs have to come to the same plan.
    const bool first = std::less<>()(this, &partner);
    const BusPlan plan =
        first ? PlanBus(record_.codecs, partner.record_.codecs) : PlanBus(partner.record_.codecs, record_.codecs);
    if (plan.way == BusPlan::Way::kImpossible) return;
    if (plan.way == BusPlan::Way::kTranslated) picture.bus_codecs = plan.translated;
  }
  picture.bus = partner.call_->bus();
  picture.block = !carries_;
}

bool RtpengineEndpoint::Settle(NgTime deadline, std::string& error) {
  for (;;) {
    CallPicture picture;
    Call call;
    uint64_t changes = 0;
    bool look_first = false;
    {
      const Lock lock(context_->books().mutex);
      if (session_ == nullptr || call_ == nullptr) {
        if (session_ == nullptr) error = kGone;
        return session_ != nullptr;
      }
      call = call_;
      look_first = is_learning_applied_;
    }
    if (look_first) StopLearningIfFound(call, deadline);
    {
      const Lock lock(context_->books().mutex);
      picture = Picture();
      changes = changes_;
    }
    const bool applied = call->Apply(picture, deadline, error);
    bool ended = false, latest = false;
    {
      const Lock lock(context_->books().mutex);
      ended = session_ == nullptr;
      latest = changes == changes_;
      if (applied && latest) is_learning_applied_ = picture.learn;
    }
    // It ended while its call was being told, which may have made the call anew.
    if (ended) call->Drop();
    if (ended) error = kGone;
    if (ended || !applied) return false;
    if (latest) return true;
  }
}

void RtpengineEndpoint::PostSettle(const std::shared_ptr<PostedRequests>& posted) {
  for (uint64_t changes = 0;;) {
    CallPicture picture;
    Call call;
    {
      const Lock lock(context_->books().mutex);
      if (session_ == nullptr || call_ == nullptr) return;
      // Whoever is telling the daemon of something else comes back to this; and this to what they have changed.
      if (changes == 0) ++changes_;
      if (changes == changes_) return;
      changes = changes_;
      call = call_;
      picture = Picture();
    }
    call->Post(picture, posted);
  }
}

void RtpengineEndpoint::SettleAll(const std::vector<Self>& endpoints, const std::shared_ptr<PostedRequests>& posted) {
  for (const Self& endpoint : endpoints) endpoint->PostSettle(posted);
}

void RtpengineEndpoint::SettlePartner(NgTime deadline) {
  Self partner;
  std::string reason;
  {
    const Lock lock(context_->books().mutex);
    partner = partner_.lock();
    const bool flows = partner != nullptr && (carries_ || partner->carries_);
    if (flows && !record_.image.in_use() && !partner->record_.image.in_use()) {
      reason = PlanBus(record_.codecs, partner->record_.codecs).reason;
    }
  }
  if (partner == nullptr) return;
  // A new description of one leg may run ahead of the other's, so it is not refused; but nobody hears anything now.
  if (!reason.empty()) context_->Log(WARN_LOG_LEVEL, "Two endpoints are joined, but " + reason + ": nothing is sent");
  const auto posted = std::make_shared<PostedRequests>();
  partner->PostSettle(posted);
  posted->Wait(deadline);
}

}  // namespace kelvaro::jsr309::rtpengine
