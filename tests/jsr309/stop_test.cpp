// Starting and stopping the control library, and the logger it is lent.
#include "library_fixture.h"

#include <dirent.h>

#include <fstream>
#include <future>

using namespace kelvaro::jsr309;
using namespace test_support;
using ::testing::IsEmpty;

namespace {

class Stop : public LibraryTest {};

// The threads of this process.
size_t Threads() {
  DIR* tasks = opendir("/proc/self/task");
  size_t count = 0;
  while (const dirent* task = readdir(tasks)) count += task->d_name[0] == '.' ? 0 : 1;
  closedir(tasks);
  return count;
}

TEST_F(Stop, EndsEverythingAndJoinsItsThreads) {
  const size_t before = Threads();
  Start(2);
  const auto first = NewSession();
  const auto second = NewSession();
  const auto connection = NewConnection(first);
  EXPECT_GT(Threads(), before);
  factory().Stop();
  EXPECT_EQ(Threads(), before);
  EXPECT_THAT(servers().OpenEndpoints(), IsEmpty());
  EXPECT_EQ(servers().OpenSessions(), 0u);
  EXPECT_EQ(servers().Calls(Operation::kShutdown).size(), 2u);
}

TEST_F(Stop, MakesLaterCallsFail) {
  Start();
  const auto session = NewSession();
  factory().Stop();
  EXPECT_FALSE(factory().IsMediaServerAvailable());
  EXPECT_EQ(factory().CreateMediaSession(), nullptr);
  EXPECT_FALSE(factory().SetMediaServerStatus(servers().Address().c_str(), true));
  JSR309Stats stats;
  EXPECT_FALSE(factory().GetStats(stats));
  EXPECT_EQ(session->CreateNetworkConnection(nullptr), nullptr);
  EXPECT_FALSE(factory().Init(servers().config_path().c_str(), nullptr));
}

TEST_F(Stop, MayBeCalledAgain) {
  Start();
  factory().Stop();
  factory().Stop();
  EXPECT_EQ(servers().Calls(Operation::kShutdown).size(), 1u);
}

TEST_F(Stop, IsWhatTheDestructorDoes) {
  Start();
  const auto session = NewSession();
  DestroyFactory();
  EXPECT_EQ(servers().Calls(Operation::kShutdown).size(), 1u);
  EXPECT_EQ(servers().OpenSessions(), 0u);
}

TEST_F(Stop, ShutsServersDownSideBySideWithinTheRequestTimeoutAndASecond) {
  ScriptedOptions options;
  options.servers = 4;
  options.request_timeout_ms = 400;
  Start(options);
  servers().Hold(Operation::kShutdown);  // no server answers
  const auto begun = std::chrono::steady_clock::now();
  factory().Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(1400));
}

TEST_F(Stop, LeavesTheLoggerAloneAfterwards) {
  Start();
  auto session = NewSession();
  auto connection = NewConnection(session);
  factory().Stop();
  const size_t records = logger().Count();
  MediaConfig config;
  connection->GetLocalOffer(config);
  connection.reset();
  session.reset();
  NewSession();
  DestroyFactory();
  EXPECT_EQ(logger().Count(), records);
}

TEST_F(Stop, DropsEventsThatWait) {
  ScriptedOptions options;
  options.lost_events_per_second = 1;
  Start(options);
  const auto listener = boost::make_shared<RecordingLostListener>();
  const auto first = NewSession();
  const auto second = NewSession();
  first->AddListener(listener);
  second->AddListener(listener);
  servers().Lose();
  ASSERT_TRUE(listener->WaitForFinished(1));
  factory().Stop();
  EXPECT_EQ(listener->Events().size(), 1u);
}

