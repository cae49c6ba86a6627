/// The image stream of a leg (fax, ITU-T T.38 over UDP), which takes turns with the audio on the same ports.
///
/// A far end that offers fax is often told no, and the voice must have gone on meanwhile. So what one side says of an
/// image stream is only kept. Once both sides have described it, it is in use; once both have described audio, it is
/// not. What an offer said lapses when the answer declines it, and when the other side makes an offer instead of
/// answering. So does the place that an offer of the far end names while images flow: until it is answered they go
/// where they went.
///
/// A value.
#pragma once

#include <cstdint>
#include <string>

namespace kelvaro::jsr309::rtpengine {

/// Where somebody receives.
struct NgPlace {
  std::string address;  ///< numeric; empty when it is not known
  uint16_t rtp_port = 0;
  uint16_t rtcp_port = 0;

  bool empty() const { return address.empty(); }
  bool operator==(const NgPlace& other) const {
    return address == other.address && rtp_port == other.rtp_port && rtcp_port == other.rtcp_port;
  }
};

class LegImage {
 public:
  /// One side has described an image stream, or audio. offer: the other side has yet to answer.
  void DescribedLocally(bool image, bool offer);
  /// place: of an image, where the far end says that it is.
  void DescribedRemotely(bool image, bool offer, const NgPlace& place);
  /// The description of another leg has made this one its fax peer; place is empty when that did not say where.
  void Use(const NgPlace& place);

  bool in_use() const { return in_use_; }
  /// There is one, or one side wishes for one.
  bool is_described() const { return local_ || remote_ || in_use_; }
  /// What is in use is not what both sides described last.
  bool is_changing() const { return local_ != in_use_ || remote_ != in_use_; }
  /// Where images go.
  const NgPlace& far_end() const { return far_end_; }
  /// What the far end said last, an offer included. Empty when it has described no image stream.
  NgPlace described_far_end() const;

 private:
  enum class Offer : uint8_t { kNone, kLocal, kRemote };

  void Described(bool& side, bool& other_side, Offer own, Offer others, bool image, bool offer);
  void SetFarEnd(const NgPlace& place);

  bool local_ = false, remote_ = false;  // what each side has described
  bool in_use_ = false;
  Offer unanswered_ = Offer::kNone;
  bool answered_ahead_ = false;  // we have answered an offer that has yet to be told
  bool answered_ = false;        // we have answered the far end's last offer
  NgPlace far_end_, offered_far_end_;
};

}  // namespace kelvaro::jsr309::rtpengine
