// When an image stream is in use, by what the two sides have described.
#include <gtest/gtest.h>

#include "image_stream.h"

namespace media_engine_test {
namespace {

using media_engine::ImageStream;
using media_engine::RemoteAddress;
using media_engine::SocketAddress;
using media_engine::TimePoint;

constexpr bool kImage = true, kAudio = false;

class ImageStreams : public testing::Test {
 protected:
  void LocalOffer(bool image) { stream_.DescribedLocally(image, true); }
  void LocalAnswer(bool image) { stream_.DescribedLocally(image, false); }
  void RemoteOffer(bool image) { stream_.DescribedRemotely(image, true); }
  void RemoteAnswer(bool image) { stream_.DescribedRemotely(image, false); }
  void BeInUse() {
    LocalOffer(kImage);
    RemoteAnswer(kImage);
    ASSERT_TRUE(stream_.in_use());
  }

  ImageStream stream_;
};

TEST_F(ImageStreams, AreInUseOnceBothSidesHaveDescribedThem) {
  EXPECT_FALSE(stream_.is_described());
  RemoteOffer(kImage);
  EXPECT_FALSE(stream_.in_use());
  EXPECT_TRUE(stream_.is_described());
  EXPECT_TRUE(stream_.is_changing());
  LocalAnswer(kImage);
  EXPECT_TRUE(stream_.in_use());
  EXPECT_FALSE(stream_.is_changing());
}

TEST_F(ImageStreams, AreInUseOnceOurOfferIsAnswered) {
  LocalOffer(kImage);
  EXPECT_FALSE(stream_.in_use());
  RemoteAnswer(kImage);
  EXPECT_TRUE(stream_.in_use());
}

TEST_F(ImageStreams, MayBeAnsweredBeforeTheOfferIsTold) {
  LocalAnswer(kImage);
  EXPECT_FALSE(stream_.in_use());
  RemoteOffer(kImage);
  EXPECT_TRUE(stream_.in_use());
}

TEST_F(ImageStreams, StayInUseUntilBothSidesHaveDescribedAudio) {
  BeInUse();
  RemoteOffer(kAudio);
  EXPECT_TRUE(stream_.in_use());
  LocalAnswer(kAudio);
  EXPECT_FALSE(stream_.in_use());
  EXPECT_FALSE(stream_.is_described());
}

TEST_F(ImageStreams, StayInUseWhenTheSameIsDescribedAgain) {
  BeInUse();
  RemoteOffer(kImage);
  LocalAnswer(kImage);
  EXPECT_TRUE(stream_.in_use());
}

TEST_F(ImageStreams, AreForgottenWhenTheAnswerDeclinesThem) {
  LocalOffer(kImage);
  RemoteAnswer(kAudio);
  EXPECT_FALSE(stream_.is_described());
  RemoteOffer(kImage);  // nor does what we once offered answer the far end's offer
  EXPECT_FALSE(stream_.in_use());
}

TEST_F(ImageStreams, AreForgottenWhenTheOtherSideOffersInsteadOfAnswering) {
  LocalOffer(kImage);
  RemoteOffer(kImage);  // ours was rejected, and now the far end wants it
  EXPECT_FALSE(stream_.in_use());
  LocalAnswer(kImage);
  EXPECT_TRUE(stream_.in_use());
}

TEST_F(ImageStreams, AreForgottenWhenWeOfferInsteadOfAnswering) {
  RemoteOffer(kImage);
  LocalOffer(kImage);
  EXPECT_FALSE(stream_.in_use());
  RemoteAnswer(kAudio);
  EXPECT_FALSE(stream_.is_described());
}

TEST_F(ImageStreams, StayInUseWhenAnOfferOfAudioIsRejected) {
  BeInUse();
  RemoteOffer(kAudio);
  LocalOffer(kAudio);  // the next one, from our side
  EXPECT_TRUE(stream_.in_use());
  RemoteAnswer(kAudio);
  EXPECT_FALSE(stream_.in_use());
}

TEST_F(ImageStreams, AreInUseAtOnceWhenAnotherLegMakesThemItsPeer) {
  RemoteOffer(kImage);
  stream_.Use();
  EXPECT_TRUE(stream_.in_use());
  LocalAnswer(kImage);
  EXPECT_TRUE(stream_.in_use());
  RemoteOffer(kAudio);
  LocalAnswer(kAudio);
  EXPECT_FALSE(stream_.in_use());
}

TEST_F(ImageStreams, KnowTheirFarEndOnlyWhileItDescribesOne) {
  const SocketAddress far_end = *SocketAddress::Parse("192.0.2.1", 4000);
  EXPECT_FALSE(stream_.CanSend());
  stream_.SetFarEnd(far_end);
  RemoteOffer(kImage);
  EXPECT_EQ(stream_.described_far_end(), far_end);
  EXPECT_TRUE(stream_.CanSend());
  LocalAnswer(kAudio);
  EXPECT_TRUE(stream_.described_far_end().empty());
}

TEST_F(ImageStreams, SendNothingToAPortOrAnAddressOfZero) {
  stream_.SetFarEnd(*SocketAddress::Parse("192.0.2.1", 0));
  EXPECT_FALSE(stream_.CanSend());
  stream_.SetFarEnd(*SocketAddress::Parse("0.0.0.0", 4000));
  EXPECT_FALSE(stream_.CanSend());
}

TEST_F(ImageStreams, FollowTheAudioToWhereItWasFoundWhenTheyAreSaidToBeAtOnePlace) {
  const SocketAddress said = *SocketAddress::Parse("10.0.0.1", 4000), found = *SocketAddress::Parse("192.0.2.1", 9);
  RemoteAddress audio;
  audio.Describe(said, said.WithPort(4001), TimePoint());
  audio.Learn(found, {});
  stream_.SetFarEnd(said);
  stream_.FollowAudio(audio);
  EXPECT_EQ(stream_.far_end(), found);
  stream_.SetFarEnd(said);  // the same again
  EXPECT_EQ(stream_.far_end(), found);
  const SocketAddress elsewhere = said.WithPort(4002);
  stream_.SetFarEnd(elsewhere);
  stream_.FollowAudio(audio);
  EXPECT_EQ(stream_.far_end(), elsewhere);
}

class OfferedFarEnd : public ImageStreams {
 protected:
  void SetUp() override {
    stream_.SetFarEnd(former_);
    BeInUse();
  }
  void OfferFrom(const SocketAddress& place) {
    stream_.OfferFarEnd(place);
    RemoteOffer(kImage);
  }
  const SocketAddress former_ = *SocketAddress::Parse("192.0.2.1", 4000), offered_ = former_.WithPort(4002);
};

TEST_F(OfferedFarEnd, IsTheFarEndOnceTheOfferIsAnswered) {
  OfferFrom(offered_);
  EXPECT_EQ(stream_.far_end(), former_);
  EXPECT_EQ(stream_.described_far_end(), offered_);  // what the far end said
  LocalAnswer(kImage);
  EXPECT_EQ(stream_.far_end(), offered_);
  EXPECT_EQ(stream_.described_far_end(), offered_);
}

TEST_F(OfferedFarEnd, LapsesWhenTheAnswerDeclinesItOrAnotherOfferComes) {
  OfferFrom(offered_);
  LocalAnswer(kAudio);
  EXPECT_EQ(stream_.far_end(), former_);
  EXPECT_EQ(stream_.described_far_end(), former_);
  OfferFrom(offered_);
  LocalOffer(kImage);  // ours, instead of an answer
  RemoteAnswer(kImage);
  EXPECT_EQ(stream_.far_end(), former_);
  OfferFrom(offered_);
  RemoteOffer(kAudio);  // it thought better of it
  LocalAnswer(kAudio);
  EXPECT_EQ(stream_.far_end(), former_);
}

TEST_F(OfferedFarEnd, OfTheLastOfSeveralOffersCounts) {
  OfferFrom(offered_);
  OfferFrom(former_.WithPort(4004));
  LocalAnswer(kImage);
  EXPECT_EQ(stream_.far_end(), former_.WithPort(4004));
}

TEST_F(OfferedFarEnd, MayBeAnsweredBeforeItIsTold) {
  LocalAnswer(kImage);
  OfferFrom(offered_);
  EXPECT_EQ(stream_.far_end(), offered_);
  OfferFrom(former_);  // which was not
  EXPECT_EQ(stream_.far_end(), offered_);
}

TEST_F(OfferedFarEnd, IsNotAnsweredByTheAnswerToTheOneBeforeThatIsGivenTwice) {
  OfferFrom(offered_);
  LocalAnswer(kImage);
  LocalAnswer(kImage);  // as in a provisional response and in the final one
  LocalAnswer(kImage);
  OfferFrom(former_.WithPort(4004));
  EXPECT_EQ(stream_.far_end(), offered_);
  LocalAnswer(kImage);
  EXPECT_EQ(stream_.far_end(), former_.WithPort(4004));
}

TEST_F(OfferedFarEnd, MayBeAnsweredAheadBehindAnOfferOfOurs) {
  OfferFrom(offered_);
  LocalAnswer(kImage);
  LocalOffer(kImage);
  stream_.SetFarEnd(offered_);
  RemoteAnswer(kImage);
  LocalAnswer(kImage);
  OfferFrom(former_);
  EXPECT_EQ(stream_.far_end(), former_);
}

TEST_F(OfferedFarEnd, IsTheFarEndAtOnceInAnAnswerAndByTheOtherLegsWord) {
  LocalOffer(kImage);
  stream_.SetFarEnd(offered_);
  RemoteAnswer(kImage);
  EXPECT_EQ(stream_.far_end(), offered_);
  OfferFrom(former_);
  stream_.SetFarEnd(former_);
  EXPECT_EQ(stream_.far_end(), former_);
  LocalAnswer(kImage);
  EXPECT_EQ(stream_.far_end(), former_);
}

}  // namespace
}  // namespace media_engine_test
