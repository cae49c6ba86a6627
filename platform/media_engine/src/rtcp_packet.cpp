#include "rtcp_packet.h"

#include <algorithm>
#include <cstring>

#include "network_order.h"

namespace media_engine {
namespace {

constexpr uint8_t kVersion = 2;
constexpr std::size_t kHeaderLength = 4;
constexpr std::size_t kSenderInfoLength = 20;
constexpr std::size_t kBlockLength = 24;
constexpr uint8_t kCnameItem = 1;

bool IsReport(uint8_t type) {
  return type == kSenderReport || type == kReceiverReport;
}
bool HasPadding(const uint8_t* part) {
  return (part[0] & 0x20) != 0;
}
unsigned CountOf(const uint8_t* part) {
  return part[0] & 0x1f;
}
/// In octets; the field counts words and leaves out the first.
std::size_t LengthOf(const uint8_t* part) {
  return kHeaderLength * (std::size_t{1} + Read16(part + 2));
}

std::size_t BlocksBegin(uint8_t type) {
  return kHeaderLength + 4 + (type == kSenderReport ? kSenderInfoLength : 0);
}

/// How long a part must be for what is read in it.
std::size_t LengthNeeded(const uint8_t* part) {
  const uint8_t type = part[1];
  if (IsReport(type)) return BlocksBegin(type) + kBlockLength * CountOf(part);
  if (type == kGoodbye) return kHeaderLength + std::size_t{4} * CountOf(part);
  return kHeaderLength;
}

/// None when the padding is not what A.2 and section 6.4.1 allow: at the end only, a multiple of four octets.
std::optional<std::size_t> PaddingOf(const uint8_t* part, std::size_t length, bool first, bool last) {
  if (!HasPadding(part)) return 0;
  if (first || !last) return std::nullopt;
  const std::size_t padding = part[length - 1];
  if (padding == 0 || padding % 4 != 0 || padding > length - kHeaderLength) return std::nullopt;
  return padding;
}

}  // namespace

std::optional<RtcpCompound> RtcpCompound::Parse(const uint8_t* data, std::size_t length) {
  std::size_t offset = 0;
  while (offset < length) {
    const uint8_t* const part = data + offset;
    const bool first = offset == 0;
    if (length - offset < kHeaderLength || part[0] >> 6 != kVersion) return std::nullopt;
    if (first && !IsReport(part[1])) return std::nullopt;
    const std::size_t part_length = LengthOf(part);
    if (part_length > length - offset) return std::nullopt;
    const auto padding = PaddingOf(part, part_length, first, offset + part_length == length);
    if (!padding || part_length - *padding < LengthNeeded(part)) return std::nullopt;
    offset += part_length;
  }
  if (length == 0) return std::nullopt;
  return RtcpCompound(data, length);
}

uint32_t RtcpCompound::reporter() const {
  return Read32(data_ + kHeaderLength);
}

bool RtcpCompound::Next(RtcpPart& part) {
  if (offset_ == length_) return false;
  part.data_ = data_ + offset_;
  part.type_ = part.data_[1];
  part.count_ = static_cast<uint8_t>(CountOf(part.data_));
  offset_ += LengthOf(part.data_);
  return true;
}

uint32_t RtcpPart::reporter() const {
  return Read32(data_ + kHeaderLength);
}

SenderInfo RtcpPart::sender() const {
  const uint8_t* const from = data_ + kHeaderLength + 4;
  return {Read64(from), Read32(from + 8), Read32(from + 12), Read32(from + 16)};
}

ReportBlock RtcpPart::block(unsigned i) const {
  const uint8_t* const from = data_ + BlocksBegin(type_) + kBlockLength * i;
  ReportBlock block;
  block.ssrc = Read32(from);
  block.fraction_lost = from[4];
  const auto lost = static_cast<int32_t>(Read32(from + 4) & 0xffffff);
  block.cumulative_lost = lost < 0x800000 ? lost : lost - 0x1000000;
  block.highest_sequence = Read32(from + 8);
  block.jitter = Read32(from + 12);
  block.last_sender_report = Read32(from + 16);
  block.since_sender_report = Read32(from + 20);
  return block;
}

uint32_t RtcpPart::leaver(unsigned i) const {
  return Read32(data_ + kHeaderLength + std::size_t{4} * i);
}

uint8_t* RtcpWriter::Add(uint8_t type, unsigned count, std::size_t length) {
  uint8_t* const part = to_ + length_;
  part[0] = static_cast<uint8_t>(kVersion << 6 | count);
  part[1] = type;
  Write16(static_cast<uint16_t>(length / 4 - 1), part + 2);
  length_ += length;
  return part + kHeaderLength;
}

void RtcpWriter::AddReport(uint32_t ssrc, const SenderInfo* sender, const ReportBlock* block) {
  const uint8_t type = sender != nullptr ? kSenderReport : kReceiverReport;
  const std::size_t blocks = block != nullptr ? 1 : 0;
  uint8_t* to = Add(type, static_cast<unsigned>(blocks), BlocksBegin(type) + kBlockLength * blocks);
  Write32(ssrc, to);
  to += 4;
  if (sender != nullptr) {
    Write64(sender->ntp, to);
    Write32(sender->rtp_timestamp, to + 8);
    Write32(sender->packets, to + 12);
    Write32(sender->octets, to + 16);
    to += kSenderInfoLength;
  }
  if (block == nullptr) return;
  Write32(block->ssrc, to);
  Write32(static_cast<uint32_t>(block->cumulative_lost) & 0xffffff, to + 4);
  to[4] = block->fraction_lost;
  Write32(block->highest_sequence, to + 8);
  Write32(block->jitter, to + 12);
  Write32(block->last_sender_report, to + 16);
  Write32(block->since_sender_report, to + 20);
}

void RtcpWriter::AddCname(uint32_t ssrc, const std::string& cname) {
  const std::size_t text = std::min(cname.size(), kLongestCname);
  // The list of items ends with a null octet at least, and at a word's end (section 6.5).
  const std::size_t item = 2 + text;
  const std::size_t padding = 4 - item % 4;
  uint8_t* const to = Add(kSourceDescription, 1, kHeaderLength + 4 + item + padding);
  Write32(ssrc, to);
  to[4] = kCnameItem;
  to[5] = static_cast<uint8_t>(text);
  std::memcpy(to + 6, cname.data(), text);
  std::memset(to + 6 + text, 0, padding);
}

void RtcpWriter::AddGoodbye(uint32_t ssrc) {
  Write32(ssrc, Add(kGoodbye, 1, kHeaderLength + 4));
}

}  // namespace media_engine
