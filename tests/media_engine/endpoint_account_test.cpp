// What the log says of an endpoint's packets when it ends.
#include "endpoint_account.h"

#include "engine_fixture.h"
#include "srtp_fixture.h"

namespace media_engine_test {
namespace {

TEST(EndpointAccounts, TellEveryFigureOfTheJitterBuffer) {
  EndpointStatistics statistics;
  statistics.jitter_buffer_delay_ms = 40;
  statistics.jitter_buffer_reordered = 12;
  statistics.jitter_buffer_late = 3;
  statistics.jitter_buffer_duplicates = 1;
  statistics.jitter_buffer_overflows = 4;
  statistics.jitter_buffer_discarded = 2;
  statistics.rtp_packets_received = 500;
  EXPECT_EQ(
      media_engine::JitterBufferAccount(statistics),
      "jitter buffer: delay 40 ms, reordered 12, late 3, duplicates 1, without room 4, discarded 2, of 500 packets");
}

TEST(EndpointAccounts, TellOfDroppedPacketsWhatIsNotZero) {
  EndpointStatistics statistics;
  statistics.rtp_packets_received = 500;
  statistics.not_joined = statistics.on_hold = 7;
  EXPECT_EQ(media_engine::DroppedAccount(statistics), "");
  statistics.srtp_replayed = 2;
  EXPECT_EQ(media_engine::DroppedAccount(statistics), "dropped: SRTP replayed 2");
  statistics.strangers = 1;
  statistics.rtcp_strangers = 3;
  statistics.malformed = 4;
  statistics.rtcp_malformed = 5;
  statistics.oversized = 6;
  statistics.unknown_payload_types = 12;
  statistics.srtp_unauthentic = 7;
  statistics.srtp_sources_exceeded = 8;
  statistics.srtp_key_expired = 9;
  statistics.srtp_missing = 10;
  statistics.srtp_unsendable = 11;
  statistics.untranslatable = 13;
  statistics.late = 14;
  statistics.srtp_duplicates = 15;
  EXPECT_EQ(media_engine::DroppedAccount(statistics),
            "dropped: from strangers 1, RTCP from strangers 3, no valid RTP 4, no valid RTCP 5, too long 6, of payload "
            "types that nobody described 12, that the other leg cannot take 13, too late to be passed on 14, SRTP not "
            "authentic 7, SRTP replayed 2, SRTP of too many sources 8, SRTP "
            "with keys that have served their time 9, without the keys that are mandatory 10, SRTP that could not be "
            "protected 11, duplicates that SRTP does not send 15");
}

class EndpointAccount : public SrtpTest {
 protected:
  static std::string Places(const Leg& leg) {
    return " at 127.0.0.1:" + std::to_string(leg.local.rtp_port) + ", far end at " + leg.far_end->address().Text() +
           ": ";
  }
  static void Deliver(const Leg& leg, uint16_t number) {
    const uint64_t before = leg.Statistics().rtp_packets_received;
    leg.SendRun(number, 1);
    ASSERT_TRUE(Eventually([&] { return leg.Statistics().rtp_packets_received > before; }));
  }
  std::size_t Lines() const { return log_.Count(LogLevel::kNotice, "endpoint "); }
};

TEST_F(EndpointAccount, OfAJitterBufferComesOnceWhenTheEndpointEnds) {
  Leg a = NewCallLeg(*session_);
  const Leg b = NewCallLeg(*session_);
  LocalSettings settings = LocalFor(Pcmu());
  settings.jitter_buffer = JitterBufferSettings{JitterMode::kStatic, 60, std::nullopt, std::nullopt};
  ASSERT_TRUE(a.endpoint->DescribeLocal(settings, a.local, kLimit).ok);
  JoinThem(a, b);
  for (const uint16_t number : {1, 3, 2, 2}) Deliver(a, number);
  clock_->Advance(milliseconds{200});
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(b.far_end->ReceiveRtp());
  Deliver(a, 4);  // 60 ms of delay and 60 ms of speech ago
  Deliver(a, 11);
  ASSERT_EQ(Lines(), 0u);
  ASSERT_TRUE(a.endpoint->Close(kLimit).ok);
  EXPECT_TRUE(log_.Has(LogLevel::kNotice, Places(a) + "jitter buffer: delay 60 ms, reordered 1, late 1, duplicates 1, "
                                                      "without room 0, discarded 1, of 6 packets"));
  EXPECT_EQ(Lines(), 1u);
}

TEST_F(EndpointAccount, OfAJitterBufferThatWasTakenAwayComesTheSame) {
  Leg a = NewCallLeg(*session_);
  LocalSettings settings = LocalFor(Pcmu());
  for (const JitterMode mode : {JitterMode::kAdaptive, JitterMode::kNone}) {
    settings.jitter_buffer = JitterBufferSettings{mode, std::nullopt, std::nullopt, std::nullopt};
    ASSERT_TRUE(a.endpoint->DescribeLocal(settings, a.local, kLimit).ok);
  }
  ASSERT_TRUE(a.endpoint->Close(kLimit).ok);
  EXPECT_TRUE(log_.Has(LogLevel::kNotice, "jitter buffer: delay 0 ms"));
}

TEST_F(EndpointAccount, OfStrangersAndDamagedPacketsComesWhenThereWereAny) {
  const Leg a = NewCallLeg(*session_), b = NewCallLeg(*session_);
  const FarEnd stranger;
  JoinThem(a, b);
  for (uint16_t number = 1; number <= 3; ++number) stranger.SendRtp({0, number, 0, 1, false, {}}, a.local.rtp_port);
  stranger.SendRtcp({1}, a.local.rtcp_port);
  a.far_end->Send({1, 2, 3}, a.local.rtp_port);
  a.far_end->SendRtcp({0x80}, a.local.rtcp_port);
  Deliver(a, 1);
  ASSERT_TRUE(Eventually([&] { return a.Statistics().rtcp_malformed == 1 && a.Statistics().rtcp_strangers == 1; }));
  ASSERT_TRUE(a.endpoint->Close(kLimit).ok);
  EXPECT_TRUE(log_.Has(LogLevel::kNotice, Places(a) +
                                              "dropped: from strangers 3, RTCP from strangers 1, no valid RTP 1, "
                                              "no valid RTCP 1"));
  ASSERT_TRUE(b.endpoint->Close(kLimit).ok);
  EXPECT_EQ(Lines(), 1u);  // nothing was wrong with b
  Leg early = NewLeg(*session_);
  ASSERT_TRUE(early.endpoint->DescribeLocal(LocalFor(Pcmu()), early.local, kLimit).ok);
  early.SendRun(1, 1);  // ahead of its answer, as often happens
  ASSERT_TRUE(Eventually([&] { return early.Statistics().too_early == 1; }));
  ASSERT_TRUE(early.endpoint->Close(kLimit).ok);
  EXPECT_EQ(Lines(), 1u);
}

TEST_F(EndpointAccount, OfPacketsThatTheOtherLegCannotTakeComesAtTheLegTheyCameTo) {
  const Leg a = NewCallLeg(*session_, Pcmu(), 101), b = NewCallLeg(*session_);
  JoinThem(a, b);
  Deliver(a, 1);
  for (uint16_t number = 2; number <= 4; ++number) a.SendRun(number, 1, 101);
  ASSERT_TRUE(Eventually([&] { return a.Statistics().untranslatable == 3; }));
  ASSERT_TRUE(a.endpoint->Close(kLimit).ok);
  EXPECT_TRUE(log_.Has(LogLevel::kNotice, Places(a) + "dropped: that the other leg cannot take 3"));
  ASSERT_TRUE(b.endpoint->Close(kLimit).ok);
  EXPECT_EQ(Lines(), 1u);
}

TEST_F(EndpointAccount, OfPacketsThatTheNetworkDoubledOnTheirWayToSrtpCallsThemDuplicates) {
  const Leg a = NewCallLeg(*session_);
  const SecureLeg b = NewSecureLeg(3, 4);
  JoinThem(a, b.leg);
  for (const uint16_t number : {1, 2, 2, 3, 3}) Deliver(a, number);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(b.Receive());
  EXPECT_FALSE(b.leg.far_end->Receive(milliseconds{0}));
  ASSERT_TRUE(b.leg.endpoint->Close(kLimit).ok);
  EXPECT_TRUE(log_.Has(LogLevel::kNotice, Places(b.leg) + "dropped: duplicates that SRTP does not send 2"));
  EXPECT_EQ(Lines(), 1u);
}

TEST_F(EndpointAccount, OfReplaysAndForgedPacketsComesOnceForAllOfThem) {
  const SecureLeg a = NewSecureLeg(1, 2), b = NewSecureLeg(3, 4);
  JoinThem(a.leg, b.leg);
  ASSERT_TRUE(Flows(a, b, 1));
  const auto again = a.sends->Rtp(Serialise({0, 2, 320, 0x11111111, false, PayloadOf(2)}));
  for (int i = 0; i < 3; ++i) a.leg.far_end->Send(*again, a.leg.local.rtp_port);
  for (int i = 0; i < 4; ++i) a.leg.far_end->SendRtp({0, 9, 9, 9, false, PayloadOf(9)}, a.leg.local.rtp_port);
  ASSERT_TRUE(Eventually([&] { return a.leg.Statistics().srtp_unauthentic == 4; }));
  ASSERT_TRUE(a.leg.endpoint->Close(kLimit).ok);
  EXPECT_TRUE(log_.Has(LogLevel::kNotice, Places(a.leg) + "dropped: SRTP not authentic 4, SRTP replayed 2"));
  EXPECT_EQ(Lines(), 1u);
}

}  // namespace
}  // namespace media_engine_test