TEST_F(Stop, WaitsForAListenerInItsHandler) {
  ScriptedOptions options;
  options.request_timeout_ms = 60000;
  Start(options);
  const auto session = NewSession();
  const auto connection = NewConnection(session);
  const auto listener = boost::make_shared<RecordingRtpTimeoutListener>();
  std::promise<void> release;
  listener->during_event = [released = release.get_future().share()] { released.wait_for(kPatience); };
  connection->AddListener(listener);
  servers().FireRtpTimeout(1);
  ASSERT_TRUE(listener->WaitForEvents(1));
  auto stop = std::async(std::launch::async, [&] { factory().Stop(); });
  EXPECT_EQ(stop.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  release.set_value();
  stop.get();
  EXPECT_TRUE(listener->WaitForFinished(1, std::chrono::milliseconds(0)));
}

TEST_F(Stop, ReturnsInTimeAlthoughAListenerDoesNot) {
  ScriptedOptions options;
  options.request_timeout_ms = 10;
  Start(options);
  const auto session = NewSession();
  const auto connection = NewConnection(session);
  const auto listener = boost::make_shared<RecordingRtpTimeoutListener>();
  const auto release = std::make_shared<std::promise<void>>();
  listener->during_event = [release, released = release->get_future().share()] { released.wait_for(kPatience); };
  connection->AddListener(listener);
  servers().FireRtpTimeout(1);
  ASSERT_TRUE(listener->WaitForEvents(1));
  factory().Stop();
  EXPECT_FALSE(listener->WaitForFinished(1, std::chrono::milliseconds(0)));
  EXPECT_TRUE(logger().Has(kelvaro::WARN_LOG_LEVEL, "a listener has not returned"));
  release->set_value();
  DestroyFactory();  // waits for the event thread
  EXPECT_TRUE(listener->WaitForFinished(1, std::chrono::milliseconds(0)));
}

TEST_F(Stop, MayBeCalledByAListener) {
  Start();
  const auto session = NewSession();
  const auto connection = NewConnection(session);
  const auto listener = boost::make_shared<RecordingRtpTimeoutListener>();
  listener->during_event = [&] { factory().Stop(); };
  connection->AddListener(listener);
  servers().FireRtpTimeout(1);
  EXPECT_TRUE(listener->WaitForFinished(1));
  EXPECT_EQ(servers().Calls(Operation::kShutdown).size(), 1u);
  EXPECT_EQ(factory().CreateMediaSession(), nullptr);
}

TEST_F(Stop, EndsASessionThatIsBeingMade) {
  ScriptedOptions options;
  options.request_timeout_ms = 60000;
  Start(options);
  servers().Hold(Operation::kCreateSession);
  auto making = std::async(std::launch::async, [&] { return NewSession(); });
  ASSERT_TRUE(servers().WaitForHeld(Operation::kCreateSession));
  factory().Stop();
  servers().Resume(Operation::kCreateSession);
  EXPECT_EQ(making.get(), nullptr);
  EXPECT_EQ(servers().OpenSessions(), 0u);
}

TEST(Init, WorksWithoutALogger) {
  const ScriptedMediaServers servers;
  MSControlFactory factory;
  ASSERT_TRUE(factory.Init(servers.config_path().c_str(), nullptr));
  EXPECT_TRUE(factory.IsMediaServerAvailable());
}

TEST(Init, WorksOnce) {
  const ScriptedMediaServers servers;
  RecordingLogger first, second;
  MSControlFactory factory;
  ASSERT_TRUE(factory.Init(servers.config_path().c_str(), &first));
  EXPECT_FALSE(factory.Init(servers.config_path().c_str(), &second));
  EXPECT_TRUE(second.Has(kelvaro::ERROR_LOG_LEVEL, "already"));
  EXPECT_TRUE(factory.IsMediaServerAvailable());
}

TEST(Init, ThatFailedLeavesNoThreadAndNoServerAndMayBeTriedAgain) {
  const size_t before = Threads();
  ScriptedOptions options;
  options.servers = 2;
  ScriptedMediaServers servers(options);
  RecordingLogger logger;
  MSControlFactory factory;
  servers.FailOpen(1);
  EXPECT_FALSE(factory.Init(servers.config_path().c_str(), &logger));
  EXPECT_EQ(Threads(), before);
  EXPECT_EQ(servers.Calls(ScriptedOperation::kShutdown).size(), 1u);
  EXPECT_TRUE(logger.Has(kelvaro::ERROR_LOG_LEVEL, "told not to open"));
  EXPECT_FALSE(factory.IsMediaServerAvailable());
  EXPECT_EQ(factory.CreateMediaSession(), nullptr);
  EXPECT_TRUE(factory.Init(servers.config_path().c_str(), &logger));
}

TEST(Init, ThatFailedLeavesTheLoggerAloneAfterwards) {
  ScriptedMediaServers servers;
  auto logger = std::make_unique<RecordingLogger>();
  auto factory = std::make_unique<MSControlFactory>();
  servers.FailOpen(0);
  EXPECT_FALSE(factory->Init(servers.config_path().c_str(), logger.get()));
  logger.reset();
  factory->Stop();
  factory.reset();
}

TEST(Init, NeedsAPath) {
  RecordingLogger logger;
  MSControlFactory factory;
  EXPECT_FALSE(factory.Init(nullptr, &logger));
  EXPECT_EQ(logger.Messages(kelvaro::ERROR_LOG_LEVEL).size(), 1u);
}

}  // namespace
