// The same packets through ours and through libsrtp2, the reference: octet for octet and verdict for verdict, with all
// that a network and a far end may do to them.
#include <map>
#include <random>

#include "srtp_transform_fixture.h"

namespace media_engine_test {
namespace {

using media_engine::SrtpTransform;

class SrtpReference : public testing::TestWithParam<SrtpCase> {
 protected:
  std::size_t Below(std::size_t bound) { return random_() % bound; }

  /// Of any legal shape: contributing sources, an extension, a payload of any length, none included.
  Bytes AnyRtp(uint16_t number, uint32_t ssrc) {
    Bytes packet = RtpPacket(number, 0, ssrc);
    const std::size_t sources = Below(4) == 0 ? Below(16) : 0, words = Below(5);
    packet[0] |= static_cast<uint8_t>(sources);
    packet.insert(packet.end(), 4 * sources, 0xcc);
    if (Below(4) == 0) {
      packet[0] |= 0x10;
      packet.insert(packet.end(), {0xbe, 0xde, 0, static_cast<uint8_t>(words)});
      packet.insert(packet.end(), 4 * words, 0xee);
    }
    for (std::size_t left = Below(4) == 0 ? Below(1200) : 160; left > 0; --left) {
      packet.push_back(static_cast<uint8_t>(random_()));
    }
    return packet;
  }
  Bytes AnyRtcp(uint32_t ssrc) {
    Bytes packet = RtcpPacket(ssrc);
    packet.resize(8 + 4 * Below(100), 0x99);
    return packet;
  }
  static CryptoSettings Keys(uint8_t number) { return KeysOf(number, GetParam().suite, GetParam().mki_text); }
  static SrtpPeer Peer(SrtpPeer::Way way, uint8_t number) {
    return SrtpPeer(way, PeerKeysOf(number, GetParam().suite, GetParam().mki));
  }

