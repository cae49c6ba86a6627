/// Keys by number, for the endpoint and for its far end, and legs whose far end speaks SRTP.
#pragma once

#include "engine_fixture.h"
#include "support/srtp_peer.h"

namespace media_engine_test {

using test_support::SrtpPeer;
using test_support::SrtpPeerKey;
using test_support::SrtpPeerKeys;

constexpr char kLongTagSuite[] = "AES_CM_128_HMAC_SHA1_80";
constexpr char kShortTagSuite[] = "AES_CM_128_HMAC_SHA1_32";

CryptoSettings KeysOf(uint8_t number, const char* suite = kLongTagSuite, const std::string& mki = "");
CryptoSettings NoKeys(bool mandatory = false);
SrtpPeerKeys PeerKeysOf(uint8_t number, const char* suite = kLongTagSuite, const Bytes& mki = {});

/// A leg and its far end's two directions: the far end sends under the one set of keys and receives under the other.
struct SecureLeg {
  Leg leg;
  std::shared_ptr<SrtpPeer> sends, receives;

  void Send(const Rtp& packet) const;
  void SendRun(uint16_t first, unsigned count) const;
  /// The packet in the clear; none when nothing came or when it is not authentic.
  std::optional<Rtp> Receive(std::chrono::milliseconds limit = kPatience) const;
};

class SrtpTest : public EngineTest {
 protected:
  void SetUp() override {
    server_ = Open(Config());
    session_ = NewSession(*server_);
  }
  /// Described on both sides; the endpoint has the keys of the first number, its far end those of the second.
  SecureLeg NewSecureLeg(uint8_t ours, uint8_t theirs, const char* suite = kLongTagSuite);
  static Outcome DescribeLocal(Leg& leg, const CryptoSettings& crypto, bool answer_follows = false);
  static Outcome DescribeRemote(const Leg& leg, const CryptoSettings& crypto);
  void JoinThem(const Leg& a, const Leg& b) { ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit)); }
  /// Whether what the one far end sends comes out at the other.
  static bool Flows(const SecureLeg& from, const SecureLeg& to, uint16_t number);
  static bool Flows(const Leg& from, const SecureLeg& to, uint16_t number);
  static bool Flows(const SecureLeg& from, const Leg& to, uint16_t number);

  std::unique_ptr<Server> server_;
  std::shared_ptr<Session> session_;
};

/// What a datagram says as RTP.
std::optional<Rtp> ParsePacket(const Bytes& data);

}  // namespace media_engine_test
