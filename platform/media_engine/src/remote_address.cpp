#include "remote_address.h"

#include <utility>

namespace media_engine {

void RemoteAddress::Describe(const SocketAddress& rtp, const SocketAddress& rtcp, TimePoint now) {
  const bool moved = rtp != described_rtp_;
  if (moved) rtp_ = rtp;
  if (moved || rtcp != described_rtcp_) rtcp_ = rtcp;
  described_rtp_ = rtp;
  described_rtcp_ = rtcp;
  if (moved && allowed_) OpenLearning(now);
}

void RemoteAddress::AllowLearning(TimePoint now) {
  if (!std::exchange(allowed_, true)) OpenLearning(now);
}

void RemoteAddress::OpenLearning(TimePoint now) {
  learning_ = learning_rtcp_ = true;
  ExtendLearning(now);
}

void RemoteAddress::ExtendLearning(TimePoint now) {
  if (learning_) learning_since_ = now;
  if (learning_rtcp_) learning_rtcp_since_ = now;
}

void RemoteAddress::Learn(const SocketAddress& from, TimePoint now) {
  rtp_ = from;
  // The usual port until reports come from another one.
  rtcp_ = from.WithPort(static_cast<uint16_t>(from.port() + 1));
  learning_ = false;
  learning_rtcp_ = true;
  learning_rtcp_since_ = now;
}

void RemoteAddress::LearnRtcp(const SocketAddress& from) {
  rtcp_ = from;
  learning_rtcp_ = false;
}

}  // namespace media_engine
