#include "remote_address.h"

namespace media_engine {

void RemoteAddress::Describe(const SocketAddress& rtp, const SocketAddress& rtcp, TimePoint now) {
  if (rtp != described_rtp_) rtp_ = rtp;
  if (rtp != described_rtp_ || rtcp != described_rtcp_) rtcp_ = rtcp;
  described_rtp_ = rtp;
  described_rtcp_ = rtcp;
  ExtendLearning(now);
}

void RemoteAddress::AllowLearning(TimePoint now) {
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
