// How endpoints and sessions end, and what goes with them.
#include "library_fixture.h"

using namespace kelvaro::jsr309;
using namespace test_support;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class Life : public LibraryTest {};

// What a registry of calls keeps: the connection, and itself as the connection's listener.
class CallRecord : public RecordingRtpTimeoutListener {
 public:
  explicit CallRecord(NetworkConnectionSharedPtr connection_in) : connection(std::move(connection_in)) {}
  const NetworkConnectionSharedPtr connection;
};

boost::weak_ptr<CallRecord> RegisterCall(const NetworkConnectionSharedPtr& connection) {
  const auto record = boost::make_shared<CallRecord>(connection);
  EXPECT_TRUE(connection->AddListener(record));
  return record;
}

void ExpectEverythingRefused(NetworkConnection& connection, const NetworkConnectionSharedPtr& other) {
  MediaConfig config;
  std::vector<RtcpStatsReport> reports;
  EXPECT_FALSE(connection.GetLocalOffer(config));
  EXPECT_FALSE(connection.GetLocalAnswer(config));
  EXPECT_FALSE(connection.SetRemoteOffer(config));
  EXPECT_FALSE(connection.SetRemoteAnswer(config));
  EXPECT_FALSE(connection.SetRemoteAddressDetection());
  EXPECT_FALSE(connection.GetLocalImageConfig(config));
  EXPECT_FALSE(connection.GetRemoteImageConfig(config));
  EXPECT_FALSE(connection.GetRtcpStatsReport(reports));
  EXPECT_FALSE(connection.Join(kDuplex, other));
  EXPECT_FALSE(connection.Unjoin(other));
  EXPECT_FALSE(connection.AddListener(boost::make_shared<RecordingRtpTimeoutListener>()));
  EXPECT_FALSE(connection.RemoveListener());
}

TEST_F(Life, RefusesEverythingAfterClose) {
  Start();
  const auto session = NewSession();
  const auto a = NewConnection(session);
  const auto b = NewConnection(session);
  a->Close();
  servers().ForgetCalls();
  ExpectEverythingRefused(*a, b);
  EXPECT_THAT(servers().Operations(), IsEmpty());
  EXPECT_FALSE(b->Join(kDuplex, a));
}

TEST_F(Life, ClosesOnceHoweverOftenItIsAsked) {
  Start();
  const auto session = NewSession();
  const auto connection = NewConnection(session);
  connection->Close();
  connection->Close();
  EXPECT_EQ(servers().Calls(Operation::kClose).size(), 1u);
}

TEST_F(Life, HasEndedTheEndpointWhenCloseReturns) {
  Start();
  const auto session = NewSession();
  const auto a = NewConnection(session);
  const auto b = NewConnection(session);
  ASSERT_TRUE(a->Join(kDuplex, b));
  a->Close();
  EXPECT_THAT(servers().OpenEndpoints(), ElementsAre(2));
  EXPECT_FALSE(b->Unjoin(a));
}

TEST_F(Life, CountsAsClosedWhenTheServerDoesNotAnswer) {
  Start();
  const auto session = NewSession();
  const auto connection = NewConnection(session);
  servers().Fail(Operation::kClose);
  connection->Close();
  MediaConfig config;
  EXPECT_FALSE(connection->GetLocalOffer(config));
  EXPECT_TRUE(logger().Has(kelvaro::WARN_LOG_LEVEL, "did not close"));
}

TEST_F(Life, EndsAnEndpointWithItsLastHandle) {
  Start();
  const auto session = NewSession();
  auto connection = NewConnection(session);
  connection.reset();
  EXPECT_THAT(servers().OpenEndpoints(), IsEmpty());
  EXPECT_THAT(servers().Operations(), Contains(Operation::kRelease));
}

TEST_F(Life, EndsEndpointsWithTheirSession) {
  Start();
  auto session = NewSession();
  const auto a = NewConnection(session);
  const auto b = NewConnection(session);
  session.reset();
  EXPECT_THAT(servers().OpenEndpoints(), IsEmpty());
  EXPECT_EQ(servers().OpenSessions(), 0u);
  ExpectEverythingRefused(*a, b);
}

TEST_F(Life, ReleasesEndpointsBeforeTheirSession) {
  Start();
  auto session = NewSession();
  const auto connection = NewConnection(session);
  servers().ForgetCalls();
  session.reset();
  EXPECT_THAT(servers().Operations(), ElementsAre(Operation::kRelease, Operation::kReleaseSession));
}

TEST_F(Life, DropsTheListenerThatOwnsItsConnectionOnClose) {
  Start();
  const auto session = NewSession();
  auto connection = NewConnection(session);
  const auto record = RegisterCall(connection);
  connection->Close();
  connection.reset();
  EXPECT_TRUE(record.expired());
}

TEST_F(Life, DropsTheListenerThatOwnsItsConnectionWhenTheSessionEnds) {
  Start();
  auto session = NewSession();
  const auto record = RegisterCall(NewConnection(session));
  ASSERT_FALSE(record.expired());
  session.reset();
  EXPECT_TRUE(record.expired());
  EXPECT_THAT(servers().OpenEndpoints(), IsEmpty());
}

TEST_F(Life, DropsTheListenerThatOwnsItsConnectionWhenTheFactoryStops) {
  Start();
  const auto session = NewSession();
  const auto record = RegisterCall(NewConnection(session));
  factory().Stop();
  EXPECT_TRUE(record.expired());
}

TEST_F(Life, DropsTheRtpTimeoutListenerWithTheLastHandle) {
  Start();
  const auto session = NewSession();
  auto connection = NewConnection(session);
  auto listener = boost::make_shared<RecordingRtpTimeoutListener>();
  const boost::weak_ptr<RecordingRtpTimeoutListener> watched = listener;
  connection->AddListener(listener);
  listener.reset();
  EXPECT_FALSE(watched.expired());
  connection.reset();
  EXPECT_TRUE(watched.expired());
}

TEST_F(Life, DropsLostListenersWithTheSession) {
  Start();
  auto session = NewSession();
  auto listener = boost::make_shared<RecordingLostListener>();
  const boost::weak_ptr<RecordingLostListener> watched = listener;
  ASSERT_TRUE(session->AddListener(listener));
  listener.reset();
  EXPECT_FALSE(watched.expired());
  session.reset();
  EXPECT_TRUE(watched.expired());
}

TEST_F(Life, DropsLostListenersWhenTheFactoryStops) {
  Start();
  const auto session = NewSession();
  const auto listener = boost::make_shared<RecordingLostListener>();
  session->AddListener(listener);
  factory().Stop();
  EXPECT_EQ(listener.use_count(), 1);
}

TEST_F(Life, SessionsEndWithoutWaitingForTheServer) {
  Start();
  auto session = NewSession();
  auto connection = NewConnection(session);
  servers().Hold(Operation::kClose);  // what would wait, would wait here
  session.reset();
  connection.reset();
  EXPECT_THAT(servers().Calls(Operation::kClose), IsEmpty());
}

TEST_F(Life, HandlesOutliveTheirFactory) {
  Start();
  const auto session = NewSession();
  const auto a = NewConnection(session);
  const auto b = NewConnection(session);
  DestroyFactory();
  ExpectEverythingRefused(*a, b);
  EXPECT_EQ(session->CreateNetworkConnection(nullptr), nullptr);
  EXPECT_EQ(session->ImportNetworkConnection(a), nullptr);
  EXPECT_FALSE(session->AddListener(boost::make_shared<RecordingLostListener>()));
}

}  // namespace
