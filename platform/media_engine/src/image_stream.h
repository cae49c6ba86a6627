/// The image stream of an endpoint (fax, ITU-T T.38 over UDP), which takes turns with the audio on the same ports.
///
/// A far end that offers fax is often told no, and the voice must have gone on meanwhile. So what one side says of an
/// image stream is only kept. Once both sides have described it, it is in use; once both have described audio, it is
/// not. What an offer said lapses when the answer declines it, and when the other side makes an offer instead of
/// answering. So does the place that an offer of the far end names while images flow: until it is answered they go
/// where they went.
///
/// Threads: none of its own; used by the thread that owns the endpoint.
#pragma once

#include <cstdint>

#include "remote_address.h"
#include "socket_address.h"

namespace media_engine {

class ImageStream {
 public:
  /// One side has described an image stream, or audio. offer: the other side has yet to answer.
  void DescribedLocally(bool image, bool offer);
  void DescribedRemotely(bool image, bool offer);
  /// The description of another leg has made this one its fax peer.
  void Use() { in_use_ = true; }

  bool in_use() const { return in_use_; }
  /// There is one, or one side wishes for one.
  bool is_described() const { return local_ || remote_ || in_use_; }
  /// What is in use is not what both sides described last.
  bool is_changing() const { return local_ != in_use_ || remote_ != in_use_; }

  /// Where the far end says that it is. The same again leaves a far end that was found elsewhere in place.
  void SetFarEnd(const SocketAddress& described);
  /// The same, of an offer that is told before DescribedRemotely and counts once it is answered.
  void OfferFarEnd(const SocketAddress& described);
  /// A far end whose audio comes from another place than it says sends its images from there too.
  void FollowAudio(const RemoteAddress& audio);
  /// What it said last, an offer included. Empty when the far end has not described an image stream.
  SocketAddress described_far_end() const;
  const SocketAddress& far_end() const { return far_end_; }
  /// Whether the far end wants anything sent.
  bool CanSend() const { return far_end_.port() != 0 && !far_end_.IsWildcard(); }

 private:
  enum class Offer : uint8_t { kNone, kLocal, kRemote };

  void Described(bool& side, bool& other_side, Offer own, Offer others, bool image, bool offer);

  bool in_use_ = false;
  bool local_ = false, remote_ = false;  // what each side has described
  Offer unanswered_ = Offer::kNone;
  bool answered_ahead_ = false;  // we have answered an offer that has yet to be told
  bool answered_ = false;        // we have answered the far end's last offer; to answer again answers no other
  SocketAddress described_far_end_, far_end_;
  SocketAddress offered_far_end_;  // while in use, of an offer that we have yet to answer; empty without
};

}  // namespace media_engine
