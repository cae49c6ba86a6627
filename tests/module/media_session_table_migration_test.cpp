#include <chrono>
#include <future>

#include "module/media_session_table_fixture.h"

namespace module_test {

namespace {

using kvx_media_server::NetworkConnectionNodeSharedPtr;
using test_support::debug_line;
using test_support::error_line;
using test_support::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

LogLine migrating(const std::string& leg, const char* from, const char* to) {
  return debug_line("Migrating Network connection " + leg + " from Media Session " + from + " to media sessions " + to +
                    "\n");
}

}  // namespace

class MediaSessionTableMigration : public MediaSessionTableTest {
 protected:
  bool Migrate(const char* from, const char* to, const char* fs_uuid) {
    log_.Clear();
    return table_.MigrateNetworkConnection(id(from), id(to), fs_uuid);
  }
};

TEST_F(MediaSessionTableMigration, NeedsASource) {
  AddSession(kSecond);
  EXPECT_FALSE(Migrate(kUnknown, kSecond, "leg"));
  EXPECT_THAT(
      Logged(),
      ElementsAre(migrating("leg", kUnknown, kSecond),
                  error_line("Media session not registered in table, failed to migrate Network Connection!\n")));
}

TEST_F(MediaSessionTableMigration, NeedsALegInTheSource) {
  AddSession(kFirst);
  AddSession(kSecond);
  EXPECT_FALSE(Migrate(kFirst, kSecond, "leg"));
  EXPECT_THAT(Logged(),
              ElementsAre(migrating("leg", kFirst, kSecond),
                          error_line("Network Connection Node list empty, failed to migrate Network Connection!\n")));
}

TEST_F(MediaSessionTableMigration, NeedsThisLegInTheSource) {
  AddSession(kFirst);
  AddLeg(kFirst, "other");
  EXPECT_FALSE(Migrate(kFirst, kSecond, "leg"));
  EXPECT_THAT(
      Logged(),
      ElementsAre(migrating("leg", kFirst, kSecond),
                  error_line("Source Network Connection Node not found, failed to migrate Network Connection!\n")));
}

TEST_F(MediaSessionTableMigration, NeedsADestination) {
  AddSession(kFirst);
  AddLeg(kFirst, "leg");
  EXPECT_FALSE(Migrate(kFirst, kUnknown, "leg"));
  EXPECT_THAT(
      Logged(),
      ElementsAre(migrating("leg", kFirst, kUnknown),
                  error_line("Media session not registered in table, failed to migrate Network Connection!\n")));
  EXPECT_THAT(Legs(kFirst), ElementsAre("leg"));
}

TEST_F(MediaSessionTableMigration, RefusesLegThatTheDestinationHolds) {
  AddSession(kFirst);
  const FakeSession destination = AddSession(kSecond);
  AddLeg(kFirst, "leg");
  AddLeg(kSecond, "leg");
  EXPECT_FALSE(Migrate(kFirst, kSecond, "leg"));
  EXPECT_THAT(
      Logged(),
      ElementsAre(
          migrating("leg", kFirst, kSecond),
          error_line("Network Connection FS UUID already in the list, failed to migrate Network Connection!\n")));
  EXPECT_THAT(destination->imported, IsEmpty());
  EXPECT_THAT(Legs(kFirst), ElementsAre("leg"));
  EXPECT_THAT(Legs(kSecond), ElementsAre("leg"));
}

TEST_F(MediaSessionTableMigration, RefusesMoveIntoTheSameSession) {
  AddSession(kFirst);
  AddLeg(kFirst, "leg");
  EXPECT_FALSE(Migrate(kFirst, kFirst, "leg"));
  EXPECT_THAT(Legs(kFirst), ElementsAre("leg"));
}

TEST_F(MediaSessionTableMigration, RefusedImportChangesNothing) {
  AddSession(kFirst);
  const FakeSession destination = AddSession(kSecond);
  destination->imports = false;
  const FakeConnection connection = AddLeg(kFirst, "leg");
  EXPECT_FALSE(Migrate(kFirst, kSecond, "leg"));
  EXPECT_THAT(Logged(), ElementsAre(migrating("leg", kFirst, kSecond),
                                    error_line("ERROR - Unable to import Network Connection.\n")));
  EXPECT_THAT(Legs(kFirst), ElementsAre("leg"));
  EXPECT_THAT(Legs(kSecond), IsEmpty());
  EXPECT_EQ(*table_.GetNetworkConnection(id(kFirst), "leg"), connection);
}

TEST_F(MediaSessionTableMigration, OnlyLegMovesAndItsSessionIsErased) {
  AddSession(kFirst);
  const FakeSession destination = AddSession(kSecond);
  const FakeConnection connection = AddLeg(kFirst, "leg");
  AddLeg(kSecond, "there");
  const NetworkConnectionNodeSharedPtr node = table_.GetNetworkConnectionNode(id(kFirst), "leg");
  EXPECT_TRUE(Migrate(kFirst, kSecond, "leg"));
  EXPECT_THAT(Logged(), ElementsAre(migrating("leg", kFirst, kSecond),
                                    debug_line(std::string("Erasing Media Session in ") + kFirst +
                                               " from media sessions Table\n"),
                                    debug_line("Media Session Erased!\n")));
  EXPECT_FALSE(table_.GetMediaSession(id(kFirst)));
  EXPECT_THAT(Legs(kSecond), ElementsAre("there", "leg"));
  EXPECT_EQ(table_.GetNetworkConnectionNode(id(kSecond), "leg"), node);
  ASSERT_EQ(destination->imported.size(), 1u);
  EXPECT_EQ(destination->imported[0].lock(), connection);
  EXPECT_NE(node->GetNetworkConnection(), connection);
}

TEST_F(MediaSessionTableMigration, OneOfTwoLegsMovesAndTheSourceStays) {
  AddSession(kFirst);
  AddSession(kSecond);
  const FakeConnection connection = AddLeg(kFirst, "leg");
  AddLeg(kFirst, "staying");
  EXPECT_TRUE(Migrate(kFirst, kSecond, "leg"));
  EXPECT_THAT(Logged(), ElementsAre(migrating("leg", kFirst, kSecond)));
  EXPECT_THAT(Legs(kFirst), ElementsAre("staying"));
  EXPECT_THAT(Legs(kSecond), ElementsAre("leg"));
}

TEST_F(MediaSessionTableMigration, EventMeanwhileIsHandledAtOnce) {
  AddSession(kFirst);
  const FakeSession destination = AddSession(kSecond);
  Leg leg;
  const FakeConnection connection = AddLeg(kFirst, leg.Uuid().c_str());
  std::future<void> event;
  std::future_status handled = std::future_status::timeout;
  destination->during_import = [&] {
    event = std::async(std::launch::async, [&] { connection->FireTimeout(); });
    handled = event.wait_for(std::chrono::seconds(5));
  };
  EXPECT_TRUE(Migrate(kFirst, kSecond, leg.Uuid().c_str()));
  EXPECT_EQ(handled, std::future_status::ready);
  EXPECT_TRUE(leg.HungUp());
}

TEST_F(MediaSessionTableMigration, ConnectionIsImportedUnderTheTableLock) {
  AddSession(kFirst);
  const FakeSession destination = AddSession(kSecond);
  AddLeg(kFirst, "leg");
  std::future<std::vector<std::string>> other;
  destination->during_import = [&] {
    other = std::async(std::launch::async, [&] { return Legs(kSecond); });
    EXPECT_EQ(other.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  };
  EXPECT_TRUE(Migrate(kFirst, kSecond, "leg"));
  EXPECT_THAT(other.get(), ElementsAre("leg"));
}

TEST_F(MediaSessionTableMigration, NodeKeepsPeerAndListenerFlagAndIsNotAddedAgain) {
  AddSession(kFirst);
  AddSession(kSecond);
  const FakeConnection connection = AddLeg(kFirst, "leg");
  AddLeg(kSecond, "peer");
  const NetworkConnectionNodeSharedPtr node = table_.GetNetworkConnectionNode(id(kFirst), "leg");
  const NetworkConnectionNodeSharedPtr peer = table_.GetNetworkConnectionNode(id(kSecond), "peer");
  node->SetPeer(peer);
  node->DisableListener();
  ASSERT_TRUE(Migrate(kFirst, kSecond, "leg"));
  EXPECT_EQ(node->GetPeer(), peer);
  EXPECT_FALSE(node->IsListenerEnabled());
  const auto imported = boost::dynamic_pointer_cast<FakeNetworkConnection>(node->GetNetworkConnection());
  ASSERT_TRUE(imported);
  EXPECT_EQ(imported->listeners_added, 0);
}

}  // namespace module_test
