#include "sip/session_timer.h"

#include <gtest/gtest.h>

namespace kvx_switch {
namespace {

using std::chrono::seconds;
using Said = SessionTimerHeaders::Refresher;
using Refresher = SessionTimer::Refresher;

SessionTimerHeaders Headers(std::optional<uint32_t> expires, Said refresher, bool supported,
                            std::optional<uint32_t> least = std::nullopt) {
  return {expires, refresher, least, supported};
}

TEST(SessionTimer, ARequestAsksForTheProfilesInterval) {
  SessionTimer timer({true, 1800, 120});
  EXPECT_EQ(timer.RequestExpires(), "1800");
  EXPECT_EQ(timer.RequestLeast(), "120");
  EXPECT_EQ(SessionTimer({true, 1800, 90}).RequestLeast(), "") << "what holds anyway is not said";
  EXPECT_EQ(SessionTimer({true, 60, 120}).RequestExpires(), "120") << "never less than we would take";
}

TEST(SessionTimer, TheAnswerSaysWhoRefreshes) {
  SessionTimer timer({true, 1800, 90});
  timer.OnAnswered(Headers(600, Said::kUas, true));
  EXPECT_EQ(timer.refresher(), Refresher::kThem);
  EXPECT_EQ(timer.Patience(), seconds(600 - 32)) << "then the call ends";
  timer.OnAnswered(Headers(600, Said::kUac, true));
  EXPECT_EQ(timer.refresher(), Refresher::kUs);
  EXPECT_EQ(timer.Patience(), seconds(240));
  EXPECT_EQ(timer.RequestExpires(), "600;refresher=uac");
}

TEST(SessionTimer, AFarEndWithoutTimersIsRefreshedByUs) {
  SessionTimer timer({true, 1800, 90});
  timer.OnAnswered({});
  EXPECT_EQ(timer.refresher(), Refresher::kUs);
  EXPECT_EQ(timer.Patience(), seconds(720));
  SessionTimer answering({true, 1800, 90});
  EXPECT_TRUE(answering.OnRequest({}));
  EXPECT_EQ(answering.AnswerExpires(), "1800;refresher=uas");
  EXPECT_FALSE(answering.AnswerRequires()) << "who does not know the word would refuse it";
}

TEST(SessionTimer, ARequestsIntervalAndRefresherHold) {
  SessionTimer timer({true, 1800, 90});
  EXPECT_TRUE(timer.OnRequest(Headers(300, Said::kUnsaid, true)));
  EXPECT_EQ(timer.AnswerExpires(), "300;refresher=uac");
  EXPECT_TRUE(timer.AnswerRequires());
  EXPECT_TRUE(timer.OnRequest(Headers(300, Said::kUas, true)));
  EXPECT_EQ(timer.AnswerExpires(), "300;refresher=uas");
  EXPECT_EQ(timer.refresher(), Refresher::kUs);
  EXPECT_EQ(timer.RequestExpires(), "300;refresher=uac") << "our part keeps, the role changes with who asks";
  EXPECT_TRUE(timer.OnRequest(Headers(std::nullopt, Said::kUnsaid, true, 2400)));
  EXPECT_EQ(timer.AnswerExpires(), "2400;refresher=uac") << "no shorter than the request's Min-SE";
}

TEST(SessionTimer, AnIntervalThatIsTooSmallIsRefusedFromWhoUnderstandsIt) {
  SessionTimer timer({true, 1800, 120});
  EXPECT_FALSE(timer.OnRequest(Headers(119, Said::kUnsaid, true)));
  EXPECT_EQ(timer.LeastValue(), "120");
  EXPECT_TRUE(timer.OnRequest(Headers(60, Said::kUnsaid, false)));
  EXPECT_EQ(timer.AnswerExpires(), "120;refresher=uas");
}

TEST(SessionTimer, ARefusalRaisesTheIntervalOnce) {
  SessionTimer timer({true, 300, 90});
  EXPECT_TRUE(timer.OnTooSmall(Headers(std::nullopt, Said::kUnsaid, true, 600)));
  EXPECT_EQ(timer.RequestExpires(), "600");
  EXPECT_EQ(timer.RequestLeast(), "600");
  EXPECT_FALSE(timer.OnTooSmall(Headers(std::nullopt, Said::kUnsaid, true, 600))) << "it has what it asked for";
  EXPECT_FALSE(timer.OnTooSmall({}));
}

TEST(SessionTimer, ShortIntervalsEndAThirdEarlier) {
  SessionTimer timer({true, 1800, 1});
  timer.OnAnswered(Headers(90, Said::kUas, true));
  EXPECT_EQ(timer.EndAfter(), seconds(60));
  timer.OnAnswered(Headers(96, Said::kUas, true));
  EXPECT_EQ(timer.EndAfter(), seconds(64));
  timer.OnAnswered(Headers(1, Said::kUas, true));
  EXPECT_EQ(timer.EndAfter(), seconds(1)) << "never at once";
}

TEST(SessionTimer, SwitchedOffItSaysAndDoesNothing) {
  SessionTimer timer({false, 1800, 120});
  EXPECT_TRUE(timer.OnRequest(Headers(10, Said::kUac, true)));
  timer.OnAnswered(Headers(10, Said::kUas, true));
  EXPECT_EQ(timer.refresher(), Refresher::kNobody);
  EXPECT_EQ(timer.AnswerExpires(), "");
}

}  // namespace
}  // namespace kvx_switch
