#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "console/show_tables.h"
#include "console/table.h"
#include "console/uptime.h"

namespace kvx_switch {
namespace {

using testing::SizeIs;

SessionInfo leg(const std::string& uuid, const std::string& partner = "") {
  SessionInfo info;
  info.uuid = uuid;
  info.name = "sip/" + uuid;
  info.direction = "inbound";
  info.state = "CS_EXECUTE";
  info.callstate = "ACTIVE";
  info.cid_name = "Anna";
  info.cid_number = "1000";
  info.destination = "2000";
  info.context = "default";
  info.partner_uuid = partner;
  info.created = "2024-01-31 23:59:59";
  info.created_time = 1706745599999999;
  return info;
}

TEST(ConsoleTable, PrintsHeaderRowsAndTotal) {
  EXPECT_EQ(to_csv({{"a", "b"}, {{"1", "2"}, {"", "x y"}}}), "a,b\n1,2\n,x y\n\n2 total.\n");
}

TEST(ConsoleTable, PrintsOnlyTheTotalWhenThereIsNothing) {
  EXPECT_EQ(to_csv({{"a", "b"}, {}}), "\n0 total.\n");
}

TEST(ConsoleTable, QuotesWhatWouldBreakARow) {
  EXPECT_EQ(to_csv({{"a", "b"}, {{"x,y", "say \"hi\""}, {"two\nlines", "%s"}}}),
            "a,b\n\"x,y\",\"say \"\"hi\"\"\"\n\"two\nlines\",%s\n\n2 total.\n");
}

TEST(ConsoleTable, CountsWithoutRows) {
  EXPECT_EQ(to_count({{"a"}, {{"1"}, {"2"}, {"3"}}}), "\n3 total.\n");
}

TEST(ConsoleChannelsTable, HasARowForEachLeg) {
  EXPECT_EQ(to_csv(channels_table({leg("a1"), leg("b2")})),
            "uuid,direction,created,created_epoch,name,state,cid_name,cid_num,dest,context,callstate\n"
            "a1,inbound,2024-01-31 23:59:59,1706745599,sip/a1,CS_EXECUTE,Anna,1000,2000,default,ACTIVE\n"
            "b2,inbound,2024-01-31 23:59:59,1706745599,sip/b2,CS_EXECUTE,Anna,1000,2000,default,ACTIVE\n"
            "\n2 total.\n");
}

TEST(ConsoleCallsTable, HasARowForEachPair) {
  const Table table = calls_table({leg("a", "b"), leg("c", "d"), leg("b", "a"), leg("alone"), leg("d", "c")});
  EXPECT_EQ(to_csv(table),
            "uuid,direction,created,created_epoch,name,state,cid_name,cid_num,dest,context,callstate,"
            "b_uuid,b_direction,b_created,b_created_epoch,b_name,b_state,b_cid_name,b_cid_num,b_dest,b_context,"
            "b_callstate\n"
            "a,inbound,2024-01-31 23:59:59,1706745599,sip/a,CS_EXECUTE,Anna,1000,2000,default,ACTIVE,"
            "b,inbound,2024-01-31 23:59:59,1706745599,sip/b,CS_EXECUTE,Anna,1000,2000,default,ACTIVE\n"
            "c,inbound,2024-01-31 23:59:59,1706745599,sip/c,CS_EXECUTE,Anna,1000,2000,default,ACTIVE,"
            "d,inbound,2024-01-31 23:59:59,1706745599,sip/d,CS_EXECUTE,Anna,1000,2000,default,ACTIVE\n"
            "\n2 total.\n");
}

TEST(ConsoleCallsTable, ListsAPairWhenOnlyOneLegNamesTheOther) {
  EXPECT_THAT(calls_table({leg("a"), leg("b", "a")}).rows, SizeIs(1));
  EXPECT_THAT(calls_table({leg("a", "b"), leg("b")}).rows, SizeIs(1));
}

TEST(ConsoleCallsTable, LeavesOutLegsWhosePartnerIsGone) {
  EXPECT_THAT(calls_table({leg("a", "gone"), leg("b", "b")}).rows, SizeIs(0));
}

TEST(ConsoleCallsTable, PairsLegsThatNameEachOtherRatherThanAThird) {
  const Table table = calls_table({leg("c", "a"), leg("a", "b"), leg("b", "a")});
  ASSERT_THAT(table.rows, SizeIs(1));
  EXPECT_EQ(table.rows[0].front(), "a");
  EXPECT_THAT(calls_table({leg("a"), leg("b", "a"), leg("c", "a")}).rows, SizeIs(1));
}

TEST(ConsoleUptime, CountsInWords) {
  EXPECT_EQ(uptime_in_words(0), "0 years, 0 days, 0 hours, 0 minutes, 0 seconds, 0 milliseconds, 0 microseconds");
  EXPECT_EQ(uptime_in_words(((((365 + 1) * 24LL + 1) * 60 + 1) * 60 + 1) * 1000000 + 1001),
            "1 year, 1 day, 1 hour, 1 minute, 1 second, 1 millisecond, 1 microsecond");
  EXPECT_EQ(uptime_in_words(59999999),
            "0 years, 0 days, 0 hours, 0 minutes, 59 seconds, 999 milliseconds, 999 microseconds");
}

TEST(ConsoleUptime, CutsToWholeUnits) {
  const switch_time_t time = ((25 * 60LL + 1) * 60 + 1) * 1000000 + 1999;
  EXPECT_EQ(uptime_in_units(time, "us"), time);
  EXPECT_EQ(uptime_in_units(time, "ms"), 90061001);
  EXPECT_EQ(uptime_in_units(time, "s"), 90061);
  EXPECT_EQ(uptime_in_units(time, "m"), 1501);
  EXPECT_EQ(uptime_in_units(time, "h"), 25);
  EXPECT_EQ(uptime_in_units(time, "d"), 1);
  EXPECT_EQ(uptime_in_units(time, "y"), -1);
  EXPECT_EQ(uptime_in_units(time, ""), -1);
}

}  // namespace
}  // namespace kvx_switch
