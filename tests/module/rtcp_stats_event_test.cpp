#include <ctime>
#include <limits>

#include "module/media_callbacks_fixture.h"
#include "support/event_capture.h"

namespace module_test {
namespace {

using kelvaro::jsr309::RtcpStatsReport;
using test_support::CapturedEvent;
using test_support::debug_line;
using test_support::LogLine;
using test_support::warning_line;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Header = std::pair<std::string, std::string>;

const uint64_t kGuard = 4294967296;

// The core of the tests runs with debug-level 10: what is logged at DEBUG10 comes out as DEBUG.
const LogLine kInflowSent = debug_line("Dispatched RTCP event for inflow RTP\n");
const LogLine kOutflowSent = debug_line("Dispatched RTCP event for outflow RTP\n");

class RtcpStatsEvent : public testing::Test {
 protected:
  std::vector<CapturedEvent> Distribute(const RtcpStatsReport& report, const char* start_time = "2024-01-31 23:59:58") {
    log_.Clear();
    distribute_rtcpstats_event("leg-uuid", &report, "192.0.2.1", "192.0.2.2", start_time, "PCMA", 8000);
    return events_.All();
  }
  std::vector<LogLine> Lines() const { return log_.LinesOf({"rtcp_stats_event.cpp"}); }

  static RtcpStatsReport EveryFieldDifferent() {
    RtcpStatsReport report;
    report.lssRTPPacketsSent = 1001;
    report.lssBytesSent = 160160;
    report.lssSenderReportCnt = 3;
    report.lrsTotalLostRTPPacketsCnt = 4;
    report.lrsMaxFractionLost = 5;
    report.lrsMaxInterArrivalJitter = 6;
    report.lrsAvgInterArrivalJitter = 7;
    report.maxroundtriptime = 8;
    report.avgroundtriptime = 9;
    report.rssRTPPacketsSent = 1010;
    report.rssBytesSent = 161600;
    report.rssSenderReportCnt = 12;
    report.rrsTotalLostRTPPacketsCnt = 13;
    report.rrsMaxFractionLost = 14;
    report.rrsMaxInterArrivalJitter = 15;
    report.rrsAvgInterArrivalJitter = 16;
    return report;
  }

