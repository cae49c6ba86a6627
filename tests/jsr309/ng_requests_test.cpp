#include "rtpengine/ng_requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kelvaro::jsr309::rtpengine {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Reply = NgRequests::Reply;

/// Requests whose datagram is their name, by a clock of the test's own.
class NgRequestsTest : public testing::Test {
 protected:
  using Names = std::vector<std::string>;

  uint64_t Add(const std::string& name, const std::string& call_id = "", milliseconds limit = milliseconds(10000)) {
    NgRequest request;
    request.number = ++last_;
    request.command = "offer";
    request.call_id = call_id;
    request.datagram = std::make_shared<const std::string>(name);
    request.limit = limit;
    request.done = [this, name](const NgResult& result) {
      ended_.push_back(name + (result.reply ? ": " + TextOf(*result.reply, "result") : ": " + result.error));
    };
    added_ = requests_.Add(request, now_, batch_);
    return last_;
  }
  Reply Answer(uint64_t number) { return requests_.TakeReply(number, {{"result", "ok"}}, now_, batch_); }
  void Pass(int ms) {
    now_ += milliseconds(ms);
    requests_.TakeTime(now_, batch_);
  }
  /// What was to be sent since the last look.
  Names Sent() {
    Names names;
    for (const auto& datagram : batch_.to_send) names.push_back(*datagram);
    batch_.to_send.clear();
    return names;
  }
  Names Ended() {
    for (auto& [done, result] : batch_.ended) done(result);
    batch_.ended.clear();
    return std::exchange(ended_, {});
  }
  /// Milliseconds until there is something to do.
  int Rest() const { return static_cast<int>((requests_.Next() - now_) / milliseconds(1)); }

  NgRequests requests_{"daemon"};
  NgTime now_{std::chrono::hours(1)};
  NgBatch batch_;
  bool added_ = false;

 private:
  uint64_t last_ = 0;
  Names ended_;
};

TEST_F(NgRequestsTest, SendsAgainAfterTwiceTheTimeEachTimeUpToABound) {
  Add("a", "", milliseconds(6000));
  EXPECT_THAT(Sent(), ElementsAre("a"));
  for (const int wait : {200, 400, 800, 1600, 1600}) {
    EXPECT_EQ(Rest(), wait);
    Pass(wait - 1);
    EXPECT_THAT(Sent(), IsEmpty());
    Pass(1);
    EXPECT_THAT(Sent(), ElementsAre("a"));
  }
  EXPECT_EQ(Rest(), 1400);  // its time is over then
  Pass(1400);
  EXPECT_THAT(Sent(), IsEmpty());
  EXPECT_THAT(Ended(), ElementsAre("a: daemon: no reply to \"offer\" within 6000 ms"));
  EXPECT_EQ(requests_.Next(), NgTime::max());
  EXPECT_EQ(requests_.sent(), 1u);
  EXPECT_EQ(requests_.repeated(), 5u);
  EXPECT_EQ(requests_.timeouts(), 1u);
}

TEST_F(NgRequestsTest, IsDoneWithARequestThatWasAnswered) {
  const uint64_t a = Add("a");
  Sent();
  EXPECT_EQ(Answer(a), Reply::kAwaited);
  EXPECT_THAT(Ended(), ElementsAre("a: ok"));
  EXPECT_EQ(requests_.Next(), NgTime::max());
  EXPECT_EQ(Answer(a), Reply::kDuplicate);
  EXPECT_THAT(Ended(), IsEmpty());
}

TEST_F(NgRequestsTest, TellsLateRepliesFromFurtherAndForeignOnes) {
  const uint64_t a = Add("a", "", milliseconds(100));
  Pass(100);
  EXPECT_EQ(Answer(a), Reply::kLate);
  EXPECT_EQ(Answer(a), Reply::kDuplicate);
  EXPECT_EQ(Answer(a + 1), Reply::kUnknown);
  EXPECT_EQ(Answer(0), Reply::kUnknown);
}

TEST_F(NgRequestsTest, HoldsARequestOfACallBackUntilTheOneBeforeItIsOver) {
  const uint64_t a = Add("a", "one");
  const uint64_t b = Add("b", "one", milliseconds(300));
  Add("c", "one");
  Add("x", "two");
  Add("y");
  Add("z");
  EXPECT_THAT(Sent(), ElementsAre("a", "x", "y", "z"));
  EXPECT_EQ(Answer(b), Reply::kUnknown);  // it was not even sent
  EXPECT_EQ(Answer(a), Reply::kAwaited);
  EXPECT_THAT(Sent(), ElementsAre("b"));
  Pass(100);
  EXPECT_THAT(Ended(), ElementsAre("a: ok"));
  Pass(200);
  EXPECT_THAT(Ended(), ElementsAre("b: daemon: no reply to \"offer\" of one within 300 ms"));
  EXPECT_EQ(Sent().front(), "c");
}

