#include "image_stream.h"

#include <utility>

namespace media_engine {

void ImageStream::Described(bool& side, bool& other_side, Offer own, Offer others, bool image, bool offer) {
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

void ImageStream::DescribedLocally(bool image, bool offer) {
  const bool answers = !offer && unanswered_ == Offer::kRemote;
  const SocketAddress offered = std::exchange(offered_far_end_, SocketAddress());
  if (image && answers && !offered.empty()) SetFarEnd(offered);
  answered_ = answers || (answered_ && !offer);
  answered_ahead_ = !offer && !answered_;
  Described(local_, remote_, Offer::kLocal, Offer::kRemote, image, offer);
}

void ImageStream::DescribedRemotely(bool image, bool offer) {
  if (!image) offered_far_end_ = SocketAddress();
  answered_ahead_ = answered_ = false;
  Described(remote_, local_, Offer::kRemote, Offer::kLocal, image, offer);
}

void ImageStream::OfferFarEnd(const SocketAddress& described) {
  if (!in_use_ || answered_ahead_) return SetFarEnd(described);
  offered_far_end_ = described;
}

SocketAddress ImageStream::described_far_end() const {
  if (!offered_far_end_.empty()) return offered_far_end_;
  return remote_ || in_use_ ? described_far_end_ : SocketAddress();
}

void ImageStream::SetFarEnd(const SocketAddress& described) {
  offered_far_end_ = SocketAddress();
  if (described == described_far_end_) return;
  described_far_end_ = far_end_ = described;
}

void ImageStream::FollowAudio(const RemoteAddress& audio) {
  if (audio.described() && audio.described_rtp() == described_far_end_) far_end_ = audio.rtp();
}

}  // namespace media_engine
