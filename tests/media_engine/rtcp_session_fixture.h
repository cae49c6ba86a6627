/// An endpoint's RTCP without sockets: what it hears, sends and is told, at times that the test says.
#pragma once

#include <gtest/gtest.h>

#include <array>

#include "rtcp_bytes.h"
#include "rtcp_session.h"

namespace media_engine_test {

using media_engine::NtpTimeline;
using media_engine::Reception;
using media_engine::RtcpCompound;
using media_engine::RtcpSession;
using media_engine::RtcpWriter;
using media_engine::RtpHeader;
using media_engine::StreamRecord;
using media_engine::StreamStatistics;
using media_engine::TimePoint;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr uint32_t kOurs = 0xaaaa0001, kTheirs = 0xbbbb0001;

inline uint32_t MiddleDraw() {
  return 0x80000000;
}

/// The monotonic clock's zero is NTP 0xb44db700.00000000.
inline NtpTimeline Timeline() {
  constexpr int64_t kFrom1900To1970 = 2208988800;
  return NtpTimeline(TimePoint(),
                     std::chrono::system_clock::time_point(seconds{int64_t{0xb44db700} - kFrom1900To1970}));
}

inline TimePoint At(double time) {
  return TimePoint(std::chrono::duration_cast<TimePoint::duration>(std::chrono::duration<double>(time)));
}

class Rtcp : public testing::Test {
 protected:
  void Hear(uint16_t number, uint32_t ssrc = kTheirs) {
    RtpHeader header;
    header.sequence_number = number;
    header.ssrc = ssrc;
    if (reception_.IsNewSource(ssrc)) session_.BeginSource(reception_);
    reception_.Count(header, 0, TimePoint());
  }
  void Send(unsigned packets) {
    for (unsigned i = 0; i < packets; ++i) session_.CountSent(ssrc_, 160);
  }
  RtcpSeen Report(double time, bool last = false, uint32_t timestamp = 0, bool sent = true) {
    std::array<uint8_t, RtcpWriter::kLongest> room;
    const auto report = session_.WriteReport(reception_, timestamp, last, At(time), room.data());
    session_.Reported(report, sent, reception_, At(time));
    return Read(room, report.length);
  }
  static RtcpSeen Read(const std::array<uint8_t, RtcpWriter::kLongest>& room, std::size_t length) {
    const auto seen = ReadRtcp(Bytes(room.begin(), room.begin() + static_cast<std::ptrdiff_t>(length)));
    EXPECT_TRUE(seen);
    return seen.value_or(RtcpSeen());
  }
  void Take(const Bytes& packet, double time) {
    const auto compound = RtcpCompound::Parse(packet.data(), packet.size());
    ASSERT_TRUE(compound);
    session_.Take(*compound, reception_, At(time));
  }
  StreamStatistics Stream() const { return session_.Streams(reception_).back(); }

  uint32_t ssrc_ = kOurs;
  Reception reception_;
  RtcpSession session_{Timeline(), kOurs, MiddleDraw};
};

}  // namespace media_engine_test