TEST_F(NgRequestsTest, LetsARequestLeaveTheMiddleOfItsLine) {
  const uint64_t a = Add("a", "one");
  const uint64_t b = Add("b", "one");
  Add("c", "one");
  EXPECT_EQ(requests_.Abandon(b, now_, batch_),
            "daemon: no reply to \"offer\" of one within 10000 ms, not sent for others before it");
  EXPECT_THAT(Sent(), ElementsAre("a"));
  Answer(a);
  EXPECT_THAT(Sent(), ElementsAre("c"));
  EXPECT_EQ(requests_.Abandon(b, now_, batch_), "");
  EXPECT_THAT(Ended(), ElementsAre("a: ok"));
}

TEST_F(NgRequestsTest, LeavesTheEndOfWhatIsAskedToWhoeverAsks) {
  NgRequest request;
  request.number = 1;
  request.command = "query";
  request.datagram = std::make_shared<const std::string>("a");
  request.limit = milliseconds(150);
  request.asked = true;
  ASSERT_TRUE(requests_.Add(request, now_, batch_));
  Pass(160);
  EXPECT_THAT(Ended(), IsEmpty());
  EXPECT_EQ(requests_.Abandon(1, now_, batch_), "daemon: no reply to \"query\" within 150 ms");
  EXPECT_EQ(requests_.Next(), NgTime::max());
}

TEST_F(NgRequestsTest, HandsTheLineOnWhenItsFirstIsAbandoned) {
  const uint64_t a = Add("a", "one");
  Add("b", "one");
  requests_.SetTrouble("nobody listens there");
  EXPECT_EQ(requests_.Abandon(a, now_, batch_),
            "daemon: no reply to \"offer\" of one within 10000 ms: nobody listens there");
  EXPECT_THAT(Sent(), ElementsAre("a", "b"));
  EXPECT_EQ(Answer(a), Reply::kLate);
}

TEST_F(NgRequestsTest, BoundsWhatIsUnderWayAndLetsRequestsOfNoCallPass) {
  std::vector<uint64_t> numbers;
  for (std::size_t i = 0; i < kNgUnderWay + 3; ++i) numbers.push_back(Add(std::to_string(i), std::to_string(i)));
  EXPECT_EQ(Sent().size(), kNgUnderWay);
  Add("ping");
  EXPECT_THAT(Sent(), ElementsAre("ping"));
  Answer(numbers[7]);
  EXPECT_THAT(Sent(), ElementsAre(std::to_string(kNgUnderWay)));
  requests_.Abandon(numbers[kNgUnderWay + 1], now_, batch_);
  EXPECT_THAT(Sent(), IsEmpty());
  requests_.Abandon(numbers[3], now_, batch_);
  EXPECT_THAT(Sent(), ElementsAre(std::to_string(kNgUnderWay + 2)));
}

TEST_F(NgRequestsTest, SendsEverythingInTheEndHoweverMuchWaits) {
  constexpr std::size_t kCalls = 500;
  for (std::size_t i = 0; i < kCalls; ++i) {
    Add("first", std::to_string(i));
    Add("second", std::to_string(i));
  }
  for (uint64_t number = 1; number <= 2 * kCalls; ++number) Answer(number);
  for (uint64_t number = 1; number <= 2 * kCalls; ++number) Answer(number);
  for (uint64_t number = 1; number <= 2 * kCalls; ++number) Answer(number);
  EXPECT_EQ(Sent().size(), 2 * kCalls);
  EXPECT_EQ(Ended().size(), 2 * kCalls);
  EXPECT_EQ(requests_.Next(), NgTime::max());
}

TEST_F(NgRequestsTest, RefusesWhatIsTooManyButAPing) {
  for (std::size_t i = 0; i < kNgMostRequests; ++i) Add("a", "one");
  EXPECT_TRUE(added_);
  Add("b", "one");
  EXPECT_FALSE(added_);
  Add("ping");
  EXPECT_TRUE(added_);
  EXPECT_THAT(Sent(), ElementsAre("a", "ping"));
}

TEST_F(NgRequestsTest, TellsEverybodyInOrderWhenAllEnd) {
  Add("a", "one");
  Add("b", "one");
  Add("c");
  requests_.EndAll("stopped", batch_);
  EXPECT_THAT(Ended(), ElementsAre("a: stopped", "b: stopped", "c: stopped"));
  EXPECT_EQ(requests_.Next(), NgTime::max());
}

TEST_F(NgRequestsTest, ForgetsTheTroubleWithTheNextReply) {
  const uint64_t a = Add("a");
  const uint64_t b = Add("b");
  requests_.SetTrouble("nobody listens there");
  Answer(a);
  EXPECT_EQ(requests_.Abandon(b, now_, batch_), "daemon: no reply to \"offer\" within 10000 ms");
}

}  // namespace
}  // namespace kelvaro::jsr309::rtpengine