  std::mt19937 random_{20261121};  // the same packets in every run
};

TEST_P(SrtpReference, SendsWhatTheReferenceSends) {
  const auto out = Make(SrtpDirection::kOutgoing, Keys(1));
  SrtpPeer peer = Peer(SrtpPeer::Way::kSends, 1);
  std::map<uint32_t, uint16_t> numbers{{0x11111111, 65000}, {0x22222222, 3}, {0xfedcba98, 32767}};
  for (int i = 0; i < 3000; ++i) {
    auto source = std::next(numbers.begin(), static_cast<std::ptrdiff_t>(Below(3)));
    // Forwards by little, now and then by much, and back again.
    source->second = static_cast<uint16_t>(source->second + (Below(50) == 0 ? Below(20000) : Below(5)) - Below(3));
    const bool rtp = Below(5) != 0;
    const Bytes clear = rtp ? AnyRtp(source->second, source->first) : AnyRtcp(source->first);
    const auto expected = rtp ? peer.Rtp(clear) : peer.Rtcp(clear);
    const AppliedPacket sent = Protected(*out, rtp ? Protocol::kRtp : Protocol::kRtcp, clear);
    ASSERT_EQ(sent.verdict, expected ? SrtpVerdict::kDone : SrtpVerdict::kReplayed) << i;
    ASSERT_EQ(sent.packet, expected.value_or(clear)) << i;
  }
}

/// What a network makes of packets: some are lost, some come twice, some late, some altered.
TEST_P(SrtpReference, TakesAndRefusesWhatTheReferenceDoes) {
  const auto in = Make(SrtpDirection::kIncoming, Keys(2));
  SrtpPeer sends = Peer(SrtpPeer::Way::kSends, 2), receives = Peer(SrtpPeer::Way::kReceives, 2);
  SrtpPeer receives_rtcp = RtcpReceiver(2, GetParam().mki);
  std::vector<std::pair<bool, Bytes>> on_the_way;
  std::map<uint32_t, uint16_t> numbers{{0x11111111, 65400}, {0x22222222, 1}};
  unsigned taken = 0, refused = 0;
  for (int i = 0; i < 5000; ++i) {
    auto source = std::next(numbers.begin(), static_cast<std::ptrdiff_t>(Below(2)));
    source->second = static_cast<uint16_t>(source->second + (Below(200) == 0 ? Below(3000) : 1));
    const bool rtp = Below(5) != 0;
    const Bytes clear = rtp ? AnyRtp(source->second, source->first) : AnyRtcp(source->first);
    on_the_way.emplace_back(rtp, (rtp ? sends.Rtp(clear) : sends.Rtcp(clear)).value());
    if (on_the_way.size() < 30) continue;
    const std::size_t which = Below(Below(10) == 0 ? 30 : 5);
    auto [is_rtp, packet] = on_the_way[which];
    if (Below(10) != 0) on_the_way.erase(on_the_way.begin() + static_cast<std::ptrdiff_t>(which));
    if (Below(20) == 0) packet[Below(packet.size())] ^= static_cast<uint8_t>(1 + Below(255));
    const auto expected = is_rtp ? receives.Rtp(packet) : receives_rtcp.Rtcp(packet);
    const AppliedPacket came = Apply(*in, is_rtp ? Protocol::kRtp : Protocol::kRtcp, packet);
    ASSERT_EQ(came.verdict == SrtpVerdict::kDone, expected.has_value()) << i;
    ASSERT_EQ(came.packet, expected.value_or(packet)) << i;
    ++(expected ? taken : refused);
  }
  EXPECT_GT(taken, 3000u);
  EXPECT_GT(refused, 300u);
}

TEST_P(SrtpReference, PacketsOutOfOrderAroundAWrapAreTakenOnceBothWays) {
  const auto in = Make(SrtpDirection::kIncoming, Keys(1)), out = Make(SrtpDirection::kOutgoing, Keys(2));
  SrtpPeer sends = Peer(SrtpPeer::Way::kSends, 1), receives = Peer(SrtpPeer::Way::kReceives, 2);
  for (uint16_t base : {65500, 1000, 30000, 60000, 65500}) {  // wraps between the first two and at the end
    for (int block = 0; block < 20; ++block, base = static_cast<uint16_t>(base + 16)) {
      std::vector<Bytes> clear, sealed;
      for (uint16_t i = 0; i < 16; ++i) {
        clear.push_back(AnyRtp(static_cast<uint16_t>(base + i), 0x11111111));
        sealed.push_back(sends.Rtp(clear.back()).value());
      }
      for (std::size_t i = 16; i-- > 0;) {  // backwards
        ASSERT_EQ(Apply(*in, Protocol::kRtp, sealed[i]).packet, clear[i]);
        ASSERT_EQ(receives.Rtp(Protected(*out, Protocol::kRtp, clear[i]).packet), clear[i]);
      }
      for (const Bytes& again : sealed) ASSERT_EQ(Apply(*in, Protocol::kRtp, again).verdict, SrtpVerdict::kReplayed);
      for (const Bytes& again : clear) {
        ASSERT_EQ(Protected(*out, Protocol::kRtp, again).verdict, SrtpVerdict::kReplayed);
      }
    }
  }
  EXPECT_EQ(in->LatestPosition().rollovers, 2u);
  EXPECT_EQ(out->LatestPosition().rollovers, 2u);
}

TEST_P(SrtpReference, GoesOnWhereOtherKeysStoppedAsTheReferenceDoes) {
  for (const uint32_t rollovers : {1u, 70000u, 0xfffffffeu}) {
    const auto in = Make(SrtpDirection::kIncoming, Keys(1)), out = Make(SrtpDirection::kOutgoing, Keys(2));
    SrtpPeer sends = Peer(SrtpPeer::Way::kSends, 1), receives = Peer(SrtpPeer::Way::kReceives, 2);
    in->ContinueAt({0x11111111, rollovers, {}});
    out->ContinueAt({0x11111111, rollovers, {}});
    sends.ContinueAt(0x11111111, rollovers);
    receives.ContinueAt(0x11111111, rollovers);
    for (const uint16_t number : {65530, 65534, 1, 65535, 2}) {
      const Bytes clear = AnyRtp(number, 0x11111111);
      EXPECT_EQ(Apply(*in, Protocol::kRtp, sends.Rtp(clear).value()).packet, clear) << rollovers;
      EXPECT_EQ(receives.Rtp(Protected(*out, Protocol::kRtp, clear).packet), clear) << rollovers;
    }
    EXPECT_EQ(in->LatestPosition().rollovers, rollovers + 1);
  }
}

std::string NameOf(const testing::TestParamInfo<SrtpCase>& info) {
  return testing::PrintToString(info.param);
}
INSTANTIATE_TEST_SUITE_P(Suites, SrtpReference, testing::ValuesIn(kSrtpCases), NameOf);

}  // namespace
}  // namespace media_engine_test
