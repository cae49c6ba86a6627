// What the library sees to in joins before a media server is asked, and what it passes on.
#include <string>

#include "library_fixture.h"

using namespace kelvaro::jsr309;
using namespace test_support;
using ::testing::IsEmpty;

namespace {

class Join : public LibraryTest {
 protected:
  void SetUp() override {
    Start();
    session_ = NewSession();
    a_ = NewConnection(session_);
    b_ = NewConnection(session_);
    c_ = NewConnection(session_);
  }

  static constexpr unsigned kA = 1, kB = 2;
  MediaSessionSharedPtr session_;
  NetworkConnectionSharedPtr a_, b_, c_;
};

class JoinDirection : public Join, public ::testing::WithParamInterface<Direction> {};

TEST_P(JoinDirection, IsPassedOnAsSeenFromTheCaller) {
  EXPECT_TRUE(a_->Join(GetParam(), b_));
  EXPECT_EQ(servers().JoinOf(kA, kB), GetParam());
}

std::string NameOfDirection(const ::testing::TestParamInfo<Direction>& info) {
  static const char* const kNames[] = {"Duplex", "Receive", "Send", "AudioNoVideo", "VideoNoAudio", "Disable"};
  return kNames[info.param];
}

INSTANTIATE_TEST_SUITE_P(All, JoinDirection,
                         ::testing::Values(kDuplex, kReceive, kSend, kAudioNoVideo, kVideoNoAudio, kDisable),
                         NameOfDirection);

TEST_F(Join, RefusesADirectionThatIsNone) {
  EXPECT_FALSE(a_->Join(static_cast<Direction>(6), b_));
  EXPECT_FALSE(a_->Join(static_cast<Direction>(-1), b_));
  EXPECT_THAT(servers().Calls(Operation::kJoin), IsEmpty());
}

TEST_F(Join, OfAJoinedPairChangesTheDirection) {
  ASSERT_TRUE(a_->Join(kDuplex, b_));
  ASSERT_TRUE(a_->Join(kReceive, b_));
  EXPECT_EQ(servers().JoinOf(kA, kB), kReceive);
  ASSERT_TRUE(b_->Join(kReceive, a_));
  EXPECT_EQ(servers().JoinOf(kA, kB), kSend);
  EXPECT_TRUE(a_->Unjoin(b_));
  EXPECT_FALSE(a_->Unjoin(b_));
}

TEST_F(Join, WithAThirdDissolvesTheFormer) {
  ASSERT_TRUE(a_->Join(kDuplex, b_));
  ASSERT_TRUE(c_->Join(kDuplex, a_));
  EXPECT_FALSE(a_->Unjoin(b_));
  EXPECT_TRUE(a_->Unjoin(c_));
}

TEST_F(Join, NeedsOneSession) {
  const auto elsewhere = NewSession();
  const auto stranger = NewConnection(elsewhere);
  EXPECT_FALSE(a_->Join(kDuplex, stranger));
  EXPECT_FALSE(a_->Unjoin(stranger));
  EXPECT_THAT(servers().Calls(Operation::kJoin), IsEmpty());
}

TEST_F(Join, WithItselfIsRefused) {
  EXPECT_FALSE(a_->Join(kDuplex, a_));
  const auto second_handle = Import(session_, a_);
  EXPECT_FALSE(a_->Join(kDuplex, second_handle));
}

TEST_F(Join, WithWhatIsGoneIsRefused) {
  JoinableWeakPtr gone = b_;
  b_.reset();
  EXPECT_FALSE(a_->Join(kDuplex, gone));
  EXPECT_FALSE(a_->Unjoin(gone));
  EXPECT_FALSE(a_->Join(kDuplex, JoinableWeakPtr()));
}

TEST_F(Join, WithAJoinableOfAnotherKindIsRefused) {
  class Stranger : public Joinable {
    bool Join(Direction, const JoinableWeakPtr&) override { return true; }
    bool Unjoin(const JoinableWeakPtr&) override { return true; }
  };
  const boost::shared_ptr<Joinable> stranger = boost::make_shared<Stranger>();
  EXPECT_FALSE(a_->Join(kDuplex, stranger));
}

TEST_F(Join, DoesNotKeepTheOther) {
  ASSERT_TRUE(a_->Join(kDuplex, b_));
  EXPECT_EQ(b_.use_count(), 1);
  b_.reset();
  EXPECT_EQ(servers().JoinOf(kA, kB), std::nullopt);
}

TEST_F(Join, ThatTheServerRefusesLeavesThePairUnjoined) {
  servers().Fail(Operation::kJoin);
  EXPECT_FALSE(a_->Join(kDuplex, b_));
  EXPECT_FALSE(a_->Unjoin(b_));
}

TEST_F(Join, OfNoPairIsNotUndone) {
  EXPECT_FALSE(a_->Unjoin(b_));
}

}  // namespace
