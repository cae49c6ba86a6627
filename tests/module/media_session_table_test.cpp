#include "media_session_table.h"

#include <chrono>
#include <future>

#include "module/media_session_table_fixture.h"

namespace module_test {

namespace {

using boost::uuids::uuid;
using kvx_media_server::MyMediaServerLostListenerSharedPtr;
using kvx_media_server::NetworkConnectionNodeSharedPtr;
using kvx_media_server::NetworkConnectionSharedPtr;
using test_support::debug_line;
using test_support::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

}  // namespace

TEST_F(MediaSessionTableTest, KeepsFirstEntryWhenSessionIsRegisteredTwice) {
  const FakeSession first = AddSession(kFirst);
  EXPECT_THAT(Logged(), IsEmpty());
  EXPECT_FALSE(table_.RegisterMediaSession(fake_session(), ListenerOf(kFirst)));
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Media session already registered in table!\n")));
  EXPECT_EQ(*table_.GetMediaSession(id(kFirst)), first);
  EXPECT_EQ(table_.CountMediaSessionAllFSUuid(), 1u);
}

TEST_F(MediaSessionTableTest, NewEntryHoldsSessionListenerAndDefaults) {
  const FakeSession session = fake_session();
  const MyMediaServerLostListenerSharedPtr listener = ListenerOf(kFirst);
  ASSERT_TRUE(table_.RegisterMediaSession(session, listener));
  const auto record = table_.GetFSMediaSession(id(kFirst));
  ASSERT_TRUE(record);
  EXPECT_EQ((*record)->ms, session);
  EXPECT_EQ((*record)->ms_listener, listener);
  EXPECT_THAT((*record)->nodelist, IsEmpty());
  EXPECT_EQ((*record)->direct, kelvaro::jsr309::kDuplex);
  EXPECT_EQ((*record)->mediaserverip, "");
}

TEST_F(MediaSessionTableTest, RegistersConnectionAndListensToIt) {
  AddSession(kFirst);
  const FakeConnection connection = AddLeg(kFirst, "leg");
  EXPECT_EQ(*table_.GetNetworkConnection(id(kFirst), "leg"), connection);
  const NetworkConnectionNodeSharedPtr node = Node(kFirst, "leg");
  ASSERT_TRUE(node);
  EXPECT_EQ(connection->Listener(), node);
  EXPECT_EQ(node->GetFSUuid(), "leg");
  EXPECT_TRUE(node->IsListenerEnabled());
  EXPECT_FALSE(node->GetPeer());
}

TEST_F(MediaSessionTableTest, RefusesConnectionForUnknownSession) {
  const FakeConnection connection = fake_connection();
  EXPECT_FALSE(table_.RegisterNetworkConnection(id(kUnknown), connection, "leg"));
  EXPECT_THAT(
      Logged(),
      ElementsAre(debug_line("Media session not registered in table, but Network Connection needs to be added!\n")));
  EXPECT_EQ(connection->listeners_added, 0);
}

TEST_F(MediaSessionTableTest, RefusesSecondConnectionOfSameLegWithoutNodeOrListener) {
  AddSession(kFirst);
  const FakeConnection first = AddLeg(kFirst, "leg");
  const FakeConnection second = fake_connection();
  EXPECT_FALSE(table_.RegisterNetworkConnection(id(kFirst), second, "leg"));
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Network Connection FS UUID already in the list!\n")));
  EXPECT_EQ(second->listeners_added, 0);
  EXPECT_THAT(Legs(kFirst), ElementsAre("leg"));
  EXPECT_EQ(*table_.GetNetworkConnection(id(kFirst), "leg"), first);
}

TEST_F(MediaSessionTableTest, LegsAreComparedExactly) {
  AddSession(kFirst);
  AddLeg(kFirst, "leg");
  AddLeg(kFirst, "LEG");
  EXPECT_THAT(Legs(kFirst), ElementsAre("leg", "LEG"));
}

TEST_F(MediaSessionTableTest, RegistersConnectionThatTakesNoListener) {
  AddSession(kFirst);
  const FakeConnection deaf = fake_connection();
  deaf->takes_listener = false;
  EXPECT_TRUE(table_.RegisterNetworkConnection(id(kFirst), deaf, "leg"));
  EXPECT_THAT(Legs(kFirst), ElementsAre("leg"));
}

TEST_F(MediaSessionTableTest, UnregisterOfUnknownSessionFails) {
  EXPECT_FALSE(table_.UnregisterNetworkConnection(id(kUnknown), "leg"));
  EXPECT_THAT(
      Logged(),
      ElementsAre(debug_line("Media session not registered in table, no need to delete Network Connection!\n")));
}

TEST_F(MediaSessionTableTest, UnregisterOfOneLegKeepsTheSessionOfTheOther) {
  AddSession(kFirst);
  const FakeConnection leaving = AddLeg(kFirst, "leaving");
  AddLeg(kFirst, "staying");
  EXPECT_TRUE(table_.UnregisterNetworkConnection(id(kFirst), "leaving"));
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Network Connection FS UUID deleted!\n"),
                                    debug_line("After unregister, the node list is still NOT empty!\n")));
  EXPECT_EQ(leaving->listeners_removed, 1);
  EXPECT_FALSE(leaving->Listener());
  EXPECT_EQ(leaving->closed, 0);
  EXPECT_THAT(Legs(kFirst), ElementsAre("staying"));
}

