#include <boost/thread/lock_types.hpp>
#include <future>

#include "faults.h"
#include "module/media_callbacks_fixture.h"
#include "support/event_capture.h"

namespace module_test {
namespace {

using module_faults::Fault;
using test_support::debug_line;
using test_support::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// The core runs with debug-level 10: what is logged at DEBUG10 comes out as DEBUG.
const LogLine kInflowSent = debug_line("Dispatched RTCP event for inflow RTP\n");
const LogLine kOutflowSent = debug_line("Dispatched RTCP event for outflow RTP\n");

class RtcpEventFault : public MediaCallbacks {
 protected:
  RtcpEventFault() {
    servers_.AnswerReports({{}, {}});
    for (const char* variable : {"advertised_media_ip", "remote_media_ip", "sip_use_codec_name"}) {
      leg_.Set(variable, "something");
    }
    leg_.Set("sip_use_codec_rate", "8000");
    leg_.Set("generate_rtcp_report", "true");
    leg_.Set("rtcpmon_start_time", "first");
    leg_.Create();
    log_.Clear();
  }

  void Distribute() {
    const kelvaro::jsr309::RtcpStatsReport report;
    distribute_rtcpstats_event("leg-uuid", &report, "192.0.2.1", "192.0.2.2", "then", "PCMA", 8000);
  }
  std::vector<LogLine> Lines() const { return LinesOf({"rtcp_stats_event.cpp"}); }

  MediaLeg leg_;
  test_support::EventCapture events_{SWITCH_EVENT_RECV_RTCP_MESSAGE};
};

TEST_F(RtcpEventFault, PassesOverADirectionWhoseEventCannotBeMade) {
  for (const int failing : {1, 2}) {
    log_.Clear();
    int made = 0;
    const Fault no_event("switch_event_create", [&] { return ++made != failing; });
    const std::size_t before = events_.All().size();
    Distribute();
    const auto sent = events_.All();
    ASSERT_EQ(sent.size(), before + 1);
    EXPECT_EQ(sent.back().Header("Inflow-RTP-Flag"), failing == 1 ? "0" : "1");
    EXPECT_THAT(Lines(), ElementsAre(failing == 1 ? kOutflowSent : kInflowSent));
  }
}

TEST_F(RtcpEventFault, SaysNothingWhenNoEventCanBeMade) {
  const Fault no_event("switch_event_create", [] { return false; });
  Distribute();
  EXPECT_THAT(events_.All(), IsEmpty());
  EXPECT_THAT(Lines(), IsEmpty());
}

// That nothing is left of the events is for the leak checker to say.
TEST_F(RtcpEventFault, DestroysAnEventThatTheSwitchDoesNotTake) {
  int fired = 0;
  const Fault not_taken("switch_event_fire", [&] { return ++fired != 1; });
  Distribute();
  EXPECT_THAT(events_.All(), SizeIs(1));
  EXPECT_THAT(Lines(), ElementsAre(kInflowSent, kOutflowSent));
}

TEST_F(RtcpEventFault, DestructionPublishesWithTheSessionHeld) {
  const auto record = *mod_globals->GetMSTable()->GetFSMediaSession(leg_.MediaSession());
  int asked = 0;
  const Fault check("switch_event_fire", [&] {
    ++asked;
    return !std::async(std::launch::async, [&record] {
              return boost::unique_lock<boost::recursive_mutex>(record->mutex_, boost::try_to_lock).owns_lock();
            }).get();
  });
  EXPECT_EQ(leg_.Destroy(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(asked, 4);
  EXPECT_THAT(events_.All(), SizeIs(4));
}

TEST_F(RtcpEventFault, DestructionReadsTheStartTimeAfreshForEachReport) {
  int made = 0;
  const Fault changed("switch_event_create", [&] {
    if (++made == 2) leg_.Set("rtcpmon_start_time", "second");
    return true;
  });
  EXPECT_EQ(leg_.Destroy(), SWITCH_STATUS_SUCCESS);
  const auto sent = events_.All();
  ASSERT_THAT(sent, SizeIs(4));
  const char* const expected[] = {"first", "first", "second", "second"};
  for (std::size_t i = 0; i < sent.size(); ++i) EXPECT_EQ(sent[i].Header("Session-Start-Time"), expected[i]);
}

}  // namespace
}  // namespace module_test
