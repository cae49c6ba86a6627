#include "rtpengine/leg_image.h"

#include <utility>

namespace kelvaro::jsr309::rtpengine {

void LegImage::Described(bool& side, bool& other_side, Offer own, Offer others, bool image, bool offer) {
  const bool answers = !offer && unanswered_ == others;
  if (offer && unanswered_ == others) other_side = in_use_;
  side = image;
  if (side == other_side) {
    in_use_ = side;
  } else if (answers) {
    side = other_side = in_use_;
  }
  unanswered_ = offer ? own : Offer::kNone;
}

void LegImage::DescribedLocally(bool image, bool offer) {
  const bool answers = !offer && unanswered_ == Offer::kRemote;
  const NgPlace offered = std::exchange(offered_far_end_, NgPlace());
  if (image && answers && !offered.empty()) SetFarEnd(offered);
  answered_ = answers || (answered_ && !offer);
  answered_ahead_ = !offer && !answered_;
  Described(local_, remote_, Offer::kLocal, Offer::kRemote, image, offer);
}

void LegImage::DescribedRemotely(bool image, bool offer, const NgPlace& place) {
  if (!image) {
    offered_far_end_ = NgPlace();
  } else if (offer && in_use_ && !answered_ahead_) {
    offered_far_end_ = place;
  } else {
    SetFarEnd(place);
  }
  answered_ahead_ = answered_ = false;
  Described(remote_, local_, Offer::kRemote, Offer::kLocal, image, offer);
}

void LegImage::Use(const NgPlace& place) {
  if (!place.empty()) SetFarEnd(place);
  in_use_ = true;
}

NgPlace LegImage::described_far_end() const {
  if (!offered_far_end_.empty()) return offered_far_end_;
  return remote_ || in_use_ ? far_end_ : NgPlace();
}

void LegImage::SetFarEnd(const NgPlace& place) {
  offered_far_end_ = NgPlace();
  far_end_ = place;
}

}  // namespace kelvaro::jsr309::rtpengine
