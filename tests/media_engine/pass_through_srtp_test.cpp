// Fax on legs whose speech is protected: the fax is not, and the keys wait for the speech to come back.
#include "pass_through_fixture.h"
#include "srtp_fixture.h"

namespace media_engine_test {
namespace {

class FaxOfProtectedLegs : public PassThrough {
 protected:
  void SetUp() override {
    PassThrough::SetUp();
    Protect(a_, 1, 2);
    Protect(b_, 3, 4);
    a_sends_ = std::make_unique<SrtpPeer>(SrtpPeer::Way::kSends, PeerKeysOf(2));
    b_receives_ = std::make_unique<SrtpPeer>(SrtpPeer::Way::kReceives, PeerKeysOf(3));
    JoinThem(a_, b_);
  }
  static void Protect(Leg& leg, uint8_t ours, uint8_t theirs, bool mandatory = false) {
    LocalSettings local = LocalFor(Pcmu());
    local.crypto = KeysOf(ours);
    local.crypto.mandatory = mandatory;
    local.answer_follows = true;
    RemoteDescription remote = leg.far_end->Description(Pcmu());
    remote.crypto = KeysOf(theirs);
    ASSERT_TRUE(leg.endpoint->DescribeLocal(local, leg.local, kLimit).ok);
    ASSERT_TRUE(leg.endpoint->DescribeRemote(remote, kLimit).ok);
  }
  /// Protected speech from A's far end comes out at B's, protected with B's keys.
  bool TalksInSecret() {
    const Rtp sent{0, ++number_, 160u * number_, 7, false, PayloadOf(number_)};
    a_.far_end->Send(a_sends_->Rtp(Serialise(sent)).value(), a_.local.rtp_port);
    const auto came = b_.far_end->Receive();
    const auto clear = came ? b_receives_->Rtp(*came) : std::nullopt;
    const auto packet = clear ? ParsePacket(*clear) : std::nullopt;
    return packet && packet->payload == sent.payload && *came != *clear;
  }
  Bytes Clear() { return Serialise({0, ++number_, 160u * number_, 7, false, PayloadOf(number_)}); }

