#include "remote_address.h"

namespace media_engine {

void RemoteAddress::Describe(const SocketAddress& rtp, const SocketAddress& rtcp, TimePoint now) {
  if (rtp != described_rtp_) rtp_ = rtp;
  if (rtp != described_rtp_ || rtcp != described_rtcp_) rtcp_ = rtcp;
  described_rtp_ = rtp;
  described_rtcp_ = rtcp;
  if (learning_) learning_since_ = now;
}

void RemoteAddress::AllowLearning(TimePoint now) {
  learning_ = true;
  learning_since_ = now;
}

void RemoteAddress::ExtendLearning(TimePoint now) {
  if (learning_) learning_since_ = now;
}

void RemoteAddress::Learn(const SocketAddress& from) {
  rtp_ = from;
  rtcp_ = from.WithPort(static_cast<uint16_t>(from.port() + 1));
  learning_ = false;
}

}  // namespace media_engine
