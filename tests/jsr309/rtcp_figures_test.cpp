#include "rtpengine/rtcp_figures.h"

#include <gtest/gtest.h>

namespace {

using namespace kelvaro::jsr309;
using namespace kelvaro::jsr309::rtpengine;
using List = Bencode::List;

Dictionary Endpoint(const char* address, int port) {
  return {{"family", "IPv4"}, {"address", address}, {"port", port}};
}
Dictionary Stream(int packets, int octets, int errors, int64_t ssrc, List flags, const Dictionary& endpoint) {
  return {{"stats", Dictionary{{"packets", packets}, {"bytes", octets}, {"errors", errors}}},
          {"SSRC", ssrc},
          {"flags", std::move(flags)},
          {"endpoint", endpoint}};
}
Dictionary Side(const Dictionary& rtp, List media_flags) {
  const Dictionary rtcp = Stream(2, 100, 0, 0, {"RTCP"}, Endpoint("192.0.2.7", 4011));
  return {{"medias", List{Dictionary{{"flags", std::move(media_flags)}, {"streams", List{rtp, rtcp}}}}}};
}
Dictionary Sample(int jitter, int loss, int round_trip, int of_leg) {
  return {{"jitter", jitter}, {"packet loss", loss}, {"round-trip time", round_trip}, {"round-trip time leg", of_leg}};
}
Dictionary Query(const Dictionary& leg, const Dictionary& bus, const Dictionary& sources) {
  return {{"result", "ok"}, {"tags", Dictionary{{"leg", leg}, {"bus", bus}}}, {"SSRC", sources}};
}

TEST(RtcpFigures, ComeFromBothSidesOfTheCallAndTheReportsOfBothFarEnds) {
  // Under each source stands what it says of the other's stream.
  const Dictionary said_by_far_end = {{"cumulative loss", 4},
                                      {"average MOS", Sample(2, 1, 90000, 30400)},
                                      {"highest MOS", Sample(1, 0, 80000, 20000)},
                                      {"lowest MOS", Sample(5, 10, 120000, 60600)}};
  const Dictionary said_by_other = {{"cumulative loss", 7}, {"average MOS", Sample(3, 50, 1, 1)}};
  const Dictionary query = Query(Side(Stream(50, 8600, 0, 17, {}, Endpoint("192.0.2.7", 4010)), {}),
                                 Side(Stream(42, 40 * 172, 2, 34, {}, Endpoint("192.0.2.8", 4020)), {}),
                                 {{"17", said_by_far_end}, {"34", said_by_other}});
  const auto reports = ReadReports(query, 16000);
  ASSERT_EQ(reports.size(), 1u);
  const RtcpStatsReport& report = reports[0];
  EXPECT_EQ(report.lssRTPPacketsSent, 40u);
  EXPECT_EQ(report.lssBytesSent, 40u * 160u);
  EXPECT_EQ(report.rrsTotalLostRTPPacketsCnt, 4u);
  EXPECT_EQ(report.rrsMaxFractionLost, 25);
  EXPECT_EQ(report.rrsAvgInterArrivalJitter, 32u);
  EXPECT_EQ(report.rrsMaxInterArrivalJitter, 80u);
  EXPECT_EQ(report.avgroundtriptime, 30u);
  EXPECT_EQ(report.maxroundtriptime, 61u);
  EXPECT_EQ(report.lrsTotalLostRTPPacketsCnt, 7u);
  EXPECT_EQ(report.lrsMaxFractionLost, 128);
  EXPECT_EQ(report.lrsAvgInterArrivalJitter, 48u);
  // What the sender reports said is not told: packets that came stand for those that were sent.
  EXPECT_EQ(report.rssRTPPacketsSent, 50u);
  EXPECT_EQ(report.rssBytesSent, 50u * 160u);
  EXPECT_EQ(report.rssSenderReportCnt + report.lssSenderReportCnt, 0u);
}

TEST(RtcpFigures, ThereAreNoneBeforeTheFirstPacketOrFromARepliesThatSayNothing) {
  const Dictionary quiet = Side(Stream(3, 600, 3, 0, {}, Endpoint("192.0.2.7", 4010)), {});
  EXPECT_TRUE(ReadReports(Query(quiet, quiet, {}), 8000).empty());
  EXPECT_TRUE(ReadReports({}, 8000).empty());
  EXPECT_TRUE(ReadReports({{"tags", 7}}, 8000).empty());
  EXPECT_TRUE(ReadReports({{"tags", Dictionary{{"leg", Dictionary{{"medias", List{"x"}}}}}}}, 8000).empty());
  EXPECT_TRUE(ReadFoundPlace({}).empty());
  EXPECT_EQ(ReadFigures({}, "leg").packets, 0u);
}

TEST(RtcpFigures, AFarEndIsFoundOnceTheDaemonHasMadeUpItsMindOnWhereItIs) {
  const auto found = [](List flags, List media_flags) {
    const Dictionary leg =
        Side(Stream(1, 172, 0, 1, std::move(flags), Endpoint("192.0.2.7", 4010)), std::move(media_flags));
    return ReadFoundPlace(Query(leg, leg, {}));
  };
  EXPECT_EQ(found({"RTP", "confirmed"}, {"send"}), (NgPlace{"192.0.2.7", 4010, 4011}));
  EXPECT_TRUE(found({"RTP", "filled"}, {"send"}).empty());
  EXPECT_TRUE(found({"RTP", "confirmed"}, {"asymmetric"}).empty());
}

}  // namespace
