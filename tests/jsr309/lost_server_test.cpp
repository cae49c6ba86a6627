// What happens when a media server is lost, and when it comes back.
#include "library_fixture.h"

#include <boost/make_shared.hpp>

using namespace kelvaro::jsr309;
using namespace test_support;

namespace {

constexpr std::chrono::milliseconds kSoon{20};  // for what must not happen

struct WatchedSession {
  MediaSessionSharedPtr session;
  boost::shared_ptr<RecordingLostListener> listener;
};

class LostServer : public LibraryTest {
 protected:
  WatchedSession Watch(MediaSessionSharedPtr session) {
    WatchedSession watched{std::move(session), boost::make_shared<RecordingLostListener>()};
    EXPECT_TRUE(watched.session->AddListener(watched.listener));
    return watched;
  }

  // The event thread has dealt with everything posted before: RTP timeouts do not overtake one another.
  void WaitForEventThread(const NetworkConnectionSharedPtr& connection, unsigned endpoint) {
    const auto probe = boost::make_shared<RecordingRtpTimeoutListener>();
    ASSERT_TRUE(connection->AddListener(probe));
    ASSERT_TRUE(servers().FireRtpTimeout(endpoint));
    ASSERT_TRUE(probe->WaitForFinished(1));
  }
};

TEST_F(LostServer, IsToldToEachOfItsSessionsAndToNoOther) {
  Start(2);
  const auto on_first = Watch(NewSession());
  const auto on_second = Watch(NewSession());
  const auto on_first_too = Watch(NewSession());
  servers().Lose(0);
  EXPECT_TRUE(on_first.listener->WaitForFinished(1));
  clock().Advance(std::chrono::seconds(1));
  EXPECT_TRUE(on_first_too.listener->WaitForFinished(1));
  EXPECT_TRUE(on_second.listener->Events().empty());
}

TEST_F(LostServer, IsToldOnce) {
  Start();
  const auto watched = Watch(NewSession());
  servers().Lose();
  servers().Lose();
  servers().Return();
  servers().Lose();
  ASSERT_TRUE(watched.listener->WaitForEvents(1));
  EXPECT_FALSE(watched.listener->WaitForEvents(2, kSoon));
}

TEST_F(LostServer, IsToldToASessionThatOnlyCarriesAnEndpointOfIt) {
  Start(2);
  auto origin = NewSession();
  const auto moving = NewConnection(origin);
  const auto destination = Watch(NewSession());
  ASSERT_EQ(LastPlace(), 1u);
  const auto moved = Import(destination.session, moving);
  ASSERT_NE(moved, nullptr);
  servers().Lose(0);
  EXPECT_TRUE(destination.listener->WaitForEvents(1));
}

TEST_F(LostServer, IsNotToldToASessionThatAnEndpointOfItHasLeft) {
  Start(3);
  const auto origin = Watch(NewSession());  // on server 0
  const auto second = NewSession();         // on server 1
  const auto stray = NewConnection(second);
  const auto back = NewSession();  // on server 2
  ASSERT_NE(Import(origin.session, stray), nullptr);
  ASSERT_NE(Import(back, stray), nullptr);
  servers().Lose(1);
  EXPECT_FALSE(origin.listener->WaitForEvents(1, kSoon));
}

TEST_F(LostServer, EventsArePaced) {
  ScriptedOptions options;
  options.lost_events_per_second = 10;
  Start(options);
  std::vector<WatchedSession> watched;
  for (int i = 0; i < 4; ++i) watched.push_back(Watch(NewSession()));
  const auto told = [&] {
    size_t count = 0;
    for (const auto& one : watched) count += one.listener->Events().size();
    return count;
  };
  const auto wait_for = [&](size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (told() < count && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    std::this_thread::sleep_for(kSoon);  // for one too many
    return told();
  };
  servers().Lose();
  EXPECT_EQ(wait_for(1), 1u);
  clock().Advance(std::chrono::milliseconds(99));
  EXPECT_EQ(wait_for(1), 1u);
  clock().Advance(std::chrono::milliseconds(1));
  EXPECT_EQ(wait_for(2), 2u);
  clock().Advance(std::chrono::seconds(1));
  EXPECT_EQ(wait_for(3), 3u);  // time that went by without events is not made up for
  clock().Advance(std::chrono::milliseconds(100));
  EXPECT_EQ(wait_for(4), 4u);
}

TEST_F(LostServer, EventsDoNotHoldUpRtpTimeouts) {
  ScriptedOptions options;
  options.servers = 2;
  options.lost_events_per_second = 1;
  Start(options);
  const auto first = Watch(NewSession());
  const auto elsewhere = NewSession();
  const auto connection = NewConnection(elsewhere);
  std::vector<WatchedSession> more;
  for (int i = 0; i < 3; ++i) more.push_back(Watch(NewSession()));
  servers().Lose(0);
  ASSERT_TRUE(first.listener->WaitForFinished(1));
  WaitForEventThread(connection, 1);
}

TEST_F(LostServer, EventsAreNotSpentOnSessionsThatHaveEnded) {
  ScriptedOptions options;
  options.lost_events_per_second = 1;
  Start(options);
  const auto first = Watch(NewSession());
  auto second = Watch(NewSession());
  std::vector<WatchedSession> rest;
  for (int i = 0; i < 8; ++i) rest.push_back(Watch(NewSession()));
  const auto last = Watch(NewSession());
  servers().Lose();
  ASSERT_TRUE(first.listener->WaitForFinished(1));
  rest.clear();  // hung up meanwhile
  second.session.reset();
  clock().Advance(std::chrono::seconds(1));
  EXPECT_TRUE(last.listener->WaitForFinished(1));
}

TEST_F(LostServer, IsNotToldToADisabledListener) {
  Start(2);
  const auto watched = Watch(NewSession());
  const auto elsewhere = NewSession();
  const auto connection = NewConnection(elsewhere);
  watched.listener->DisableListener();
  servers().Lose(0);
  WaitForEventThread(connection, 1);
  EXPECT_FALSE(watched.listener->WaitForEvents(1, kSoon));
}

TEST_F(LostServer, ListenerIsKeptUntilItAsksToBeDeleted) {
  Start();
  const auto session = NewSession();
  for (const bool asks : {false, true}) {
    auto listener = boost::make_shared<RecordingLostListener>();
    listener->delete_listener = asks;
    ASSERT_TRUE(session->AddListener(listener));
  }
  const auto keeps = boost::make_shared<RecordingLostListener>();
  const auto goes = boost::make_shared<RecordingLostListener>();
  goes->delete_listener = true;
  session->AddListener(keeps);
  session->AddListener(goes);
  servers().Lose();
  ASSERT_TRUE(keeps->WaitForFinished(1));
  ASSERT_TRUE(goes->WaitForFinished(1));
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (goes.use_count() > 1 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  EXPECT_EQ(goes.use_count(), 1);
  EXPECT_FALSE(session->RemoveListener(goes));
  EXPECT_TRUE(session->RemoveListener(keeps));
}

TEST_F(LostServer, ListenerAddedTwiceIsToldOnce) {
  Start();
  const auto watched = Watch(NewSession());
  EXPECT_TRUE(watched.session->AddListener(watched.listener));
  servers().Lose();
  ASSERT_TRUE(watched.listener->WaitForEvents(1));
  EXPECT_FALSE(watched.listener->WaitForEvents(2, kSoon));
}

TEST_F(LostServer, IsNotToldToAListenerThatWasRemoved) {
  Start(2);
  const auto watched = Watch(NewSession());
  const auto elsewhere = NewSession();
  const auto connection = NewConnection(elsewhere);
  EXPECT_TRUE(watched.session->RemoveListener(watched.listener));
  servers().Lose(0);
  WaitForEventThread(connection, 1);
  EXPECT_FALSE(watched.listener->WaitForEvents(1, kSoon));
}

TEST_F(LostServer, TakesNoNewListenersOnItsSessions) {
  Start();
  const auto session = NewSession();
  const auto connection = NewConnection(session);
  servers().Lose();
  EXPECT_FALSE(session->AddListener(boost::make_shared<RecordingLostListener>()));
  EXPECT_FALSE(connection->AddListener(boost::make_shared<RecordingRtpTimeoutListener>()));
  servers().Return();
  EXPECT_FALSE(session->AddListener(boost::make_shared<RecordingLostListener>()));
}

TEST_F(LostServer, GetsNoNewSessionsUntilItIsBack) {
  Start(2);
  servers().Lose(0);
  EXPECT_NE(NewSession(), nullptr);
  EXPECT_EQ(LastPlace(), 1u);
  servers().Lose(1);
  EXPECT_FALSE(factory().IsMediaServerAvailable());
  EXPECT_EQ(NewSession(), nullptr);
  servers().Return(0);
  EXPECT_TRUE(factory().IsMediaServerAvailable());
  EXPECT_NE(NewSession(), nullptr);
  EXPECT_EQ(LastPlace(), 0u);
}

TEST_F(LostServer, StaysLostForSessionsThatWereOnItWhenItIsBack) {
  Start();
  const auto session = NewSession();
  const auto connection = NewConnection(session);
  servers().Lose();
  servers().Return();
  MediaConfig config;
  EXPECT_FALSE(connection->GetLocalOffer(config));
  EXPECT_EQ(session->CreateNetworkConnection(nullptr), nullptr);
  const auto fresh = NewSession();
  ASSERT_NE(fresh, nullptr);
  EXPECT_EQ(fresh->ImportNetworkConnection(connection), nullptr);
  EXPECT_NE(NewConnection(fresh), nullptr);
}

TEST_F(LostServer, IsNotAskedAnyMore) {
  Start();
  const auto session = NewSession();
  const auto a = NewConnection(session);
  const auto b = NewConnection(session);
  servers().Lose();
  servers().ForgetCalls();
  MediaConfig config;
  std::vector<RtcpStatsReport> reports;
  EXPECT_FALSE(a->GetLocalOffer(config));
  EXPECT_FALSE(a->Join(kDuplex, b));
  EXPECT_FALSE(a->GetRtcpStatsReport(reports));
  a->Close();
  EXPECT_THAT(servers().Operations(), ::testing::ElementsAre(Operation::kRelease));
}

TEST_F(LostServer, ThatIsLostWhileASessionIsMadeGivesNone) {
  ScriptedOptions options;
  options.request_timeout_ms = 60000;
  Start(options);
  servers().Hold(Operation::kCreateSession);
  MediaSessionSharedPtr session;
  std::thread asking([&] { session = NewSession(); });
  EXPECT_TRUE(servers().WaitForHeld(Operation::kCreateSession));
  servers().Lose();
  servers().Return();  // the server would answer, but the library knows that it was away
  servers().Resume(Operation::kCreateSession);
  asking.join();
  EXPECT_EQ(session, nullptr);
  EXPECT_EQ(servers().OpenSessions(), 0u);
  EXPECT_EQ(Stats().GetMediaSessionStats().GetCurrentMediaSessionCount(), 0u);
}

}  // namespace
