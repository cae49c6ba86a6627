// The phones' RTCP is checked: two of them, and a path whose losses and delays are known.

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "support/rtp_reporter.h"

namespace test_support {
namespace {

using std::chrono::milliseconds;
using Time = RtcpReporter::Time;

constexpr std::uint32_t kSsrc = 0x11111111;
constexpr std::uint32_t kFarSsrc = 0x22222222;

RtpPacket packet(std::uint32_t ssrc, unsigned number) {
  RtpPacket made;
  made.sequence = static_cast<std::uint16_t>(65530 + number);  // wraps after the sixth
  made.timestamp = 0xffffff00u + 160 * number;
  made.ssrc = ssrc;
  made.payload.resize(160);
  return made;
}

std::uint32_t word(const std::vector<std::uint8_t>& data, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) value = (value << 8) | data.at(at + i);
  return value;
}

class Reporter : public testing::Test {
 protected:
  static Time At(int ms) { return Time(std::chrono::hours(1)) + milliseconds(ms); }

  /// So many packets, 20 ms apart; those for which `lost` is true do not arrive.
  template <typename Lost>
  void Stream(unsigned count, Lost lost) {
    for (unsigned number = 0; number < count; ++number) {
      const int now = static_cast<int>(20 * number);
      far_.Sent(packet(kFarSsrc, number), At(now));
      if (!lost(number)) own_.Heard(packet(kFarSsrc, number), At(now + 5));
    }
  }

  RtcpReporter own_{kSsrc, 8000};
  RtcpReporter far_{kFarSsrc, 8000};
};

TEST_F(Reporter, CountsWhatWasSentInASenderReport) {
  Stream(50, [](unsigned) { return false; });
  const auto report = far_.Report(At(1000));
  EXPECT_EQ(word(report, 0) >> 16, 0x80c8u) << "SR, no block";
  EXPECT_EQ(word(report, 4), kFarSsrc);
  EXPECT_EQ(word(report, 20), 50u);
  EXPECT_EQ(word(report, 24), 8000u);
  EXPECT_EQ(word(report, 16), 0xffffff00u + 160 * 49 + 160) << "20 ms after the last packet";
  EXPECT_EQ(word(report, 28) >> 16, 0x81cau) << "SDES, one source";
  EXPECT_EQ(report.at(36), 1) << "CNAME";
  own_.HeardReport(report, At(1003));
  EXPECT_EQ(own_.Account().heard_sender_reports, 1u);
  EXPECT_EQ(own_.Account().heard_packets_sent, 50u);
  EXPECT_EQ(own_.Account().malformed, 0u);
  EXPECT_EQ(far_.Account().packets_sent, 50u);
  EXPECT_EQ(far_.Account().octets_sent, 8000u);
}

TEST_F(Reporter, ReportsLossesAndTheirFraction) {
  Stream(50, [](unsigned number) { return number % 10 == 5; });
  const auto report = own_.Report(At(1000));
  EXPECT_EQ(word(report, 0) >> 16, 0x81c9u) << "RR with a block: nothing was sent";
  EXPECT_EQ(word(report, 8), kFarSsrc);
  EXPECT_EQ(word(report, 12), (25u << 24) | 5u) << "5 of 50, in 1/256";
  EXPECT_EQ(word(report, 16) & 0xffff, (65530u + 49) & 0xffff);
  EXPECT_EQ(word(report, 16) >> 16, 1u) << "one wrap";
  EXPECT_EQ(word(report, 20), 0u) << "no jitter";
  EXPECT_EQ(own_.Account().lost, 5);
  far_.HeardReport(report, At(1001));
  EXPECT_EQ(far_.Account().heard_blocks, 1u);
  EXPECT_EQ(far_.Account().heard_lost, 5);
  EXPECT_EQ(word(own_.Report(At(1100)), 12), 5u) << "nothing more lost since";
}

TEST_F(Reporter, MeasuresJitter) {
  for (unsigned number = 0; number < 400; ++number) {
    own_.Heard(packet(kFarSsrc, number), At(static_cast<int>(20 * number + (number % 2 != 0 ? 10 : 0))));
  }
  EXPECT_NEAR(word(own_.Report(At(8000)), 20), 80, 2) << "10 ms at 8000 Hz";
}

TEST_F(Reporter, EchoesTheLastSenderReportWithTheTimeSince) {
  Stream(3, [](unsigned) { return false; });
  const auto sent = far_.Report(At(100));
  own_.HeardReport(sent, At(110));
  const auto answer = own_.Report(At(360));
  const std::uint32_t middle = (word(sent, 8) << 16) | (word(sent, 12) >> 16);
  EXPECT_EQ(word(answer, 24), middle);
  EXPECT_NEAR(word(answer, 28), 65536 / 4, 2) << "250 ms";
}

TEST_F(Reporter, CountsWhatIsNoCompoundPacket) {
  Stream(3, [](unsigned) { return false; });
  auto report = far_.Report(At(100));
  own_.HeardReport({0x80, 200, 0}, At(101));
  own_.HeardReport({0x80, 200, 0, 9, 1, 2, 3, 4}, At(101));
  own_.HeardReport(std::vector<std::uint8_t>(report.begin() + 28, report.end()), At(101));  // SDES alone
  report.push_back(0);
  own_.HeardReport(report, At(101));
  EXPECT_EQ(own_.Account().malformed, 4u);
}

}  // namespace
}  // namespace test_support
