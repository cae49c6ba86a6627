/// Where the far end is, and whether a packet comes from there.
///
/// A phone behind a NAT does not know the address under which its packets arrive; anyone else who finds our port would
/// like to be taken for that phone. So the address of the description stands, unless learning was asked for; then the
/// first valid RTP packet from elsewhere may replace it, once, within a bounded time. Everything else is a stranger.
/// Asking again and describing the same address again open nothing anew: calls are described again and again, and each
/// time would be a stranger's chance.
///
/// Threads: none of its own; used by the thread that owns the endpoint.
#pragma once

#include "media_engine/clock.h"
#include "socket_address.h"

namespace media_engine {

class RemoteAddress {
 public:
  static constexpr seconds kLearningTime{10};

  /// What the far end said. The same again leaves a learned address in place.
  void Describe(const SocketAddress& rtp, const SocketAddress& rtcp, TimePoint now);
  /// From now on, once for each address that is described.
  void AllowLearning(TimePoint now);
  /// Starts the time anew: media is to be expected only from now on.
  void ExtendLearning(TimePoint now);
  void Learn(const SocketAddress& from, TimePoint now);
  /// A NAT gives RTCP a port of its own, so that is learned too: once, from the host that RTP comes from, within the
  /// same time after RTP was learned or learning was asked for.
  void LearnRtcp(const SocketAddress& from);

  bool IsExpected(const SocketAddress& from) const { return described() && from == rtp_; }
  bool MayLearn(TimePoint now) const { return described() && learning_ && now - learning_since_ <= kLearningTime; }
  bool IsRtcpExpected(const SocketAddress& from) const { return described() && from == rtcp_; }
  bool MayLearnRtcp(const SocketAddress& from, TimePoint now) const {
    return described() && learning_rtcp_ && now - learning_rtcp_since_ <= kLearningTime && from.SameHost(rtp_);
  }

  bool described() const { return !described_rtp_.empty(); }
  /// Whether the far end wants anything sent.
  bool CanSend() const { return described() && rtp_.port() != 0 && !rtp_.IsWildcard(); }
  const SocketAddress& described_rtp() const { return described_rtp_; }
  bool CanSendRtcp() const { return CanSend() && rtcp_.port() != 0; }
  const SocketAddress& rtp() const { return rtp_; }
  const SocketAddress& rtcp() const { return rtcp_; }

 private:
  void OpenLearning(TimePoint now);

  SocketAddress rtp_, described_rtp_;  // rtp_, rtcp_: the described ones, or the learned
  bool allowed_ = false;
  bool learning_ = false;
  bool learning_rtcp_ = false;
  SocketAddress rtcp_, described_rtcp_;
  TimePoint learning_since_{};
  TimePoint learning_rtcp_since_{};
};

}  // namespace media_engine
