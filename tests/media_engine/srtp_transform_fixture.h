/// One direction's transform without an endpoint: keys go in, then packets.
#pragma once

#include <algorithm>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>

#include "srtp_fixture.h"
#include "srtp_transform.h"

namespace media_engine_test {

using SrtpDirection = media_engine::SrtpTransform::Direction;
using Protocol = media_engine::SrtpTransform::Protocol;
using media_engine::SrtpVerdict;

inline Bytes FromHex(const std::string& text) {
  Bytes octets;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    octets.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
  }
  return octets;
}

inline std::unique_ptr<media_engine::SrtpTransform> Make(SrtpDirection direction, const CryptoSettings& settings) {
  media_engine::SrtpKeys keys;
  const Outcome outcome = media_engine::ParseSrtpKeys(settings, keys);
  std::string reason = outcome.reason;
  auto transform = outcome ? media_engine::SrtpTransform::Make(direction, keys, reason) : nullptr;
  if (!transform) throw std::runtime_error(reason);
  return transform;
}

/// On a packet in memory of its own, of exactly the size that is promised, so that a sanitizer sees any step beyond it.
struct AppliedPacket {
  SrtpVerdict verdict;
  Bytes packet;
};
inline AppliedPacket Apply(media_engine::SrtpTransform& transform, Protocol protocol, const Bytes& packet,
                           std::size_t room = 0) {
  const auto memory = std::make_unique<uint8_t[]>(packet.size() + room);
  std::copy(packet.begin(), packet.end(), memory.get());
  std::size_t length = packet.size();
  const SrtpVerdict verdict = transform.Apply(protocol, memory.get(), length);
  const Bytes result(memory.get(), memory.get() + length);
  EXPECT_TRUE(verdict == SrtpVerdict::kDone || result == packet) << "what is refused stays as it was";
  return {verdict, result};
}
inline AppliedPacket Protected(media_engine::SrtpTransform& transform, Protocol protocol, const Bytes& packet) {
  return Apply(transform, protocol, packet, media_engine::kSrtpTrailerRoom);
}

inline Bytes RtpPacket(uint16_t number, std::size_t payload = 160, uint32_t ssrc = 0x11111111) {
  return Serialise({0, number, 160u * number, ssrc, false, PayloadOf(number, payload)});
}
inline Bytes RtcpPacket(uint32_t ssrc = 0x11111111) {
  Bytes packet = {0x80, 200, 0, 6, 0, 0, 0, 0};
  for (int i = 0; i < 4; ++i) packet[4 + static_cast<std::size_t>(i)] = static_cast<uint8_t>(ssrc >> (24 - 8 * i));
  packet.insert(packet.end(), 20, 0xab);
  return packet;
}

/// The master key and salt of RFC 3711, appendix B.3.
inline CryptoSettings KeysOfTheRfc(const char* suite, const std::string& mki = "") {
  CryptoSettings settings;
  settings.suite = suite;
  const Bytes key = FromHex("e1f97a0d3e018be0d64fa32c06de41390ec675ad498afeebb6960b3aabe6");
  settings.key.assign(key.begin(), key.end());
  settings.mki = mki;
  return settings;
}

/// Both suites, with a key identifier and without.
struct SrtpCase {
  const char* suite;
  const char* mki_text;
  Bytes mki;
};
/// For the names of tests.
inline void PrintTo(const SrtpCase& one, std::ostream* out) {
  *out << one.suite << (one.mki.empty() ? "" : "_Mki");
}
inline const SrtpCase kSrtpCases[] = {{kLongTagSuite, "", {}},
                                      {kShortTagSuite, "", {}},
                                      {kLongTagSuite, "1:4", {0, 0, 0, 1}},
                                      {kShortTagSuite, "513:2", {2, 1}}};

/// RTCP looks the same under both suites; libsrtp2 2.5 alone is wrong about the shorter one with a key identifier.
inline SrtpPeer RtcpReceiver(uint8_t number, const Bytes& mki) {
  return SrtpPeer(SrtpPeer::Way::kReceives, PeerKeysOf(number, kLongTagSuite, mki));
}

}  // namespace media_engine_test
