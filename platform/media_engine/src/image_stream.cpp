#include "image_stream.h"

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

void ImageStream::SetFarEnd(const SocketAddress& described) {
  if (described == described_far_end_) return;
  described_far_end_ = far_end_ = described;
}

void ImageStream::FollowAudio(const RemoteAddress& audio) {
  if (audio.described() && audio.described_rtp() == described_far_end_) far_end_ = audio.rtp();
}

}  // namespace media_engine
