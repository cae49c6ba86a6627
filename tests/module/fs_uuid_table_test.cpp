#include "fs_uuid_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/optional/optional_io.hpp>
#include <boost/uuid/nil_generator.hpp>
#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include "module/module_fixture.h"

namespace module_test {

namespace {

using boost::uuids::uuid;
using kvx_media_server::FSUuidTable;
using test_support::debug_line;
using testing::ElementsAre;
using testing::IsEmpty;

const uuid kFirst = boost::uuids::string_generator()("11111111-1111-4111-8111-111111111111");
const uuid kSecond = boost::uuids::string_generator()("22222222-2222-4222-8222-222222222222");

}  // namespace

TEST(FSUuidTable, SecondRegistrationKeepsTheFirstMapping) {
  test_support::LogCapture log;
  FSUuidTable table;
  EXPECT_TRUE(table.RegisterMediaSessionUuid("leg", kFirst));
  EXPECT_THAT(log.ModuleLines(), IsEmpty());
  EXPECT_FALSE(table.RegisterMediaSessionUuid("leg", kSecond));
  EXPECT_THAT(log.ModuleLines(), ElementsAre(debug_line("Already registered!\n")));
  EXPECT_EQ(table.GetMediaSessionUuid("leg"), kFirst);
}

TEST(FSUuidTable, UnknownLegHasTheNilUuid) {
  FSUuidTable table;
  EXPECT_EQ(table.GetMediaSessionUuid("leg"), boost::uuids::nil_uuid());
  EXPECT_FALSE(table.IsFSUuidAlreadyThere("leg"));
}

TEST(FSUuidTable, OneLookTellsWhetherALegIsKnownAndWhereItIs) {
  test_support::LogCapture log;
  FSUuidTable table;
  EXPECT_FALSE(table.FindMediaSessionUuid("leg"));
  table.RegisterMediaSessionUuid("leg", kFirst);
  EXPECT_EQ(table.FindMediaSessionUuid("leg"), kFirst);
  EXPECT_FALSE(table.FindMediaSessionUuid("other leg"));
  table.UnregisterMediaSession("leg");
  EXPECT_FALSE(table.FindMediaSessionUuid("leg"));
  EXPECT_THAT(log.ModuleLines(), IsEmpty());
}

TEST(FSUuidTable, UnregisterIsTrueWhetherOrNotTheLegIsThere) {
  test_support::LogCapture log;
  FSUuidTable table;
  EXPECT_TRUE(table.UnregisterMediaSession("leg"));
  table.RegisterMediaSessionUuid("leg", kFirst);
  EXPECT_TRUE(table.UnregisterMediaSession("leg"));
  EXPECT_FALSE(table.IsFSUuidAlreadyThere("leg"));
  EXPECT_THAT(log.ModuleLines(), IsEmpty());
}

TEST(FSUuidTable, LegIsRepointedByUnregisterAndRegister) {
  FSUuidTable table;
  table.RegisterMediaSessionUuid("leg", kFirst);
  table.UnregisterMediaSession("leg");
  EXPECT_TRUE(table.RegisterMediaSessionUuid("leg", kSecond));
  EXPECT_EQ(table.GetMediaSessionUuid("leg"), kSecond);
}

TEST(FSUuidTable, LegsAreComparedExactly) {
  FSUuidTable table;
  table.RegisterMediaSessionUuid("leg", kFirst);
  EXPECT_FALSE(table.IsFSUuidAlreadyThere("LEG"));
  EXPECT_TRUE(table.RegisterMediaSessionUuid("LEG", kSecond));
}

TEST(FSUuidTable, SeveralLegsShareAMediaSession) {
  FSUuidTable table;
  EXPECT_TRUE(table.RegisterMediaSessionUuid("a", kFirst));
  EXPECT_TRUE(table.RegisterMediaSessionUuid("b", kFirst));
  EXPECT_EQ(table.GetMediaSessionUuid("a"), table.GetMediaSessionUuid("b"));
}

TEST(FSUuidTable, EraseAllItemsForgetsEveryLeg) {
  test_support::LogCapture log;
  FSUuidTable table;
  EXPECT_TRUE(table.EraseAllItems());
  table.RegisterMediaSessionUuid("a", kFirst);
  table.RegisterMediaSessionUuid("b", kSecond);
  EXPECT_TRUE(table.EraseAllItems());
  EXPECT_FALSE(table.IsFSUuidAlreadyThere("a"));
  EXPECT_FALSE(table.IsFSUuidAlreadyThere("b"));
  EXPECT_THAT(log.ModuleLines(), IsEmpty());
}

}  // namespace module_test