TEST_F(MediaSessionTableTest, UnregisterOfUnknownLegIsTrueAndErasesNothing) {
  AddSession(kFirst);
  const FakeConnection connection = AddLeg(kFirst, "leg");
  EXPECT_TRUE(table_.UnregisterNetworkConnection(id(kFirst), "stranger"));
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Network Connection FS UUID deleted!\n"),
                                    debug_line("After unregister, the node list is still NOT empty!\n")));
  EXPECT_EQ(connection->listeners_removed, 0);
  EXPECT_THAT(Legs(kFirst), ElementsAre("leg"));
}

TEST_F(MediaSessionTableTest, UnregisterOfLastLegErasesTheSession) {
  AddSession(kFirst);
  AddLeg(kFirst, "leg");
  EXPECT_TRUE(table_.UnregisterNetworkConnection(id(kFirst), "leg"));
  EXPECT_THAT(Logged(),
              ElementsAre(debug_line("After unregister, the node list is empty!\n"),
                          debug_line(std::string("Erasing Media Session (fsuuid=leg; msuuid=") + kFirst +
                                     ") from media sessions Table\n"),
                          debug_line("Media Session Erased!\n"), debug_line("Network Connection FS UUID deleted!\n"),
                          debug_line("After unregister, the node list is still NOT empty!\n")));
  EXPECT_FALSE(table_.GetMediaSession(id(kFirst)));
  EXPECT_EQ(FakeMediaSession::alive, 0);
  EXPECT_EQ(FakeNetworkConnection::alive, 0);
}

TEST_F(MediaSessionTableTest, UnregisterFromEmptySessionErasesItOnce) {
  AddSession(kFirst);
  EXPECT_TRUE(table_.UnregisterNetworkConnection(id(kFirst), "leg"));
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Network Connection Node list empty, nothing to delete!\n"),
                                    debug_line(std::string("Erasing Media Session (fsuuid=leg; msuuid=") + kFirst +
                                               ") from media sessions Table\n"),
                                    debug_line("Media Session Erased!\n"),
                                    debug_line("After unregister, the node list is empty!\n"),
                                    debug_line("Network Connection FS UUID deleted!\n"),
                                    debug_line("After unregister, the node list is still NOT empty!\n")));
  EXPECT_EQ(table_.CountMediaSessionAllFSUuid(), 0u);
}

