/// Legs whose far ends speak SRTP.
#pragma once

#include "contract_fixture.h"
#include "support/srtp_peer.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace test_support {

constexpr char kLongTag[] = "AES_CM_128_HMAC_SHA1_80";
constexpr char kShortTag[] = "AES_CM_128_HMAC_SHA1_32";

class SrtpContract : public ContractTest {
 protected:
  static void SetKeys(MediaConfig& config, std::uint8_t number, const char* suite = kLongTag, int exponent = 0,
                      const char* mki = nullptr) {
    const auto key = SrtpPeerKey(number);
    config.SetCrypto(suite, key.data(), static_cast<int>(key.size()), exponent, mki);
  }

  /// A leg and its far end's two directions.
  struct SecureLeg {
    Leg leg;
    std::shared_ptr<SrtpPeer> sends, receives;

    void Send(std::uint16_t number) const {
      const auto packet = sends->Rtp(serialise_rtp({false, 0, number, 160u * number, 0x12345678, Payload(number)}));
      if (!packet || !leg.far_end->SendTo(leg.target(), *packet)) throw std::runtime_error("cannot send");
    }
    std::vector<std::uint8_t> Receive() const {
      pollfd waiting{leg.far_end->Descriptor(), POLLIN, 0};
      if (poll(&waiting, 1, 5000) <= 0) return {};
      const auto datagram = leg.far_end->Receive();
      const auto clear = datagram ? receives->Rtp(datagram->data) : std::nullopt;
      const auto packet = clear ? parse_rtp(clear->data(), clear->size()) : std::nullopt;
      return packet ? packet->payload : std::vector<std::uint8_t>();
    }
  };

  /// Offers with the keys of the one number, is answered with those of the other.
  static SecureLeg NewSecureLeg(const SessionPtr& session, std::uint8_t ours, std::uint8_t theirs,
                                const char* suite = kLongTag) {
    SecureLeg secure;
    secure.leg.connection = NewConnection(session);
    AddCodec(secure.leg.local);
    SetKeys(secure.leg.local, ours, suite, 31, "");
    MediaConfig remote = RemoteOf(secure.leg);
    SetKeys(remote, theirs, suite, 31, "");
    if (!secure.leg.connection->GetLocalOffer(secure.leg.local)) throw std::runtime_error("no local offer");
    if (!secure.leg.connection->SetRemoteAnswer(remote)) throw std::runtime_error("no answer");
    const bool short_tag = suite == std::string(kShortTag);
    secure.sends = std::make_shared<SrtpPeer>(SrtpPeer::Way::kSends, SrtpPeerKeys{SrtpPeerKey(theirs), short_tag, {}});
    secure.receives =
        std::make_shared<SrtpPeer>(SrtpPeer::Way::kReceives, SrtpPeerKeys{SrtpPeerKey(ours), short_tag, {}});
    return secure;
  }

  /// Why the library refused the record; the message names no octet of the key.
  template <typename Request>
  std::string Refusal(Request request) {
    const auto before = logger().Messages(kelvaro::ERROR_LOG_LEVEL).size();
    EXPECT_FALSE(request());
    const auto messages = logger().Messages(kelvaro::ERROR_LOG_LEVEL);
    return messages.size() > before ? messages.back() : "";
  }
};

}  // namespace test_support
