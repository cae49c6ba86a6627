// On which thread, when and for how long listeners are called.
#include "library_fixture.h"

#include <future>

using namespace kelvaro::jsr309;
using namespace test_support;

namespace {

// Keeps a handler inside OnEvent until the test lets it go. Handlers get a copy: they may outlast the test's body.
class Gate {
 public:
  void Pass() const { opened_.wait_for(kPatience); }
  void Open() { open_->set_value(); }

 private:
  std::shared_ptr<std::promise<void>> open_ = std::make_shared<std::promise<void>>();
  std::shared_future<void> opened_ = open_->get_future().share();
};

class Listeners : public LibraryTest {
 protected:
  void SetUp() override {
    Start();
    session_ = NewSession();
    connection_ = NewConnection(session_);
  }

  boost::shared_ptr<RecordingRtpTimeoutListener> listener_ = boost::make_shared<RecordingRtpTimeoutListener>();
  boost::shared_ptr<RecordingRtpTimeoutListener> other_listener_ = boost::make_shared<RecordingRtpTimeoutListener>();
  MediaSessionSharedPtr session_;
  NetworkConnectionSharedPtr connection_;
};

TEST_F(Listeners, AreCalledOnTheEventThread) {
  const auto second = NewConnection(session_);
  connection_->AddListener(listener_);
  second->AddListener(other_listener_);
  servers().FireRtpTimeout(1);
  servers().FireRtpTimeout(2);
  ASSERT_TRUE(listener_->WaitForEvents(1));
  ASSERT_TRUE(other_listener_->WaitForEvents(1));
  EXPECT_NE(listener_->Thread(), std::this_thread::get_id());
  EXPECT_EQ(listener_->Thread(), other_listener_->Thread());
}

TEST_F(Listeners, LearnWhichSilenceItWasAndWhose) {
  const auto second = NewConnection(session_);
  connection_->AddListener(listener_);
  second->AddListener(other_listener_);
  servers().FireRtpTimeout(1, true);
  servers().FireRtpTimeout(2, false);
  ASSERT_TRUE(listener_->WaitForEvents(1));
  ASSERT_TRUE(other_listener_->WaitForEvents(1));
  EXPECT_TRUE(listener_->Events()[0].active_);
  EXPECT_FALSE(other_listener_->Events()[0].active_);
  EXPECT_NE(listener_->Events()[0].uuid_, other_listener_->Events()[0].uuid_);
}

TEST_F(Listeners, GetOneEventAtATime) {
  Gate gate;
  listener_->during_event = [gate] { gate.Pass(); };
  connection_->AddListener(listener_);
  servers().FireRtpTimeout(1);
  servers().FireRtpTimeout(1);
  ASSERT_TRUE(listener_->WaitForEvents(1));
  EXPECT_FALSE(listener_->WaitForEvents(2, std::chrono::milliseconds(20)));
  gate.Open();
  EXPECT_TRUE(listener_->WaitForEvents(2));
}

TEST_F(Listeners, MayCallTheLibraryBack) {
  std::promise<bool> result;
  listener_->during_event = [&] {
    MediaConfig config;
    const auto session = NewSession();
    const bool made = session != nullptr && NewConnection(session) != nullptr;
    const bool described = connection_->GetLocalOffer(config) && connection_->RemoveListener();
    connection_->Close();
    session_.reset();
    result.set_value(made && described && factory().IsMediaServerAvailable());
  };
  connection_->AddListener(listener_);
  servers().FireRtpTimeout(1);
  auto future = result.get_future();
  ASSERT_EQ(future.wait_for(kPatience), std::future_status::ready);
  EXPECT_TRUE(future.get());
  ASSERT_TRUE(listener_->WaitForFinished(1));
}

TEST_F(Listeners, AreNotCalledAnyMoreOnceRemoved) {
  connection_->AddListener(listener_);
  EXPECT_TRUE(connection_->RemoveListener());
  servers().FireRtpTimeout(1);
  const auto second = NewConnection(session_);
  second->AddListener(other_listener_);
  servers().FireRtpTimeout(2);
  ASSERT_TRUE(other_listener_->WaitForEvents(1));  // the event before has been dealt with by now
  EXPECT_TRUE(listener_->Events().empty());
}

TEST_F(Listeners, AreNotCalledForEventsThatWaitedWhenTheyWereRemoved) {
  Gate gate;
  listener_->during_event = [gate] { gate.Pass(); };
  connection_->AddListener(listener_);
  servers().FireRtpTimeout(1);
  ASSERT_TRUE(listener_->WaitForEvents(1));
  servers().FireRtpTimeout(1);
  EXPECT_TRUE(connection_->RemoveListener());  // returns, although the handler has not
  gate.Open();
  const auto second = NewConnection(session_);
  second->AddListener(other_listener_);
  servers().FireRtpTimeout(2);
  ASSERT_TRUE(other_listener_->WaitForEvents(1));
  EXPECT_EQ(listener_->Events().size(), 1u);
}

TEST_F(Listeners, AreKeptAliveWhileTheirHandlerRuns) {
  Gate gate;
  listener_->during_event = [gate] { gate.Pass(); };
  connection_->AddListener(listener_);
  servers().FireRtpTimeout(1);
  ASSERT_TRUE(listener_->WaitForEvents(1));
  const boost::weak_ptr<RecordingRtpTimeoutListener> watched = listener_;
  listener_.reset();
  connection_->RemoveListener();
  EXPECT_FALSE(watched.expired());
  gate.Open();
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!watched.expired() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  EXPECT_TRUE(watched.expired());
}

TEST_F(Listeners, AreNotCalledWhileDisabled) {
  connection_->AddListener(listener_);
  listener_->DisableListener();
  servers().FireRtpTimeout(1);
  const auto second = NewConnection(session_);
  second->AddListener(other_listener_);
  servers().FireRtpTimeout(2);
  ASSERT_TRUE(other_listener_->WaitForEvents(1));
  EXPECT_TRUE(listener_->Events().empty());
  listener_->EnableListener();
  servers().FireRtpTimeout(1);
  EXPECT_TRUE(listener_->WaitForEvents(1));
  EXPECT_EQ(listener_->Events().size(), 1u);  // what happened meanwhile is not made up for
}

TEST_F(Listeners, AreNotCalledWhenTheyWereRemovedWhileTheyWereAsked) {
  class LeavingListener : public RecordingRtpTimeoutListener {
   public:
    bool IsListenerEnabled() const override {
      leave();
      return true;
    }
    std::function<void()> leave;
  };
  const auto leaving = boost::make_shared<LeavingListener>();
  leaving->leave = [connection = connection_.get()] { connection->RemoveListener(); };
  connection_->AddListener(leaving);
  servers().FireRtpTimeout(1);
  const auto second = NewConnection(session_);
  second->AddListener(other_listener_);
  servers().FireRtpTimeout(2);
  ASSERT_TRUE(other_listener_->WaitForEvents(1));
  EXPECT_TRUE(leaving->Events().empty());
}

TEST_F(Listeners, ReplaceTheFormerOneOfTheEndpoint) {
  connection_->AddListener(listener_);
  connection_->AddListener(other_listener_);
  servers().FireRtpTimeout(1);
  ASSERT_TRUE(other_listener_->WaitForEvents(1));
  EXPECT_TRUE(listener_->Events().empty());
  EXPECT_EQ(listener_.use_count(), 1);
}

TEST_F(Listeners, DoNotHoldUpOperationsOrDestructors) {
  Gate gate;
  listener_->during_event = [gate] { gate.Pass(); };
  connection_->AddListener(listener_);
  servers().FireRtpTimeout(1);
  ASSERT_TRUE(listener_->WaitForEvents(1));
  // While the handler is stuck, everything else goes on, on this very endpoint and session too.
  auto others = std::async(std::launch::async, [&] {
    MediaConfig config;
    const bool described = connection_->GetLocalOffer(config);
    const auto second = NewConnection(session_);
    const auto elsewhere = NewSession();
    const bool moved = Import(elsewhere, second) != nullptr;
    connection_->RemoveListener();
    connection_->Close();
    connection_.reset();
    session_.reset();
    return described && moved;
  });
  const bool went_on = others.wait_for(kPatience) == std::future_status::ready;
  EXPECT_EQ(listener_->WaitForFinished(1, std::chrono::milliseconds(0)), false);
  gate.Open();
  EXPECT_TRUE(went_on);
  EXPECT_TRUE(others.get());
}

TEST_F(Listeners, ThatThrowDoNotEndTheEventThread) {
  listener_->during_event = [] { throw std::runtime_error("no such call"); };
  connection_->AddListener(listener_);
  servers().FireRtpTimeout(1);
  const auto second = NewConnection(session_);
  second->AddListener(other_listener_);
  servers().FireRtpTimeout(2);
  EXPECT_TRUE(other_listener_->WaitForEvents(1));
  EXPECT_TRUE(logger().Has(kelvaro::ERROR_LOG_LEVEL, "no such call"));
}

TEST_F(Listeners, ThatAreNullAreRefused) {
  EXPECT_FALSE(connection_->AddListener(nullptr));
  EXPECT_FALSE(session_->AddListener(nullptr));
  EXPECT_FALSE(connection_->RemoveListener());
  EXPECT_FALSE(session_->RemoveListener(boost::make_shared<RecordingLostListener>()));
}

}  // namespace
