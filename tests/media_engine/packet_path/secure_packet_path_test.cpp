// The same of calls whose packets are protected: neither a cipher nor a tag costs a lock or an allocation.
#include "packet_path_fixture.h"
#include "srtp_fixture.h"

namespace media_engine_test {
namespace {

class SecurePacketPath : public PacketPath, public testing::WithParamInterface<std::string> {
 protected:
  /// The endpoint has the keys of the first number, its far end those of the second.
  SecureLeg MakeSecureLeg(uint8_t ours, uint8_t theirs) {
    const char* const suite = GetParam().c_str();
    LocalSettings settings;
    settings.crypto = KeysOf(ours, suite);
    SecureLeg secure;
    secure.leg = MakeLeg(Pcmu(), settings);
    RemoteDescription remote = secure.leg.far_end->Description(Pcmu(), 101);
    remote.crypto = KeysOf(theirs, suite);
    EXPECT_TRUE(secure.leg.endpoint->DescribeRemote(remote, kLimit).ok);
    secure.sends = std::make_shared<SrtpPeer>(SrtpPeer::Way::kSends, PeerKeysOf(theirs, suite));
    secure.receives = std::make_shared<SrtpPeer>(SrtpPeer::Way::kReceives, PeerKeysOf(ours, suite));
    return secure;
  }
  static void CarrySecurely(const SecureLeg& from, const SecureLeg& to, const Rtp& packet) {
    from.Send(packet);
    const auto came = to.Receive();
    ASSERT_TRUE(came) << packet.sequence_number;
    ASSERT_EQ(came->payload, packet.payload);
  }
};

TEST_P(SecurePacketPath, CarriesProtectedSpeechAndDigitsWithoutLocksAndAllocations) {
  const SecureLeg a = MakeSecureLeg(1, 2), b = MakeSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  const CountedCalls counted = Count([&](uint16_t number) {
    CarrySecurely(a, b, Speech(number, number % 10 == 0 ? 101 : 0));
    CarrySecurely(b, a, Speech(number));
  });
  ExpectNone(counted);
  EXPECT_GE(counted.sends, 2u * kCounted);
}

TEST_P(SecurePacketPath, CarriesBetweenALegWithKeysAndOneWithoutWithoutLocksAndAllocations) {
  const SecureLeg a = MakeSecureLeg(1, 2);
  const Leg b = MakeLeg(Pcma());
  JoinThem(a.leg, b);
  const CountedCalls counted = Count([&](uint16_t number) {
    a.Send(Speech(number));
    ASSERT_TRUE(b.far_end->ReceiveRtp());
    b.Send(Speech(number, 8));
    ASSERT_TRUE(a.Receive());
  });
  ExpectNone(counted);
}

TEST_P(SecurePacketPath, TakesAndSendsProtectedReportsWithoutLocksAndAllocations) {
  const SecureLeg a = MakeSecureLeg(1, 2), b = MakeSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  const Bytes report =
      SenderReportBytes(0x11111111, {1, 2, 3, 4}, {{5, 6, 7, 8, 9, 10, 11}}) + CnameBytes(0x11111111, "far end");
  unsigned reports = 0;
  const CountedCalls counted = Count([&](uint16_t number) {
    time_->Advance(milliseconds{480});
    a.leg.far_end->SendRtcp(a.sends->Rtcp(report).value(), a.leg.local.rtcp_port);
    CarrySecurely(a, b, Speech(number));
    while (const auto sent = b.leg.far_end->ReceiveRtcp(milliseconds{0})) {
      const auto clear = b.receives->Rtcp(*sent);
      ASSERT_TRUE(clear);
      ASSERT_TRUE(ReadRtcp(*clear));
      ++reports;
    }
  });
  ExpectNone(counted);
  EXPECT_GE(a.leg.Statistics().rtcp_packets_received, kCounted);
  EXPECT_GE(reports, kCounted / 20u);  // half a second each, ten seconds for a report at most
}

TEST_P(SecurePacketPath, RefusesWhatIsNotAuthenticWithoutLocksAndAllocations) {
  const SecureLeg a = MakeSecureLeg(1, 2), b = MakeSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  SrtpPeer forges(SrtpPeer::Way::kSends, PeerKeysOf(5, GetParam().c_str()));
  const CountedCalls counted = Count([&](uint16_t number) {
    const Bytes right = a.sends->Rtp(Serialise(Speech(number))).value();
    a.leg.far_end->Send(forges.Rtp(Serialise(Speech(number))).value(), a.leg.local.rtp_port);
    a.leg.far_end->Send(Bytes(right.begin(), right.end() - 1), a.leg.local.rtp_port);
    a.leg.Send(Speech(number));
    a.leg.far_end->SendRtcp(forges.Rtcp(ReceiverReportBytes(1)).value(), a.leg.local.rtcp_port);
    a.leg.far_end->Send(right, a.leg.local.rtp_port);
    a.leg.far_end->Send(right, a.leg.local.rtp_port);
    ASSERT_TRUE(b.Receive()) << number;
  });
  ExpectNone(counted);
  EXPECT_GE(a.leg.Statistics().srtp_unauthentic, 3u * (kWarmUp + kCounted));
  EXPECT_GE(a.leg.Statistics().srtp_replayed, 0u + kCounted);
}

TEST_P(SecurePacketPath, TakesSourcesThatChangeWithoutLocksAndAllocations) {
  const SecureLeg a = MakeSecureLeg(1, 2), b = MakeSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  const CountedCalls counted = Count([&](uint16_t number) {
    Rtp packet = Speech(number);
    packet.ssrc += static_cast<uint32_t>(number / 400);  // three of them
    a.Send(packet);
    ASSERT_TRUE(b.Receive()) << number;
  });
  ExpectNone(counted);
}

INSTANTIATE_TEST_SUITE_P(Suites, SecurePacketPath, testing::Values(kLongTagSuite, kShortTagSuite),
                         [](const testing::TestParamInfo<std::string>& info) { return info.param; });

}  // namespace
}  // namespace media_engine_test
