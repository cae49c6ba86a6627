#include "srtp_fixture.h"

#include <cstring>
#include <stdexcept>

namespace media_engine_test {

CryptoSettings KeysOf(uint8_t number, const char* suite, const std::string& mki) {
  CryptoSettings settings;
  settings.suite = suite;
  const Bytes key = SrtpPeerKey(number);
  settings.key.assign(key.begin(), key.end());
  settings.mki = mki;
  return settings;
}

CryptoSettings NoKeys(bool mandatory) {
  CryptoSettings settings;
  settings.suite = "NO_CRYPTO";
  settings.mandatory = mandatory;
  return settings;
}

SrtpPeerKeys PeerKeysOf(uint8_t number, const char* suite, const Bytes& mki) {
  return {SrtpPeerKey(number), std::strcmp(suite, kShortTagSuite) == 0, mki};
}

std::optional<Rtp> ParsePacket(const Bytes& data) {
  const auto header = media_engine::ParseRtp(data.data(), data.size());
  if (!header) return std::nullopt;
  Rtp packet{header->payload_type, header->sequence_number, header->timestamp, header->ssrc, header->marker, {}};
  const auto begin = data.begin() + static_cast<std::ptrdiff_t>(header->payload_offset);
  packet.payload.assign(begin, begin + static_cast<std::ptrdiff_t>(header->payload_length));
  return packet;
}

void SecureLeg::Send(const Rtp& packet) const {
  const auto data = sends->Rtp(Serialise(packet));
  if (!data) throw std::runtime_error("libsrtp2 does not protect number " + std::to_string(packet.sequence_number));
  leg.far_end->Send(*data, leg.local.rtp_port);
}

void SecureLeg::SendRun(uint16_t first, unsigned count) const {
  for (unsigned i = 0; i < count; ++i) {
    const auto number = static_cast<uint16_t>(first + i);
    Send({0, number, 160u * number, 0x11111111, false, PayloadOf(number)});
  }
}

std::optional<Rtp> SecureLeg::Receive(std::chrono::milliseconds limit) const {
  const auto data = leg.far_end->Receive(limit);
  if (!data) return std::nullopt;
  const auto clear = receives->Rtp(*data);
  return clear ? ParsePacket(*clear) : std::nullopt;
}

Outcome SrtpTest::DescribeLocal(Leg& leg, const CryptoSettings& crypto, bool answer_follows) {
  LocalSettings settings = LocalFor(Pcmu());
  settings.crypto = crypto;
  settings.answer_follows = answer_follows;
  return leg.endpoint->DescribeLocal(settings, leg.local, kLimit);
}

Outcome SrtpTest::DescribeRemote(const Leg& leg, const CryptoSettings& crypto) {
  RemoteDescription description = leg.far_end->Description(Pcmu());
  description.crypto = crypto;
  return leg.endpoint->DescribeRemote(description, kLimit);
}

SecureLeg SrtpTest::NewSecureLeg(uint8_t ours, uint8_t theirs, const char* suite) {
  SecureLeg secure;
  secure.leg = NewLeg(*session_);
  Outcome outcome = DescribeLocal(secure.leg, KeysOf(ours, suite));
  if (outcome) outcome = DescribeRemote(secure.leg, KeysOf(theirs, suite));
  if (!outcome) throw std::runtime_error(outcome.reason);
  secure.sends = std::make_shared<SrtpPeer>(SrtpPeer::Way::kSends, PeerKeysOf(theirs, suite));
  secure.receives = std::make_shared<SrtpPeer>(SrtpPeer::Way::kReceives, PeerKeysOf(ours, suite));
  return secure;
}

namespace {

Rtp Numbered(uint16_t number) {
  return {0, number, 160u * number, 0x11111111, false, PayloadOf(number)};
}

bool IsNumber(const std::optional<Rtp>& came, uint16_t number) {
  return came && came->payload == PayloadOf(number) && came->payload_type == 0;
}

}  // namespace

bool SrtpTest::Flows(const SecureLeg& from, const SecureLeg& to, uint16_t number) {
  from.Send(Numbered(number));
  return IsNumber(to.Receive(), number);
}

bool SrtpTest::Flows(const Leg& from, const SecureLeg& to, uint16_t number) {
  from.Send(Numbered(number));
  return IsNumber(to.Receive(), number);
}

bool SrtpTest::Flows(const SecureLeg& from, const Leg& to, uint16_t number) {
  from.Send(Numbered(number));
  return IsNumber(to.far_end->ReceiveRtp(), number);
}

}  // namespace media_engine_test
