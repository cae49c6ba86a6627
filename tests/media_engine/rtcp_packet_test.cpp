// RTCP packets taken apart and put together, sound ones and damaged ones.
#include "rtcp_packet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <set>

#include "rtcp_bytes.h"

namespace media_engine_test {
namespace {

using media_engine::ReportBlock;
using media_engine::RtcpCompound;
using media_engine::RtcpPart;
using media_engine::RtcpWriter;
using media_engine::SenderInfo;

/// A compound in memory of its own and of exactly that size, so that a sanitizer sees any look beyond the end.
class Exactly {
 public:
  Exactly(const Bytes& data, std::size_t length)
      : octets_(std::make_unique<uint8_t[]>(length)), compound(Read(data, length)) {}
  explicit Exactly(const Bytes& data) : Exactly(data, data.size()) {}

 private:
  std::optional<RtcpCompound> Read(const Bytes& data, std::size_t length) {
    std::copy(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(length), octets_.get());
    return RtcpCompound::Parse(octets_.get(), length);
  }
  std::unique_ptr<uint8_t[]> octets_;

 public:
  std::optional<RtcpCompound> compound;
};

bool IsTaken(const Bytes& data) {
  return Exactly(data).compound.has_value();
}

/// Of everything read, so that it is read.
uint32_t checksum = 0;

/// Reads whatever its parts say there is.
unsigned ReadAll(RtcpCompound compound) {
  unsigned parts = 0;
  uint32_t sum = compound.reporter();
  for (RtcpPart part; compound.Next(part); ++parts) {
    const bool is_report = part.type() == media_engine::kSenderReport || part.type() == media_engine::kReceiverReport;
    if (part.type() == media_engine::kSenderReport) sum += part.sender().octets;
    for (unsigned i = 0; i < part.count(); ++i) {
      if (is_report) sum += part.block(i).since_sender_report;
      if (part.type() == media_engine::kGoodbye) sum += part.leaver(i);
    }
  }
  checksum += sum;
  return parts;
}

const RtcpSender kSender{0x83aa7e8040000000, 0x01020304, 1000, 160000};
const RtcpBlock kBlock{0xaabbccdd, 25, -3, 0x0001fffe, 77, 0x7e804000, 0x00054000};
const RtcpBlock kOther{5, 255, 0x7fffff, 6, 7, 8, 9};

/// Two blocks, a source description, a goodbye of two with a reason.
Bytes FullCompound() {
  return SenderReportBytes(0x11223344, kSender, {kBlock, kOther}) + CnameBytes(0x11223344, "phone@example") +
         GoodbyeBytes({0x11223344, 3}, "moved");
}

TEST(RtcpCompound, ReadsEveryField) {
  const Exactly read(FullCompound());
  ASSERT_TRUE(read.compound);
  RtcpCompound compound = *read.compound;
  EXPECT_EQ(compound.reporter(), 0x11223344u);
  RtcpPart part;
  ASSERT_TRUE(compound.Next(part));
  EXPECT_EQ(part.type(), 200);
  EXPECT_EQ(part.reporter(), 0x11223344u);
  EXPECT_EQ(part.sender().ntp, kSender.ntp);
  EXPECT_EQ(part.sender().rtp_timestamp, kSender.timestamp);
  EXPECT_EQ(part.sender().packets, kSender.packets);
  EXPECT_EQ(part.sender().octets, kSender.octets);
  ASSERT_EQ(part.count(), 2u);
  const ReportBlock block = part.block(0);
  EXPECT_EQ(block.ssrc, kBlock.ssrc);
  EXPECT_EQ(block.fraction_lost, kBlock.fraction);
  EXPECT_EQ(block.cumulative_lost, -3);
  EXPECT_EQ(block.highest_sequence, kBlock.highest);
  EXPECT_EQ(block.jitter, kBlock.jitter);
  EXPECT_EQ(block.last_sender_report, kBlock.lsr);
  EXPECT_EQ(block.since_sender_report, kBlock.dlsr);
  EXPECT_EQ(part.block(1).cumulative_lost, 0x7fffff);
  ASSERT_TRUE(compound.Next(part));
  EXPECT_EQ(part.type(), 202);
  ASSERT_TRUE(compound.Next(part));
  EXPECT_EQ(part.type(), 203);
  ASSERT_EQ(part.count(), 2u);
  EXPECT_EQ(part.leaver(1), 3u);
  EXPECT_FALSE(compound.Next(part));
}

TEST(RtcpCompound, ReceiverReportsHaveTheirBlocksEarlier) {
  const Exactly read(ReceiverReportBytes(9, {kBlock}));
  ASSERT_TRUE(read.compound);
  RtcpCompound compound = *read.compound;
  RtcpPart part;
  ASSERT_TRUE(compound.Next(part));
  EXPECT_EQ(part.type(), 201);
  EXPECT_EQ(part.reporter(), 9u);
  EXPECT_EQ(part.block(0).highest_sequence, kBlock.highest);
}

TEST(RtcpCompound, IsTakenOnlyWholeWhateverTheTruncation) {
  const Bytes whole = FullCompound();
  // Cut off between two of its packets it is a shorter compound.
  const std::size_t report = 28 + 2 * 24;
  const std::set<std::size_t> sound = {report, report + CnameBytes(1, "phone@example").size(), whole.size()};
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    const Exactly read(whole, length);
    EXPECT_EQ(read.compound.has_value(), sound.count(length) == 1) << length;
    if (!read.compound) continue;
    EXPECT_GE(ReadAll(*read.compound), 1u);
  }
}

TEST(RtcpCompound, EveryValueOfEveryOctetIsReadWithinThePacket) {
  const Bytes whole = FullCompound();
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (int value = 0; value < 256; ++value) {
      Bytes damaged = whole;
      damaged[at] = static_cast<uint8_t>(value);
      const Exactly read(damaged);
      if (!read.compound) continue;
      EXPECT_LE(ReadAll(*read.compound), whole.size() / 4);
    }
  }
}

