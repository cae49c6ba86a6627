// How a call changes from audio to an image stream and back, and what flows meanwhile.
#include "pass_through_fixture.h"

namespace media_engine_test {
namespace {

TEST_F(PassThrough, LeavesTheAudioAloneUntilTheOfferIsTaken) {
  JoinThem(a_, b_);
  EXPECT_TRUE(Talks(a_, b_));
  ASSERT_TRUE(Remote(a_, true, kOffer).ok);
  EXPECT_TRUE(Talks(a_, b_));
  ASSERT_TRUE(Local(b_, true, kOffer).ok);
  EXPECT_TRUE(Talks(a_, b_));
  EXPECT_TRUE(Talks(b_, a_));
  // B's far end declines, A's is told so; some time later B's far end offers fax itself and is declined.
  ASSERT_TRUE(Remote(b_, false, kAnswer).ok);
  ASSERT_TRUE(Local(a_, false, kAnswer).ok);
  EXPECT_FALSE(LocalImage(a_));
  ASSERT_TRUE(Remote(b_, true, kOffer).ok);
  EXPECT_TRUE(Talks(a_, b_));
  EXPECT_TRUE(Talks(b_, a_));
}

TEST_F(PassThrough, AnOfferFromAnotherPlaceDoesNotMoveTheAudio) {
  JoinThem(a_, b_);
  const FarEnd fax_port;
  RemoteDescription remote = RemoteImageOf(a_, kOffer);
  remote.rtp_port = fax_port.port();
  ASSERT_TRUE(a_.endpoint->DescribeRemote(remote, kLimit).ok);
  EXPECT_TRUE(Talks(b_, a_));
  EXPECT_TRUE(Talks(a_, b_));
}

TEST_F(PassThrough, AnOfferFromAnotherPlaceMovesARunningFaxOnlyOnceItIsAnswered) {
  ChangeToFax();
  EXPECT_TRUE(Relays(a_, b_, {1}));
  Leg moved = a_;
  moved.far_end = std::make_shared<FarEnd>();
  ASSERT_TRUE(a_.endpoint->DescribeRemote(RemoteImageOf(moved, kOffer), kLimit).ok);
  EXPECT_TRUE(Relays(a_, b_, {2}));
  EXPECT_TRUE(Relays(b_, a_, {3}));
  ExpectDropped(moved, b_, {4}, &EndpointStatistics::strangers);
  ASSERT_TRUE(Local(a_, true, kAnswer).ok);
  EXPECT_TRUE(Relays(moved, b_, {5}));
  EXPECT_TRUE(Relays(b_, moved, {6}));
  ExpectDropped(a_, b_, {7}, &EndpointStatistics::strangers);
}

TEST_F(PassThrough, AnOfferFromAnotherPlaceThatIsDeclinedLeavesTheRunningFaxAlone) {
  ChangeToFax();
  Leg moved = a_;
  moved.far_end = std::make_shared<FarEnd>();
  ASSERT_TRUE(a_.endpoint->DescribeRemote(RemoteImageOf(moved, kOffer), kLimit).ok);
  ASSERT_TRUE(Local(a_, false, kAnswer).ok);
  EXPECT_TRUE(Relays(a_, b_, {1}));
  EXPECT_TRUE(Relays(b_, a_, {2}));
}

TEST_F(PassThrough, ThePeersOwnAnswerMayComeLaterAndWithOtherPorts) {
  ASSERT_TRUE(Remote(a_, true, kOffer).ok);
  ASSERT_TRUE(Local(b_, true, kOffer).ok);
  ASSERT_TRUE(AnswerWithPeer(b_, PeerOf(a_)).ok);
  EXPECT_TRUE(Relays(a_, b_, {1}));
  LocalSettings answer = LocalFor(Pcmu());
  answer.udp_pass_through = answer.renew_ports = true;
  const uint16_t former = a_.local.rtp_port;
  ASSERT_TRUE(a_.endpoint->DescribeLocal(answer, a_.local, kLimit).ok);
  EXPECT_NE(a_.local.rtp_port, former);
  EXPECT_TRUE(Relays(a_, b_, {2}));
  EXPECT_TRUE(Relays(b_, a_, {3}));
}

TEST_F(PassThrough, MayBeginWithoutAnyAudioAndBindsThePortsThatItTells) {
  Leg a = NewLeg(*session_), b = NewLeg(*session_);
  ASSERT_TRUE(Remote(a, true, kOffer).ok);
  ASSERT_TRUE(Local(b, true, kOffer).ok);
  ASSERT_TRUE(LocalImage(a));
  const uint16_t told = LocalImage(a)->port;
  EXPECT_NE(told, 0);
  ASSERT_TRUE(AnswerWithPeer(b, PeerOf(a)).ok);
  ASSERT_TRUE(Local(a, true, kAnswer).ok);
  EXPECT_EQ(a.local.rtp_port, told);
  EXPECT_TRUE(Relays(a, b, {1, 2}));
  EXPECT_TRUE(Relays(b, a, {3, 4}));
}

TEST_F(PassThrough, EndsWhenOneIsBackToAudioWhichThenNeedsAJoin) {
  JoinThem(a_, b_);
  EXPECT_TRUE(Talks(a_, b_));
  ChangeToFax();
  EXPECT_TRUE(Relays(a_, b_, {1}));
  ASSERT_TRUE(Remote(a_, false, kOffer).ok);
  ASSERT_TRUE(Local(b_, false, kOffer).ok);
  EXPECT_TRUE(Relays(a_, b_, {2}));  // nobody has answered
  ASSERT_TRUE(Remote(b_, false, kAnswer).ok);
  ExpectDropped(a_, b_, {3}, &EndpointStatistics::not_joined);
  ASSERT_TRUE(Local(a_, false, kAnswer).ok);
  EXPECT_FALSE(LocalImage(a_));
  EXPECT_FALSE(RemoteImage(b_));
  ExpectDropped(a_, b_, Serialise({0, 1, 160, 3, false, PayloadOf(1)}), &EndpointStatistics::not_joined);
  JoinThem(a_, b_);
  EXPECT_TRUE(Talks(a_, b_));
  EXPECT_TRUE(Talks(b_, a_));
}

TEST_F(PassThrough, AJoinMayRunAheadOfTheLastAnswer) {
  ChangeToFax();
  ASSERT_TRUE(Remote(a_, false, kOffer).ok);
  ASSERT_TRUE(Local(b_, false, kOffer).ok);
  ASSERT_TRUE(Remote(b_, false, kAnswer).ok);
  JoinThem(a_, b_);
  ExpectDropped(b_, a_, Serialise({0, 1, 160, 3, false, PayloadOf(1)}), &EndpointStatistics::untranslatable);
  ExpectDropped(a_, b_, {1, 2, 3}, &EndpointStatistics::untranslatable);
  ASSERT_TRUE(Local(a_, false, kAnswer).ok);
  EXPECT_TRUE(Talks(a_, b_));
  EXPECT_TRUE(Talks(b_, a_));
}

TEST_F(PassThrough, AJoinOutlivesTheFaxThatItWasMadeBefore) {
  JoinThem(a_, b_);
  for (Leg* leg : {&a_, &b_}) {
    ASSERT_TRUE(Remote(*leg, true, kOffer).ok);
    ASSERT_TRUE(Local(*leg, true, kAnswer).ok);
  }
  EXPECT_TRUE(Relays(a_, b_, {1}));
  for (Leg* leg : {&a_, &b_}) {
    ASSERT_TRUE(Remote(*leg, false, kOffer).ok);
    ASSERT_TRUE(Local(*leg, false, kAnswer).ok);
  }
  EXPECT_TRUE(Talks(a_, b_));
}

TEST_F(PassThrough, SpeechGoesOnInItsNumbersAfterTheFax) {
  JoinThem(a_, b_);
  a_.SendRun(100, 1);
  const auto before = b_.far_end->ReceiveRtp();
  ChangeToFax();
  EXPECT_TRUE(Relays(a_, b_, {1}));
  for (Leg* leg : {&a_, &b_}) {
    ASSERT_TRUE(Remote(*leg, false, kOffer).ok);
    ASSERT_TRUE(Local(*leg, false, kAnswer).ok);
  }
  JoinThem(a_, b_);
  clock_->Advance(seconds{60});
  a_.SendRun(5000, 1, 0, 0x22222222);
  const auto after = b_.far_end->ReceiveRtp();
  ASSERT_TRUE(before && after);
  EXPECT_EQ(after->ssrc, before->ssrc);
  EXPECT_EQ(after->sequence_number, static_cast<uint16_t>(before->sequence_number + 1));
  EXPECT_EQ(after->timestamp - before->timestamp, 60u * 8000u);
}

TEST_F(PassThrough, ReachesAFarEndWhoseAudioWasFoundElsewhere) {
  const auto found = std::make_shared<FarEnd>();
  JoinThem(a_, b_);
  ASSERT_TRUE(a_.endpoint->DetectRemoteAddress(kLimit).ok);
  found->SendRtp({0, 1, 160, 3, false, PayloadOf(1)}, a_.local.rtp_port);
  ASSERT_TRUE(b_.far_end->ReceiveRtp());
  ChangeToFax();  // A's far end still says that it is where it is not
  Leg at_its_place = a_;
  at_its_place.far_end = found;
  EXPECT_TRUE(Relays(at_its_place, b_, {1, 2}));
  EXPECT_TRUE(Relays(b_, at_its_place, {3, 4}));
}

}  // namespace
}  // namespace media_engine_test