TEST_F(MediaSessionTableTest, UnregisterByConnectionDoesNothing) {
  AddSession(kFirst);
  const FakeConnection connection = AddLeg(kFirst, "leg");
  const NetworkConnectionSharedPtr as_base = connection;
  EXPECT_TRUE(table_.UnregisterNetworkConnection(id(kFirst), as_base));
  EXPECT_TRUE(table_.UnregisterNetworkConnection(id(kUnknown), as_base));
  EXPECT_THAT(Logged(), IsEmpty());
  EXPECT_EQ(connection->listeners_removed, 0);
  EXPECT_THAT(Legs(kFirst), ElementsAre("leg"));
}

TEST_F(MediaSessionTableTest, ListenerIsRemovedOutsideTheTableLockWhileTheLegIsStillListed) {
  AddSession(kFirst);
  const FakeConnection connection = AddLeg(kFirst, "leg");
  std::future<std::vector<std::string>> other;
  connection->during_remove = [&] {
    other = std::async(std::launch::async, [&] { return Legs(kFirst); });
    EXPECT_EQ(other.wait_for(std::chrono::seconds(5)), std::future_status::ready);
  };
  EXPECT_TRUE(table_.UnregisterNetworkConnection(id(kFirst), "leg"));
  EXPECT_THAT(other.get(), ElementsAre("leg"));
  EXPECT_EQ(connection->listeners_removed, 1);
}

