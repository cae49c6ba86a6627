/// The SRTP keys of a leg (RFC 4568), as its two sides have described them.
///
/// The daemon protects a leg when both sides have keys. Ours, when the far end still has to answer the description they
/// are in, wait for that answer, and lapse when the far end makes an offer instead. Mandatory crypto fails closed: a
/// description without keys is refused, and so is UDP pass-through.
///
/// A value. Texts of errors never name an octet of a key.
#pragma once

#include "kelvaro/jsr309/media_config.h"
#include "rtpengine/ng_description.h"

#include <optional>
#include <string>

namespace kelvaro::jsr309::rtpengine {

class LegCrypto {
 public:
  /// What the daemon is told: ours protect what goes to the far end, theirs what comes.
  struct Keys {
    NgCryptoLine ours, theirs;
    bool operator==(const Keys& other) const;
  };

  /// Empty, or why not; nothing has changed then. A local record with a suite and no key gets one: that of the last
  /// description with the same suite and MKI, or a new one.
  std::string DescribeLocal(MediaConfig& config, bool offer);
  std::string DescribeRemote(const MediaConfig& config, bool offer);
  /// Whether UDP pass-through may be described by a record that says so.
  std::string RefuseImage(const MediaConfig& config) const;

  /// None unless both sides have keys.
  std::optional<Keys> effective() const;
  /// Nothing may pass unprotected.
  bool mandatory() const { return mandatory_; }

 private:
  using Line = std::optional<NgCryptoLine>;

  std::string TakeLocal(MediaConfig& config, Line& line) const;

  Line local_, remote_;
  std::optional<Line> next_local_;  // of an offer of ours that has not been answered
  bool remote_described_ = false;
  bool mandatory_ = false;
};

}  // namespace kelvaro::jsr309::rtpengine
