/// The crypto of an endpoint without the endpoint: descriptions and packets go straight in.
#pragma once

#include <gmock/gmock.h>

#include "endpoint_crypto.h"
#include "srtp_fixture.h"

namespace media_engine_test {

using media_engine::EndpointCrypto;
using media_engine::kSrtpTrailerRoom;

inline TimePoint At(int ms) {
  return TimePoint(seconds{1000} + milliseconds{ms});
}

inline Bytes NumberedPacket(uint16_t number) {
  return Serialise({0, number, 160u * number, 0x11111111, false, PayloadOf(number)});
}

class CryptoTest : public testing::Test {
 protected:
  Outcome Local(const CryptoSettings& settings, bool answer_follows = false, bool new_port = false) {
    LocalSettings local;
    local.crypto = settings;
    local.answer_follows = answer_follows;
    return crypto_.DescribeLocal(local, new_port);
  }
  Outcome Remote(const CryptoSettings& settings, bool answer_follows = false) {
    RemoteDescription remote;
    remote.crypto = settings;
    remote.answer_follows = answer_follows;
    return crypto_.DescribeRemote(remote);
  }
  std::optional<Bytes> Sent(const Bytes& packet) {
    Bytes data = packet;
    data.resize(packet.size() + kSrtpTrailerRoom);
    std::size_t length = packet.size();
    if (!crypto_.ProtectRtp(data.data(), length)) return std::nullopt;
    data.resize(length);
    return data;
  }
  bool Takes(const std::optional<Bytes>& packet, const Bytes& clear, int now_ms = 0) {
    Bytes data = packet.value();
    std::size_t length = data.size();
    if (!crypto_.UnprotectRtp(data.data(), length, At(now_ms))) return false;
    data.resize(length);
    return data == clear;
  }
  /// Whether the far end gets the packet in the clear.
  bool Arrives(SrtpPeer& receives, uint16_t number) {
    const auto sent = Sent(NumberedPacket(number));
    return sent && receives.Rtp(*sent) == NumberedPacket(number);
  }
  bool Comes(SrtpPeer& sends, uint16_t number, int now_ms = 0) {
    return Takes(sends.Rtp(NumberedPacket(number)), NumberedPacket(number), now_ms);
  }
  EndpointStatistics Counted() const {
    EndpointStatistics statistics;
    crypto_.AddTo(statistics);
    return statistics;
  }

  std::vector<std::string> warnings_;
  EndpointCrypto crypto_{[this](const std::string& text) { warnings_.push_back(text); }};
};

}  // namespace media_engine_test