  test_support::EventCapture events_{SWITCH_EVENT_RECV_RTCP_MESSAGE};
  test_support::LogCapture log_;
};

std::vector<Header> without_times(const CapturedEvent& event) {
  std::vector<Header> headers = event.HeadersFrom("Unique-ID");
  for (Header& header : headers) {
    if (header.first == "Session-Stop-Time" || header.first == "Capture-Time") header.second = "some time";
  }
  return headers;
}

TEST_F(RtcpStatsEvent, SendsInflowThenOutflowWithTheirHeadersInOrder) {
  const auto sent = Distribute(EveryFieldDifferent());
  ASSERT_THAT(sent, SizeIs(2));
  EXPECT_THAT(without_times(sent[0]),
              ElementsAre(Header("Unique-ID", "leg-uuid"), Header("Inflow-RTP-Flag", "1"),
                          Header("Session-Stop-Time", "some time"), Header("Session-Start-Time", "2024-01-31 23:59:58"),
                          Header("Local-Member-IP", "192.0.2.1"), Header("Remote-Member-IP", "192.0.2.2"),
                          Header("Sender-Packet-Count", "1010"), Header("Octect-Packet-Count", "161600"),
                          Header("SR-Sent-Count", "12"), Header("Total-Lost-RTP-Packets", "4"),
                          Header("Maximum-Fraction-Lost", "5"), Header("Maximum-InterArrival-Jitter", "6"),
                          Header("Average-InterArrival-Jitter", "7"), Header("Maximum-Round-Trip-Time", "8"),
                          Header("Average-Round-Trip-Time", "9"), Header("Sip-Use-Codec", "PCMA"),
                          Header("Sip-Use-Codec-Rate", "8000"), Header("Capture-Time", "some time")));
  EXPECT_THAT(without_times(sent[1]),
              ElementsAre(Header("Unique-ID", "leg-uuid"), Header("Inflow-RTP-Flag", "0"),
                          Header("Session-Stop-Time", "some time"), Header("Session-Start-Time", "2024-01-31 23:59:58"),
                          Header("Local-Member-IP", "192.0.2.1"), Header("Remote-Member-IP", "192.0.2.2"),
                          Header("Sender-Packet-Count", "1001"), Header("Octect-Packet-Count", "160160"),
                          Header("SR-Sent-Count", "3"), Header("Total-Lost-RTP-Packets", "13"),
                          Header("Maximum-Fraction-Lost", "14"), Header("Maximum-InterArrival-Jitter", "15"),
                          Header("Average-InterArrival-Jitter", "16"), Header("Maximum-Round-Trip-Time", "8"),
                          Header("Average-Round-Trip-Time", "9"), Header("Sip-Use-Codec", "PCMA"),
                          Header("Sip-Use-Codec-Rate", "8000"), Header("Capture-Time", "some time")));
  for (const CapturedEvent& event : sent) EXPECT_EQ(event.Header("Event-Subclass"), "");
  EXPECT_THAT(Lines(), ElementsAre(kInflowSent, kOutflowSent));
}

TEST_F(RtcpStatsEvent, SpeaksOfEventsThatItSendsAtTheLastDebugLevelOnly) {
  const CoreDebugLevel next_to_last(9);
  EXPECT_THAT(Distribute(EveryFieldDifferent()), SizeIs(2));
  EXPECT_THAT(Lines(), IsEmpty());
}

TEST_F(RtcpStatsEvent, LeavesOutAStartTimeThatIsNotKnown) {
  for (const CapturedEvent& event : Distribute(EveryFieldDifferent(), nullptr)) {
    for (const Header& header : event.headers) EXPECT_NE(header.first, "Session-Start-Time");
    EXPECT_THAT(event.HeadersFrom("Unique-ID"), SizeIs(17));
  }
}

TEST_F(RtcpStatsEvent, GivesTheStopTimeAsPaddedLocalTime) {
  const time_t before = time(nullptr);
  const auto sent = Distribute(EveryFieldDifferent());
  const time_t after = time(nullptr);
  ASSERT_THAT(sent, SizeIs(2));
  for (const CapturedEvent& event : sent) {
    const std::string text = event.Header("Session-Stop-Time");
    EXPECT_THAT(text, testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}"));
    struct tm parsed = {};
    ASSERT_NE(strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &parsed), nullptr);
    parsed.tm_isdst = -1;
    const time_t stopped = mktime(&parsed);
    EXPECT_GE(stopped, before);
    EXPECT_LE(stopped, after);
  }
}

TEST_F(RtcpStatsEvent, GivesTheCaptureTimeInMicroseconds) {
  const switch_time_t before = switch_time_now();
  const auto sent = Distribute(EveryFieldDifferent());
  const switch_time_t after = switch_time_now();
  ASSERT_THAT(sent, SizeIs(2));
  for (const CapturedEvent& event : sent) {
    const long long captured = std::stoll(event.Header("Capture-Time"));
    EXPECT_GE(captured, before);
    EXPECT_LE(captured, after);
  }
}

TEST_F(RtcpStatsEvent, SendsCountsJustBelowTheGuard) {
  RtcpStatsReport report;
  report.rssRTPPacketsSent = kGuard - 1;
  report.lssRTPPacketsSent = kGuard - 1;
  const auto sent = Distribute(report);
  ASSERT_THAT(sent, SizeIs(2));
  for (const CapturedEvent& event : sent) EXPECT_EQ(event.Header("Sender-Packet-Count"), "4294967295");
}

TEST_F(RtcpStatsEvent, SendsNeitherEventWhenTheInflowCountCannotBeTrue) {
  for (const uint64_t count : {kGuard, std::numeric_limits<uint64_t>::max()}) {
    RtcpStatsReport report;
    report.rssRTPPacketsSent = count;
    EXPECT_THAT(Distribute(report), IsEmpty());
    EXPECT_THAT(Lines(), ElementsAre(warning_line("Abort firing rtcp stats for uuid leg-uuid inflow stream, because "
                                                  "packet count is abnormaly too big(" +
                                                  std::to_string(count) + ")\n")));
  }
}

TEST_F(RtcpStatsEvent, SendsTheInflowEventAloneWhenTheOutflowCountCannotBeTrue) {
  RtcpStatsReport report;
  report.lssRTPPacketsSent = kGuard;
  const auto sent = Distribute(report);
  ASSERT_THAT(sent, SizeIs(1));
  EXPECT_EQ(sent[0].Header("Inflow-RTP-Flag"), "1");
  EXPECT_THAT(Lines(),
              ElementsAre(kInflowSent, warning_line("Abort firing rtcp stats for uuid leg-uuid outflow stream, because "
                                                    "packet count is abnormaly too big(4294967296)\n")));
}

TEST_F(RtcpStatsEvent, NeverReportsMorePacketsLostThanSent) {
  RtcpStatsReport report;
  report.rssRTPPacketsSent = 10;
  report.lrsTotalLostRTPPacketsCnt = 12;
  report.lssRTPPacketsSent = 20;
  report.rrsTotalLostRTPPacketsCnt = 21;
  const auto sent = Distribute(report);
  ASSERT_THAT(sent, SizeIs(2));
  EXPECT_EQ(sent[0].Header("Total-Lost-RTP-Packets"), "10");
  EXPECT_EQ(sent[1].Header("Total-Lost-RTP-Packets"), "20");
  EXPECT_THAT(Lines(), ElementsAre(debug_line("Packets lost count (12) is bigger than packets sent count (10) for "
                                              "inflow stream uuid leg-uuid\n"),
                                   kInflowSent,
                                   debug_line("Packets lost count (21) is bigger than packets sent count (20) for "
                                              "outflow stream uuid leg-uuid\n"),
                                   kOutflowSent));
}

TEST_F(RtcpStatsEvent, ReportsAsManyLostAsSentWithoutAWord) {
  RtcpStatsReport report;
  report.rssRTPPacketsSent = 10;
  report.lrsTotalLostRTPPacketsCnt = 10;
  const auto sent = Distribute(report);
  ASSERT_THAT(sent, SizeIs(2));
  EXPECT_EQ(sent[0].Header("Total-Lost-RTP-Packets"), "10");
  EXPECT_THAT(Lines(), ElementsAre(kInflowSent, kOutflowSent));
}

TEST_F(RtcpStatsEvent, ReportsNoLossOfAStreamThatSentNothingWithoutAWord) {
  RtcpStatsReport report;
  report.lrsTotalLostRTPPacketsCnt = 5;
  report.rrsTotalLostRTPPacketsCnt = 5;
  const auto sent = Distribute(report);
  ASSERT_THAT(sent, SizeIs(2));
  for (const CapturedEvent& event : sent) EXPECT_EQ(event.Header("Total-Lost-RTP-Packets"), "0");
  EXPECT_THAT(Lines(), ElementsAre(kInflowSent, kOutflowSent));
}

TEST_F(RtcpStatsEvent, PrintsTheLargestFractionAndCounters) {
  RtcpStatsReport report;
  report.lrsMaxFractionLost = 255;
  report.rrsMaxFractionLost = 255;
  report.rssBytesSent = std::numeric_limits<uint64_t>::max();
  report.lssBytesSent = std::numeric_limits<uint64_t>::max();
  report.lrsMaxInterArrivalJitter = std::numeric_limits<uint32_t>::max();
  report.maxroundtriptime = std::numeric_limits<unsigned long>::max();
  const auto sent = Distribute(report);
  ASSERT_THAT(sent, SizeIs(2));
  for (const CapturedEvent& event : sent) {
    EXPECT_EQ(event.Header("Maximum-Fraction-Lost"), "255");
    EXPECT_EQ(event.Header("Octect-Packet-Count"), "18446744073709551615");
    EXPECT_EQ(event.Header("Maximum-Round-Trip-Time"), "18446744073709551615");
  }
  EXPECT_EQ(sent[0].Header("Maximum-InterArrival-Jitter"), "4294967295");
}

}  // namespace
}  // namespace module_test
