#include "far_end.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <stdexcept>

namespace media_engine_test {

Bytes Serialise(const Rtp& packet) {
  media_engine::RtpHeader header;
  header.marker = packet.marker;
  header.payload_type = packet.payload_type;
  header.sequence_number = packet.sequence_number;
  header.timestamp = packet.timestamp;
  header.ssrc = packet.ssrc;
  Bytes data(media_engine::kRtpHeaderLength);
  media_engine::WriteRtpHeader(header, data.data());
  data.insert(data.end(), packet.payload.begin(), packet.payload.end());
  return data;
}

Bytes PayloadOf(uint16_t number, std::size_t length) {
  Bytes payload(length);
  std::minstd_rand random(number + 1u);
  for (uint8_t& octet : payload) octet = static_cast<uint8_t>(random());
  if (length >= 2) {
    payload[0] = static_cast<uint8_t>(number >> 8);
    payload[1] = static_cast<uint8_t>(number);
  }
  return payload;
}

FarEnd::FarEnd(const std::string& address) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    if (BindPair(address)) return;
  }
  throw std::runtime_error("cannot bind two ports of " + address);
}

bool FarEnd::BindPair(const std::string& address) {
  if (rtp_.Bind(*SocketAddress::Parse(address, 0)) != 0) return false;
  address_ = *SocketAddress::OfSocket(rtp_.fd());
  return port() % 2 == 0 && rtcp_.Bind(address_.WithPort(rtcp_port())) == 0;
}

void FarEnd::SendThrough(const media_engine::UdpSocket& socket, const Bytes& data, uint16_t to_port) const {
  const SocketAddress to = address_.WithPort(to_port);
  const ssize_t sent = sendto(socket.fd(), data.data(), data.size(), 0, to.native(), to.length());
  if (sent != static_cast<ssize_t>(data.size())) throw std::runtime_error("cannot send to " + to.Text());
}

std::optional<Bytes> FarEnd::ReceiveOn(const media_engine::UdpSocket& socket, std::chrono::milliseconds limit) {
  pollfd waiting{socket.fd(), POLLIN, 0};
  if (poll(&waiting, 1, static_cast<int>(limit.count())) <= 0) return std::nullopt;
  std::array<uint8_t, 65536> buffer;
  const ssize_t length = recv(socket.fd(), buffer.data(), buffer.size(), 0);
  if (length < 0) return std::nullopt;
  return Bytes(buffer.begin(), buffer.begin() + length);
}

std::optional<Rtp> FarEnd::ReceiveRtp(std::chrono::milliseconds limit) const {
  const std::optional<Bytes> data = Receive(limit);
  if (!data) return std::nullopt;
  const auto header = media_engine::ParseRtp(data->data(), data->size());
  if (!header) return std::nullopt;
  Rtp packet;
  packet.marker = header->marker;
  packet.payload_type = header->payload_type;
  packet.sequence_number = header->sequence_number;
  packet.timestamp = header->timestamp;
  packet.ssrc = header->ssrc;
  const auto begin = data->begin() + static_cast<std::ptrdiff_t>(header->payload_offset);
  packet.payload.assign(begin, begin + static_cast<std::ptrdiff_t>(header->payload_length));
  return packet;
}

void FarEnd::AskForHeader() const {
  const int on = 1;
  const bool v6 = address_.family() == AF_INET6;
  const int level = v6 ? IPPROTO_IPV6 : IPPROTO_IP;
  if (setsockopt(fd(), level, v6 ? IPV6_RECVTCLASS : IP_RECVTOS, &on, sizeof on) != 0 ||
      setsockopt(fd(), level, v6 ? IPV6_RECVHOPLIMIT : IP_RECVTTL, &on, sizeof on) != 0) {
    throw std::runtime_error("the system does not tell header fields");
  }
}

ReceivedHeader FarEnd::ReceiveHeader() const {
  uint8_t data[2048];
  alignas(cmsghdr) uint8_t control[256];
  iovec part{data, sizeof data};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  ReceivedHeader header;
  if (recvmsg(fd(), &message, MSG_DONTWAIT) <= 0) return header;
  for (cmsghdr* field = CMSG_FIRSTHDR(&message); field != nullptr; field = CMSG_NXTHDR(&message, field)) {
    const bool v6 = field->cmsg_level == IPPROTO_IPV6;
    if (!v6 && field->cmsg_type == IP_TOS) header.traffic_class = *CMSG_DATA(field);
    if (v6 && field->cmsg_type == IPV6_TCLASS) std::memcpy(&header.traffic_class, CMSG_DATA(field), sizeof(int));
    const bool hops = v6 ? field->cmsg_type == IPV6_HOPLIMIT : field->cmsg_type == IP_TTL;
    if (hops) std::memcpy(&header.hops, CMSG_DATA(field), sizeof(int));
  }
  return header;
}

media_engine::RemoteDescription FarEnd::Description(const media_engine::Codec& codec, uint8_t events) const {
  media_engine::RemoteDescription description;
  description.address = address_.Host();
  description.rtp_port = port();
  description.codecs = {codec};
  if (events != 0) {
    description.telephone_event = true;
    description.telephone_event_payload_type = events;
  }
  return description;
}

media_engine::Codec MakeCodec(const std::string& name, int payload_type, int clock_rate, int bit_rate) {
  media_engine::Codec codec;
  codec.name = name;
  codec.payload_type = payload_type;
  codec.clock_rate = clock_rate;
  codec.bit_rate = bit_rate;
  return codec;
}

media_engine::Codec Pcmu(int payload_type) {
  return MakeCodec("PCMU", payload_type, 8000, 64000);
}
media_engine::Codec Pcma(int payload_type) {
  return MakeCodec("PCMA", payload_type, 8000, 64000);
}

media_engine::LocalSettings LocalFor(const media_engine::Codec& codec, uint8_t events) {
  media_engine::LocalSettings settings;
  settings.codecs = {codec};
  if (events != 0) {
    settings.telephone_event = true;
    settings.telephone_event_payload_type = events;
  }
  return settings;
}

namespace {

bool AllFree(uint16_t first, unsigned pairs) {
  std::vector<media_engine::UdpSocket> held;
  for (unsigned port = first; port < first + 2 * pairs; ++port) {
    for (const char* address : {"127.0.0.1", "::1"}) {
      if (held.emplace_back().Bind(*SocketAddress::Parse(address, static_cast<uint16_t>(port))) != 0) return false;
    }
  }
  return true;
}

}  // namespace

std::pair<uint16_t, uint16_t> FreePortRange(unsigned pairs) {
  // Below the range from which the system takes ports for others; and apart from tests that run beside this one, which
  // look for ports in the same way.
  static std::mt19937 random(std::random_device{}());
  const int own_part = 10000 + getpid() % 25 * 200;
  std::uniform_int_distribution<int> start(own_part, own_part + 199 - static_cast<int>(std::min(pairs, 199u)));
  for (int attempt = 0; attempt < 200; ++attempt) {
    const auto first = static_cast<uint16_t>(2 * start(random));
    if (AllFree(first, pairs)) return {first, static_cast<uint16_t>(first + 2 * pairs - 1)};
  }
  throw std::runtime_error("no range of free ports");
}

}  // namespace media_engine_test