TEST_F(MediaSessionTableTest, ListenerIsAddedUnderTheTableLock) {
  AddSession(kFirst);
  const FakeConnection connection = fake_connection();
  connections_.push_back(connection);
  std::future<std::vector<std::string>> other;
  connection->during_add = [&] {
    other = std::async(std::launch::async, [&] { return Legs(kFirst); });
    EXPECT_EQ(other.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  };
  EXPECT_TRUE(table_.RegisterNetworkConnection(id(kFirst), connection, "leg"));
  EXPECT_THAT(other.get(), ElementsAre("leg"));
}

TEST_F(MediaSessionTableTest, NullAddressAndUnregisterByConnectionTakeNoLock) {
  AddSession(kFirst);
  const FakeConnection connection = fake_connection();
  connections_.push_back(connection);
  std::future<bool> other;
  connection->during_add = [&] {  // the table is locked now
    other = std::async(std::launch::async, [&] {
      std::vector<uuid> found;
      const NetworkConnectionSharedPtr as_base = connection;
      return !table_.ListAllMatchingMSUuid(found, nullptr) && table_.UnregisterNetworkConnection(id(kFirst), as_base);
    });
    EXPECT_EQ(other.wait_for(std::chrono::seconds(5)), std::future_status::ready);
  };
  EXPECT_TRUE(table_.RegisterNetworkConnection(id(kFirst), connection, "leg"));
  EXPECT_TRUE(other.get());
}

TEST_F(MediaSessionTableTest, SessionThatGetsALegWhileAnotherIsUnregisteredStays) {
  AddSession(kFirst);
  const FakeConnection leaving = AddLeg(kFirst, "leaving");
  leaving->during_remove = [&] { AddLeg(kFirst, "joining"); };
  EXPECT_TRUE(table_.UnregisterNetworkConnection(id(kFirst), "leaving"));
  EXPECT_THAT(Legs(kFirst), ElementsAre("joining"));
}

TEST_F(MediaSessionTableTest, SessionErasedWhileItsLegIsUnregisteredIsNotErasedAgain) {
  AddSession(kFirst);
  const FakeConnection connection = AddLeg(kFirst, "leg");
  connection->during_remove = [&] { table_.EraseAllMSUuid(); };
  EXPECT_TRUE(table_.UnregisterNetworkConnection(id(kFirst), "leg"));
  EXPECT_THAT(Logged(),
              ElementsAre(debug_line(std::string("Erasing Media Session ") + kFirst + " from media sessions Table\n"),
                          debug_line("After unregister, the node list is empty!\n"),
                          debug_line("Network Connection FS UUID deleted!\n"),
                          debug_line("After unregister, the node list is still NOT empty!\n")));
}

TEST_F(MediaSessionTableTest, SessionRegisteredAnewWhileALegOfTheFormerOneIsUnregisteredStays) {
  AddSession(kFirst);
  const FakeConnection connection = AddLeg(kFirst, "leg");
  connection->during_remove = [&] {
    table_.EraseAllMSUuid();
    AddSession(kFirst);
    AddLeg(kFirst, "newcomer");
  };
  EXPECT_TRUE(table_.UnregisterNetworkConnection(id(kFirst), "leg"));
  EXPECT_THAT(Legs(kFirst), ElementsAre("newcomer"));
}

TEST_F(MediaSessionTableTest, EventDuringUnregisterFindsItsNodeAlive) {
  AddSession(kFirst);
  const FakeConnection connection = AddLeg(kFirst, "leg without a session");
  const auto listener = connection->Listener();
  std::future<void> event;
  connection->during_remove = [&] {
    event = std::async(std::launch::async, [&] { listener->OnEvent(kelvaro::jsr309::RtpTimeoutEvent(1, true)); });
    EXPECT_EQ(event.wait_for(std::chrono::seconds(5)), std::future_status::ready);
  };
  EXPECT_TRUE(table_.UnregisterNetworkConnection(id(kFirst), "leg without a session"));
  EXPECT_TRUE(log_.Has(debug_line("Unable to locate the session, ignoring RTP timeout. \n")));
}

TEST_F(MediaSessionTableTest, CountsSessionsNotLegs) {
  EXPECT_EQ(table_.CountMediaSessionAllFSUuid(), 0u);
  AddSession(kFirst);
  AddLeg(kFirst, "a");
  AddLeg(kFirst, "b");
  EXPECT_EQ(table_.CountMediaSessionAllFSUuid(), 1u);
}

TEST_F(MediaSessionTableTest, ListsLegsInOrderOfRegistrationAfterWhatIsThere) {
  AddSession(kFirst);
  AddLeg(kFirst, "b");
  AddLeg(kFirst, "a");
  std::vector<std::string> legs = {"before"};
  EXPECT_TRUE(table_.ListMediaSessionAllFSUuid(legs, id(kFirst)));
  EXPECT_THAT(legs, ElementsAre("before", "b", "a"));
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Looking for Media Session...\n")));
}

TEST_F(MediaSessionTableTest, ListOfLegsSaysWhyItIsEmpty) {
  std::vector<std::string> legs;
  EXPECT_FALSE(table_.ListMediaSessionAllFSUuid(legs, id(kUnknown)));
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Looking for Media Session...\n"),
                                    debug_line("Media session not registered in table, no channels to hang up!\n")));
  AddSession(kFirst);
  EXPECT_FALSE(table_.ListMediaSessionAllFSUuid(legs, id(kFirst)));
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Looking for Media Session...\n"),
                                    debug_line("Network Connection Node list empty, no channels to hang up!\n")));
  EXPECT_THAT(legs, IsEmpty());
}

