#include "rtcp_bytes.h"

namespace media_engine_test {
namespace {

void Append(Bytes& to, uint64_t value, int octets) {
  for (int i = octets - 1; i >= 0; --i) to.push_back(static_cast<uint8_t>(value >> 8 * i));
}

uint64_t Number(const Bytes& from, std::size_t at, std::size_t octets) {
  uint64_t value = 0;
  for (std::size_t i = 0; i < octets; ++i) value = value << 8 | from.at(at + i);
  return value;
}

uint32_t Word(const Bytes& from, std::size_t at) {
  return static_cast<uint32_t>(Number(from, at, 4));
}

/// Header in front of a body, whose length is a multiple of four.
Bytes Packet(uint8_t type, std::size_t count, const Bytes& body) {
  Bytes packet = {static_cast<uint8_t>(0x80 | count), type};
  Append(packet, body.size() / 4, 2);
  return packet + body;
}

void AppendBlocks(Bytes& to, const std::vector<RtcpBlock>& blocks) {
  for (const RtcpBlock& block : blocks) {
    Append(to, block.ssrc, 4);
    Append(to, block.fraction, 1);
    Append(to, static_cast<uint32_t>(block.lost), 3);
    for (const uint32_t word : {block.highest, block.jitter, block.lsr, block.dlsr}) Append(to, word, 4);
  }
}

RtcpBlock ReadBlock(const Bytes& from, std::size_t at) {
  RtcpBlock block;
  block.ssrc = Word(from, at);
  block.fraction = from.at(at + 4);
  block.lost = static_cast<int32_t>(Number(from, at + 5, 3) << 8) >> 8;
  block.highest = Word(from, at + 8);
  block.jitter = Word(from, at + 12);
  block.lsr = Word(from, at + 16);
  block.dlsr = Word(from, at + 20);
  return block;
}

/// What follows the report, as far as it is right.
bool ReadRest(const Bytes& packet, std::size_t at, RtcpSeen& seen) {
  const std::size_t cname_end = at + 4 + 4 * Number(packet, at + 2, 2);
  if (packet.at(at) != 0x81 || packet.at(at + 1) != 202 || cname_end > packet.size()) return false;
  seen.cname_of = Word(packet, at + 4);
  const std::size_t length = packet.at(at + 9);
  if (packet.at(at + 8) != 1 || at + 10 + length >= cname_end) return false;
  seen.cname.assign(packet.begin() + static_cast<std::ptrdiff_t>(at + 10),
                    packet.begin() + static_cast<std::ptrdiff_t>(at + 10 + length));
  for (std::size_t i = at + 10 + length; i < cname_end; ++i) {
    if (packet[i] != 0) return false;
  }
  if (cname_end == packet.size()) return true;
  if (packet.at(cname_end + 1) != 203) return false;
  const std::size_t leavers = packet.at(cname_end) & 0x1f;
  for (std::size_t i = 0; i < leavers; ++i) seen.goodbyes.push_back(Word(packet, cname_end + 4 + 4 * i));
  return Number(packet, cname_end + 2, 2) == leavers && cname_end + 4 + 4 * leavers == packet.size();
}

}  // namespace

Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bytes SenderReportBytes(uint32_t ssrc, const RtcpSender& sender, const std::vector<RtcpBlock>& blocks) {
  Bytes body;
  Append(body, ssrc, 4);
  Append(body, sender.ntp, 8);
  for (const uint32_t word : {sender.timestamp, sender.packets, sender.octets}) Append(body, word, 4);
  AppendBlocks(body, blocks);
  return Packet(200, blocks.size(), body);
}

Bytes ReceiverReportBytes(uint32_t ssrc, const std::vector<RtcpBlock>& blocks) {
  Bytes body;
  Append(body, ssrc, 4);
  AppendBlocks(body, blocks);
  return Packet(201, blocks.size(), body);
}

Bytes CnameBytes(uint32_t ssrc, const std::string& cname) {
  Bytes body;
  Append(body, ssrc, 4);
  body.push_back(1);
  body.push_back(static_cast<uint8_t>(cname.size()));
  body.insert(body.end(), cname.begin(), cname.end());
  body.push_back(0);
  while (body.size() % 4 != 0) body.push_back(0);
  return Packet(202, 1, body);
}

Bytes GoodbyeBytes(const std::vector<uint32_t>& ssrcs, const std::string& reason) {
  Bytes body;
  for (const uint32_t ssrc : ssrcs) Append(body, ssrc, 4);
  if (!reason.empty()) {
    body.push_back(static_cast<uint8_t>(reason.size()));
    body.insert(body.end(), reason.begin(), reason.end());
    while (body.size() % 4 != 0) body.push_back(0);
  }
  return Packet(203, ssrcs.size(), body);
}

std::optional<RtcpSeen> ReadRtcp(const Bytes& packet) {
  if (packet.size() < 8 || packet[0] >> 5 != 4) return std::nullopt;
  const std::size_t end = 4 + 4 * Number(packet, 2, 2);
  const std::size_t blocks = packet[0] & 0x1f;
  RtcpSeen seen;
  seen.ssrc = Word(packet, 4);
  std::size_t at = 8;
  if (packet[1] == 200) {
    if (packet.size() < 28) return std::nullopt;
    seen.sender = RtcpSender{Number(packet, 8, 8), Word(packet, 16), Word(packet, 20), Word(packet, 24)};
    at = 28;
  } else if (packet[1] != 201) {
    return std::nullopt;
  }
  if (at + 24 * blocks != end || end + 12 > packet.size()) return std::nullopt;
  for (; at < end; at += 24) seen.blocks.push_back(ReadBlock(packet, at));
  return ReadRest(packet, at, seen) ? std::optional<RtcpSeen>(seen) : std::nullopt;
}

}  // namespace media_engine_test