TEST(RtcpCompound, LyingLengthsAndCountsAreRefused) {
  const auto with = [](std::size_t at, uint8_t value) {
    Bytes packet = FullCompound();
    packet[at] = value;
    return IsTaken(packet);
  };
  EXPECT_TRUE(with(0, 0x81));   // fewer blocks than there is room for
  EXPECT_FALSE(with(0, 0x83));  // more
  EXPECT_FALSE(with(0, 0x9f));
  EXPECT_FALSE(with(3, 17));  // the next packet would begin within this one
  EXPECT_FALSE(with(3, 0));
  EXPECT_FALSE(with(2, 0xff));   // longer than everything
  EXPECT_FALSE(with(76, 0xc1));  // a packet of version 3
  EXPECT_FALSE(with(0, 0x42));   // version 1
  EXPECT_FALSE(with(1, 202));    // no report at the beginning
  EXPECT_FALSE(with(1, 203));    //
  const std::size_t goodbye = FullCompound().size() - 20;
  EXPECT_TRUE(with(goodbye, 0x84));   // the reason, taken for two more that leave, lies within
  EXPECT_FALSE(with(goodbye, 0x85));  // more than there is room for
  EXPECT_FALSE(IsTaken({}));
  EXPECT_FALSE(IsTaken(Bytes(3, 0x80)));
  EXPECT_FALSE(IsTaken({0x80, 200, 0, 1, 0, 0, 0, 1}));  // a sender report without the sender's information
  EXPECT_TRUE(IsTaken({0x80, 201, 0, 1, 0, 0, 0, 1}));   // an empty receiver report
  EXPECT_FALSE(IsTaken({0x80, 201, 0, 0}));              // not even a reporter
}

TEST(RtcpCompound, PaddingIsAtTheEndOnlyAndWithinItsPacket) {
  const auto padded = [](std::size_t words, uint8_t says) {
    Bytes goodbye = GoodbyeBytes({1});
    goodbye[0] |= 0x20;
    goodbye[3] = static_cast<uint8_t>(1 + words);
    goodbye.insert(goodbye.end(), 4 * words, 0);
    goodbye.back() = says;
    return ReceiverReportBytes(1) + goodbye;
  };
  EXPECT_TRUE(IsTaken(padded(1, 4)));
  EXPECT_TRUE(IsTaken(padded(3, 12)));
  EXPECT_FALSE(IsTaken(padded(1, 0)));
  EXPECT_FALSE(IsTaken(padded(1, 3)));
  EXPECT_FALSE(IsTaken(padded(1, 8)));    // would swallow who leaves
  EXPECT_FALSE(IsTaken(padded(1, 252)));  // longer than the packet
  EXPECT_FALSE(IsTaken(padded(1, 4) + CnameBytes(1, "a")));
  Bytes report = ReceiverReportBytes(1, {kBlock}) + CnameBytes(1, "a");
  report[0] |= 0x20;
  EXPECT_FALSE(IsTaken(report));
}