TEST_F(MediaSessionTableTest, ListsConnections) {
  std::vector<NetworkConnectionSharedPtr> connections;
  EXPECT_FALSE(table_.ListMediaSessionAllNetworkConnections(connections, id(kUnknown)));
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Media session not registered in table, no channels to hang up!\n")));
  AddSession(kFirst);
  EXPECT_FALSE(table_.ListMediaSessionAllNetworkConnections(connections, id(kFirst)));
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Network Connection Node list empty, no channels to hang up!\n")));
  const FakeConnection a = AddLeg(kFirst, "a");
  const FakeConnection b = AddLeg(kFirst, "b");
  EXPECT_TRUE(table_.ListMediaSessionAllNetworkConnections(connections, id(kFirst)));
  EXPECT_THAT(connections, ElementsAre(a, b));
  EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(MediaSessionTableTest, MatchesSessionsByAddressExactly) {
  AddSession(kFirst);
  AddSession(kSecond);
  table_.SetMediaSessionIPAddress(id(kFirst), "10.0.0.5");
  std::vector<uuid> found;
  EXPECT_TRUE(table_.ListAllMatchingMSUuid(found, "10.0.0.5"));
  EXPECT_THAT(found, ElementsAre(id(kFirst)));
  EXPECT_TRUE(table_.ListAllMatchingMSUuid(found, "10.0.0.55"));
  EXPECT_THAT(found, ElementsAre(id(kFirst)));
  EXPECT_TRUE(table_.ListAllMatchingMSUuid(found, ""));
  EXPECT_THAT(found, ElementsAre(id(kFirst), id(kSecond)));
}

TEST_F(MediaSessionTableTest, NullAddressMatchesNothingAndFails) {
  AddSession(kFirst);
  std::vector<uuid> found;
  EXPECT_FALSE(table_.ListAllMatchingMSUuid(found, nullptr));
  EXPECT_THAT(found, IsEmpty());
}

TEST_F(MediaSessionTableTest, AddressOfUnknownSessionIsLogged) {
  table_.SetMediaSessionIPAddress(id(kUnknown), "10.0.0.5");
  EXPECT_THAT(Logged(), ElementsAre(kNoSession));
}

TEST_F(MediaSessionTableTest, ListsAllSessions) {
  std::vector<uuid> found;
  EXPECT_TRUE(table_.ListAllMSUuid(found));
  EXPECT_THAT(found, IsEmpty());
  AddSession(kFirst);
  AddSession(kSecond);
  EXPECT_TRUE(table_.ListAllMSUuid(found));
  EXPECT_THAT(found, UnorderedElementsAre(id(kFirst), id(kSecond)));
}

TEST_F(MediaSessionTableTest, EraseAllDropsReferencesAndClosesNothing) {
  AddSession(kFirst);
  AddSession(kSecond);
  const FakeConnection connection = AddLeg(kFirst, "leg");
  EXPECT_TRUE(table_.EraseAllMSUuid());
  EXPECT_THAT(Logged(),
              UnorderedElementsAre(
                  debug_line(std::string("Erasing Media Session ") + kFirst + " from media sessions Table\n"),
                  debug_line(std::string("Erasing Media Session ") + kSecond + " from media sessions Table\n")));
  EXPECT_EQ(table_.CountMediaSessionAllFSUuid(), 0u);
  EXPECT_EQ(FakeMediaSession::alive, 0);
  EXPECT_EQ(connection->closed, 0);
  EXPECT_TRUE(table_.EraseAllMSUuid());
  EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(MediaSessionTableTest, EraseAllEndsEachSessionBeforeTheNext) {
  AddSession(kFirst);
  AddSession(kSecond);
  std::vector<uuid> order;
  table_.ListAllMSUuid(order);
  log_.Clear();
  EXPECT_TRUE(table_.EraseAllMSUuid());
  const LogLine ended = debug_line("MyMediaServerLostListener::~MyMediaServerLostListener\n");
  EXPECT_THAT(
      log_.ModuleLines(),
      ElementsAre(debug_line("Erasing Media Session " + to_string(order[0]) + " from media sessions Table\n"), ended,
                  debug_line("Erasing Media Session " + to_string(order[1]) + " from media sessions Table\n"), ended));
}

TEST_F(MediaSessionTableTest, LogLinesCarryTheModulesSourceAndFunction) {
  table_.GetFSMediaSession(id(kUnknown));
  const std::vector<LogLine> lines = Logged();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].file, "media_session_table.cpp");
  EXPECT_EQ(lines[0].function, "GetFSMediaSession");
  EXPECT_EQ(lines[0].channel, SWITCH_CHANNEL_ID_LOG);
}

}  // namespace module_test
