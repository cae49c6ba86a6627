/// Whether an endpoint's packets are protected, and with which keys: SRTP between the descriptions and the packets.
///
/// Keys come in descriptions, packets come in between and on their own way, and neither side knows when the other has
/// read its description. So what stands is kept until its successor can be in use:
///
/// - Our new keys, when the far end still has to answer the description they are in, wait for that answer. They lapse
///   when the far end makes an offer of its own instead.
/// - The far end's new keys are tried first; the former ones count until the new ones have been in use for a moment. So
///   what is on its way gets through, and so does a far end whose new description was refused elsewhere.
/// - Keys that are repeated change nothing: counters and replay lists go on.
/// - After a change of keys the far end may count rollovers on (RFC 3711, section 3.3.1) or anew from 0, as many do;
///   both are tried, and its first packet decides. Ours go on, and start from 0 with a new port (RFC 4568, 7.1.4).
///
/// What went wrong first with a set of keys is told once; after that it is only counted.
///
/// Threads: none of its own; used by the thread that owns the endpoint.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "media_engine/clock.h"
#include "media_engine/description.h"
#include "media_engine/outcome.h"
#include "media_engine/statistics.h"
#include "srtp_transform.h"

namespace media_engine {

class EndpointCrypto {
 public:
  /// How long the far end's former keys count after its first packet under the new ones.
  static constexpr seconds kFormerKeysTime{2};
  /// Longer ones are not taken.
  static constexpr std::size_t kLongestPacket = 2048;

  using Warn = std::function<void(const std::string&)>;
  explicit EndpointCrypto(Warn warn) : warn_(std::move(warn)) {}

  // Descriptions. Refused ones change nothing.
  /// new_port: the endpoint receives elsewhere from now on.
  Outcome DescribeLocal(const LocalSettings& settings, bool new_port);
  Outcome DescribeRemote(const RemoteDescription& description);
  /// The endpoint receives elsewhere from now on, by a description that says nothing of keys.
  void PortRenewed() { port_renewed_ = true; }
  /// The key of the latest local description; empty without.
  SecretBytes LocalKey() const;

  bool mandatory() const { return mandatory_; }
  /// Nothing goes either way: crypto is mandatory and one side has no keys.
  bool blocked() const { return mandatory_ && !Protects(); }
  uint64_t& missing() { return counters_.missing; }

  // Packets, in place. False: drop it; it has been counted. In the clear, true and nothing done. A packet that
  // is to be protected has kSrtpTrailerRoom behind it.
  bool ProtectRtp(uint8_t* packet, std::size_t& length) { return Protect(Protocol::kRtp, packet, length); }
  bool ProtectRtcp(uint8_t* packet, std::size_t& length) { return Protect(Protocol::kRtcp, packet, length); }
  bool UnprotectRtp(uint8_t* packet, std::size_t& length, TimePoint now) {
    return Unprotect(Protocol::kRtp, packet, length, now);
  }
  bool UnprotectRtcp(uint8_t* packet, std::size_t& length, TimePoint now) {
    return Unprotect(Protocol::kRtcp, packet, length, now);
  }

  /// A source of ours that sends no more. What is kept of it goes.
  void ForgetSource(uint32_t ssrc) {
    if (local_.outgoing) local_.outgoing->Forget(ssrc);
  }
  /// Lets go of keys whose time is over; now and then.
  void DropFormerKeys(TimePoint now);
  /// Adds what was counted.
  void AddTo(EndpointStatistics& statistics) const;

 private:
  using Protocol = SrtpTransform::Protocol;
  using Transform = std::unique_ptr<SrtpTransform>;

  /// Our side, as it is or as it will be once the far end has answered.
  struct LocalSide {
    bool has_keys = false;
    Transform outgoing;        // null in what is to be installed: the same; stays without keys: they may come back
    bool starts_anew = false;  // rollovers from 0
  };

  bool Protects() const { return local_.has_keys && remote_has_keys_; }
  Outcome PrepareLocal(const LocalSettings& settings, bool new_port, LocalSide& side);
  Outcome CompleteKeys(SrtpKeys& keys) const;
  const SrtpTransform* LatestOutgoing() const;
  void Install(LocalSide side);
  SrtpTransform::Position LatestIncoming() const;
  Outcome PrepareRemote(const SrtpKeys& keys, Transform& fresh, Transform& continued);
  void Replace(Transform fresh, Transform continued);
  bool Protect(Protocol protocol, uint8_t* packet, std::size_t& length);
  bool Unprotect(Protocol protocol, uint8_t* packet, std::size_t& length, TimePoint now);
  SrtpVerdict TryAll(Protocol protocol, uint8_t* packet, std::size_t& length, TimePoint now);
  void NewKeysAreInUse(TimePoint now);
  void Count(SrtpVerdict verdict);
  void TellOnce(bool& told, const char* what);

  const Warn warn_;
  bool mandatory_ = false;

  LocalSide local_;
  bool port_renewed_ = false;            // since a local description spoke of keys
  std::optional<LocalSide> next_local_;  // waits for the answer

  bool remote_described_ = false;
  bool remote_has_keys_ = false;
  Transform incoming_;
  Transform continued_;                    // the same keys, rollovers counted on; null once it is clear which it is
  Transform former_;                       // the keys before
  std::optional<TimePoint> former_until_;  // none: until the new keys are in use

  /// What EndpointStatistics has of SRTP.
  struct Counters {
    uint64_t unauthentic = 0, replayed = 0, sources_exceeded = 0, key_expired = 0, missing = 0, unsendable = 0,
             duplicates = 0;
  };
  Counters counters_;
  bool told_expired_locally_ = false, told_expired_remotely_ = false;
  bool told_unauthentic_ = false;
};

}  // namespace media_engine