TEST(RtcpCompound, WhatIsNotReadIsSteppedOver) {
  const Bytes extended = {0x82, 207, 0, 2, 0, 0, 0, 1, 0xff, 0xff, 0xff, 0xff};
  const Bytes careless_cname = {0x81, 202, 0, 2, 0, 0, 0, 1, 1, 2, 'a', 'b'};  // no null octet at the end
  const Exactly read(ReceiverReportBytes(1) + extended + careless_cname + GoodbyeBytes({1}));
  ASSERT_TRUE(read.compound);
  EXPECT_EQ(ReadAll(*read.compound), 4u);
}

Bytes Written(const std::function<void(RtcpWriter&)>& write) {
  Bytes room(RtcpWriter::kLongest + 1, 0xee);
  RtcpWriter writer(room.data());
  write(writer);
  EXPECT_EQ(room.back(), 0xee);
  room.resize(writer.length());
  return room;
}

TEST(RtcpWriter, WritesASenderReportOctetByOctet) {
  const Bytes expected = {
      0x81, 200,  0,    12,   0x11, 0x22, 0x33, 0x44,                         // one block, 13 words; SSRC
      0x83, 0xaa, 0x7e, 0x80, 0x40, 0x00, 0x00, 0x00, 0x01, 0x02, 0x03,       // NTP; RTP
      0x04, 0x00, 0x00, 0x03, 0xe8, 0x00, 0x02, 0x71, 0x00,                   // packets; octets
      0xaa, 0xbb, 0xcc, 0xdd, 25,   0xff, 0xff, 0xfd,                         // whose; fraction; -3
      0x00, 0x01, 0xff, 0xfe, 0x00, 0x00, 0x00, 0x4d,                         // highest; jitter
      0x7e, 0x80, 0x40, 0x00, 0x00, 0x05, 0x40, 0x00,                         // LSR; DLSR
      0x81, 202,  0,    3,    0x11, 0x22, 0x33, 0x44, 1,    4,    'a',  '@',  // one chunk; CNAME
      'b',  'c',  0,    0,                                                    //
      0x81, 203,  0,    1,    0x11, 0x22, 0x33, 0x44,
  };
  EXPECT_EQ(Written([](RtcpWriter& writer) {
              const SenderInfo sender{kSender.ntp, kSender.timestamp, kSender.packets, kSender.octets};
              const ReportBlock block{kBlock.ssrc,   kBlock.fraction, -3,         kBlock.highest,
                                      kBlock.jitter, kBlock.lsr,      kBlock.dlsr};
              writer.AddReport(0x11223344, &sender, &block);
              writer.AddCname(0x11223344, "a@bc");
              writer.AddGoodbye(0x11223344);
            }),
            expected);
}

TEST(RtcpWriter, LossesKeepTheirSignWithin24Bits) {
  for (const int32_t lost : {0, 1, -1, 0x7fffff, -0x800000}) {
    const Bytes packet = Written([&](RtcpWriter& writer) {
      ReportBlock block;
      block.cumulative_lost = lost;
      block.fraction_lost = 0x5a;
      writer.AddReport(1, nullptr, &block);
      writer.AddCname(1, "c");
    });
    const auto seen = ReadRtcp(packet);
    ASSERT_TRUE(seen) << lost;
    EXPECT_EQ(seen->blocks.at(0).lost, lost);
    EXPECT_EQ(seen->blocks.at(0).fraction, 0x5a);
  }
}

TEST(RtcpWriter, CnamesOfEveryLengthEndWithANullOctetAndAtAWord) {
  for (std::size_t length = 0; length <= 255; ++length) {
    const std::string cname(length, 'x');
    const Bytes packet = Written([&](RtcpWriter& writer) {
      const SenderInfo sender;
      const ReportBlock block;
      writer.AddReport(7, &sender, &block);
      writer.AddCname(7, cname);
      writer.AddGoodbye(7);
    });
    const auto seen = ReadRtcp(packet);
    ASSERT_TRUE(seen) << length;
    EXPECT_EQ(seen->cname, cname);
    EXPECT_EQ(seen->goodbyes, std::vector<uint32_t>{7});
    EXPECT_TRUE(IsTaken(packet)) << length;
  }
}

}  // namespace
}  // namespace media_engine_test