  std::unique_ptr<SrtpPeer> a_sends_, b_receives_;
};

TEST_F(FaxOfProtectedLegs, IsRelayedAsItIsAndTheSpeechAfterItIsProtectedAgain) {
  EXPECT_TRUE(TalksInSecret());
  for (int round = 0; round < 2; ++round) {
    ChangeToFax();
    for (const Bytes& data : {Bytes{}, Bytes{0, 1, 1, 6, 0, 0}, Clear(), PayloadOf(9, 2048)}) {
      EXPECT_TRUE(Relays(a_, b_, data)) << data.size();
      EXPECT_TRUE(Relays(b_, a_, data)) << data.size();
    }
    for (Leg* leg : {&a_, &b_}) {
      ASSERT_TRUE(Remote(*leg, false, kOffer).ok);
      ASSERT_TRUE(Local(*leg, false, kAnswer).ok);
    }
    JoinThem(a_, b_);
    ExpectDropped(a_, b_, Clear(), &EndpointStatistics::srtp_unauthentic);
    EXPECT_TRUE(TalksInSecret()) << round;
  }
}

TEST_F(FaxOfProtectedLegs, NewKeysForAPortThatTheFaxRenewedBeginWithoutRollovers) {
  // B's numbers wrap, so that its keys have counted a rollover.
  SrtpPeer a_receives(SrtpPeer::Way::kReceives, PeerKeysOf(1)), b_sends(SrtpPeer::Way::kSends, PeerKeysOf(4));
  const auto comes = [&](SrtpPeer& receives, uint16_t number) {
    const Rtp sent{0, number, 160u * number, 8, false, PayloadOf(number)};
    b_.far_end->Send(b_sends.Rtp(Serialise(sent)).value(), b_.local.rtp_port);
    const auto came = a_.far_end->Receive();
    const auto clear = came ? receives.Rtp(*came) : std::nullopt;
    const auto packet = clear ? ParsePacket(*clear) : std::nullopt;
    return packet && packet->payload == sent.payload;
  };
  uint16_t number = 0;
  // Our numbers begin below 32768.
  for (int packets = 0; packets < 66000; packets += 1000) {
    number = static_cast<uint16_t>(number + 1000);
    ASSERT_TRUE(comes(a_receives, number)) << packets;
  }
  ChangeToFax();
  LocalSettings renewed = LocalFor(Pcmu());
  renewed.udp_pass_through = renewed.renew_ports = true;
  ASSERT_TRUE(a_.endpoint->DescribeLocal(renewed, a_.local, kLimit).ok);
  ASSERT_TRUE(Local(b_, false, kAnswer).ok);
  ASSERT_TRUE(Remote(b_, false, kOffer).ok);
  Protect(a_, 5, 2);
  JoinThem(a_, b_);
  SrtpPeer a_receives_anew(SrtpPeer::Way::kReceives, PeerKeysOf(5));
  EXPECT_TRUE(comes(a_receives_anew, static_cast<uint16_t>(number + 1)));
}

TEST_F(FaxOfProtectedLegs, LeavesTheSpeechProtectedWhileItIsOnlyOffered) {
  RemoteDescription remote = RemoteImageOf(a_, kOffer);
  remote.crypto = NoKeys();
  ASSERT_TRUE(a_.endpoint->DescribeRemote(remote, kLimit).ok);
  LocalSettings local;
  local.udp_pass_through = local.answer_follows = true;
  local.crypto = NoKeys();
  ASSERT_TRUE(b_.endpoint->DescribeLocal(local, b_.local, kLimit).ok);
  ExpectDropped(a_, b_, Clear(), &EndpointStatistics::srtp_unauthentic);
  EXPECT_TRUE(TalksInSecret());
}

TEST_F(FaxOfProtectedLegs, IsRefusedOnceCryptoWasMandatoryWhicheverLegItIs) {
  ASSERT_TRUE(Remote(a_, true, kOffer).ok);
  const PassThroughPeer peer = PeerOf(a_);
  Protect(a_, 1, 2, true);
  const std::string reason = "crypto is mandatory and UDP pass-through relays packets as they are";
  EXPECT_EQ(Remote(a_, true, kOffer).reason, reason);
  EXPECT_EQ(Local(a_, true, kAnswer).reason, reason);
  ASSERT_TRUE(Local(b_, true, kOffer).ok);
  EXPECT_EQ(AnswerWithPeer(b_, peer).reason, reason);
  EXPECT_EQ(AnswerWithPeer(a_, PeerOf(b_)).reason, reason);
  EXPECT_TRUE(TalksInSecret());
}

TEST_F(FaxOfProtectedLegs, IsCutOffAtOnceByAnOfferThatMakesCryptoMandatory) {
  ChangeToFax();
  EXPECT_TRUE(Relays(a_, b_, {1}));
  LocalSettings offer = LocalFor(Pcmu());
  offer.crypto = KeysOf(1);
  offer.crypto.mandatory = offer.answer_follows = true;
  ASSERT_TRUE(a_.endpoint->DescribeLocal(offer, a_.local, kLimit).ok);
  ExpectDropped(a_, b_, {2}, &EndpointStatistics::srtp_missing);
  const uint64_t before = a_.Statistics().srtp_missing;
  b_.far_end->Send({3}, b_.local.rtp_port);
  EXPECT_TRUE(Eventually([&] { return a_.Statistics().srtp_missing == before + 1; }));
  EXPECT_FALSE(a_.far_end->Receive(milliseconds{0}));
}

TEST_F(FaxOfProtectedLegs, EndsAtADescriptionThatMakesCryptoMandatory) {
  ChangeToFax();
  EXPECT_TRUE(Relays(a_, b_, {1}));
  Protect(a_, 1, 2, true);
  ExpectDropped(a_, b_, {2}, &EndpointStatistics::srtp_unauthentic);
  ExpectDropped(b_, a_, {3}, &EndpointStatistics::not_joined);
}

}  // namespace
}  // namespace media_engine_test
