#include "seals.h"

#include <cstring>
#include <random>
#include <stdexcept>

namespace bench {
namespace {

using media_engine::SrtpKeys;
using media_engine::SrtpTransform;

std::unique_ptr<SrtpTransform> OpenTransform(const std::vector<uint8_t>& key, bool short_tag) {
  SrtpKeys keys;
  if (short_tag) keys.suite = media_engine::SrtpSuite::kAesCm128HmacSha1_32;
  keys.master.assign(key.begin(), key.end());
  keys.rtp_lifetime = uint64_t{1} << 48;
  std::string reason;
  auto transform = SrtpTransform::Make(SrtpTransform::Direction::kOutgoing, keys, reason);
  if (!transform) throw std::runtime_error(reason);
  return transform;
}

}  // namespace

std::string Base64(const std::vector<uint8_t>& octets) {
  static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t i = 0; i < octets.size(); i += 3) {
    const uint32_t group = uint32_t{octets[i]} << 16 | (i + 1 < octets.size() ? uint32_t{octets[i + 1]} << 8 : 0) |
                           (i + 2 < octets.size() ? octets[i + 2] : 0);
    text += digits[group >> 18 & 63];
    text += digits[group >> 12 & 63];
    text += i + 1 < octets.size() ? digits[group >> 6 & 63] : '=';
    text += i + 2 < octets.size() ? digits[group & 63] : '=';
  }
  return text;
}

Seals::Seals(std::size_t count, bool wanted) {
  if (!wanted) return;
  std::random_device random;
  ends_.resize(count);
  for (std::size_t at = 0; at < count; ++at) {
    End& end = ends_[at];
    for (std::size_t i = 0; i < SrtpKeys::kLength; ++i) end.key.push_back(static_cast<uint8_t>(random()));
    end.transform = OpenTransform(end.key, at % 2 != 0);
  }
}

std::vector<std::string> Seals::Keys() const {
  std::vector<std::string> keys;
  for (const End& end : ends_) {
    keys.push_back(std::string("AES_CM_128_HMAC_SHA1_") + (keys.size() % 2 == 0 ? "80:" : "32:") + Base64(end.key));
  }
  return keys;
}

void Seals::BeginRun(std::size_t packets_each, std::size_t packet_length) {
  packet_length_ = packet_length;
  for (std::size_t at = 0; at < ends_.size(); ++at) {
    End& end = ends_[at];
    end.packets.clear();
    end.packets.reserve(packets_each * (packet_length + TagLength(at)));
    end.taken = 0;
  }
}

void Seals::Add(std::size_t end, const uint8_t* packet, std::size_t length) {
  uint8_t room[2048];
  std::memcpy(room, packet, length);
  std::size_t sealed = length;
  End& one = ends_[end];
  if (one.transform->Apply(SrtpTransform::Protocol::kRtp, room, sealed) != media_engine::SrtpVerdict::kDone ||
      sealed != length + TagLength(end)) {
    throw std::runtime_error("a packet cannot be protected");
  }
  one.packets.insert(one.packets.end(), room, room + sealed);
}

const uint8_t* Seals::Take(std::size_t end) {
  End& one = ends_[end];
  const std::size_t at = one.taken * (packet_length_ + TagLength(end));
  if (at >= one.packets.size()) return nullptr;
  ++one.taken;
  return one.packets.data() + at;
}

}  // namespace bench
