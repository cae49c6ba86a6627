#include "far_ends.h"

#include <arpa/inet.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "../support/system.h"

namespace bench {
namespace {

constexpr int kBatch = 16;
constexpr std::size_t kSentAt = 12, kRun = 20, kSender = 24;  // where the payload has them

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

sockaddr_in AddressOf(const std::string& address, uint16_t port) {
  sockaddr_in out{};
  out.sin_family = AF_INET;
  out.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &out.sin_addr) != 1) {
    throw std::runtime_error("\"" + address + "\" is no IPv4 address");
  }
  return out;
}

int OpenSocket(const std::string& address, uint16_t& port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) Fail("no socket for a far end");
  sockaddr_in local = AddressOf(address, 0);
  socklen_t length = sizeof local;
  if (bind(fd, reinterpret_cast<const sockaddr*>(&local), length) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length) != 0) {
    Fail("no port at " + address);
  }
  port = ntohs(local.sin_port);
  return fd;
}

int64_t StampOf(const msghdr& message) {
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
       part = CMSG_NXTHDR(const_cast<msghdr*>(&message), part)) {
    if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_TIMESTAMPNS) continue;
    timespec stamp;
    std::memcpy(&stamp, CMSG_DATA(part), sizeof stamp);
    return int64_t{1000000000} * stamp.tv_sec + stamp.tv_nsec;
  }
  return 0;
}

}  // namespace

struct FarEnds::Batch {
  std::array<std::array<uint8_t, 512>, kBatch> packets;
  std::array<std::array<char, 64>, kBatch> controls;
  std::array<iovec, kBatch> parts;
  std::array<mmsghdr, kBatch> messages;

  void Prepare(bool stamped) {
    for (std::size_t i = 0; i < kBatch; ++i) {
      parts[i] = {packets[i].data(), packets[i].size()};
      messages[i] = {};
      messages[i].msg_hdr.msg_iov = &parts[i];
      messages[i].msg_hdr.msg_iovlen = 1;
      if (!stamped) continue;
      messages[i].msg_hdr.msg_control = controls[i].data();
      messages[i].msg_hdr.msg_controllen = controls[i].size();
    }
  }
};

FarEnds::FarEnds(std::size_t count, const std::string& address, bool sealed)
    : ends_(count), batch_(std::make_unique<Batch>()), seals_(count, sealed), sealed_(sealed) {
  if (count == 0 || count % 2 != 0) throw std::runtime_error("far ends come in pairs");
  for (End& end : ends_) Open(end, address);
  rtcp_socket_ = OpenSocket(address, rtcp_port_);
  packet_[0] = 0x80;
}

FarEnds::~FarEnds() {
  for (const End& end : ends_) {
    if (end.socket >= 0) close(end.socket);
  }
  if (rtcp_socket_ >= 0) close(rtcp_socket_);
}

void FarEnds::Open(End& end, const std::string& address) {
  end.socket = OpenSocket(address, end.port);
}

std::vector<uint16_t> FarEnds::Ports() const {
  std::vector<uint16_t> ports;
  for (const End& end : ends_) ports.push_back(end.port);
  return ports;
}

void FarEnds::Reorder(const std::vector<std::size_t>& order) {
  if (order.size() != ends_.size()) throw std::runtime_error("the order is not of as many far ends");
  std::vector<End> reordered(ends_.size());
  for (std::size_t i = 0; i < order.size(); ++i) std::swap(reordered[i], ends_.at(order[i]));
  for (const End& end : reordered) {
    if (end.socket < 0) throw std::runtime_error("a far end stands twice in the order");
  }
  ends_ = std::move(reordered);
}

void FarEnds::ConnectTo(const std::string& address, const std::vector<uint16_t>& ports) {
  if (ports.size() != ends_.size()) throw std::runtime_error("not as many ports as far ends");
  for (std::size_t i = 0; i < ends_.size(); ++i) {
    const sockaddr_in to = AddressOf(address, ports[i]);
    if (connect(ends_[i].socket, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) Fail("connecting a far end");
  }
}

void FarEnds::BeginRun(bool stamped, std::size_t packets_each) {
  ++run_;
  if (stamped != stamped_) {
    const int on = stamped ? 1 : 0;
    for (const End& end : ends_) setsockopt(end.socket, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    stamped_ = stamped;
  }
  if (!sealed_) return;
  seals_.BeginRun(packets_each, kPacketLength);
  for (std::size_t end = 0; end < ends_.size(); ++end) {
    for (std::size_t i = 0; i < packets_each; ++i) {
      WritePacket(end);
      seals_.Add(end, packet_, kPacketLength);
    }
  }
}

void FarEnds::WritePacket(std::size_t at) {
  End& end = ends_[at];
  const uint16_t number = htons(++end.sequence_number);
  const uint32_t timestamp = htonl(end.timestamp += 160);
  const uint32_t ssrc = htonl(0x10000000u + static_cast<uint32_t>(at));
  const uint32_t sender = static_cast<uint32_t>(at);
  std::memcpy(packet_ + 2, &number, sizeof number);
  std::memcpy(packet_ + 4, &timestamp, sizeof timestamp);
  std::memcpy(packet_ + 8, &ssrc, sizeof ssrc);
  std::memcpy(packet_ + kRun, &run_, sizeof run_);
  std::memcpy(packet_ + kSender, &sender, sizeof sender);
}

bool FarEnds::Send(std::size_t at) {
  if (sealed_) {
    const uint8_t* const packet = seals_.Take(at);
    return packet != nullptr &&
           send(ends_[at].socket, packet, kPacketLength + Seals::TagLength(at), MSG_NOSIGNAL | MSG_DONTWAIT) > 0;
  }
  WritePacket(at);
  if (stamped_) {
    const int64_t now = RealtimeNs();
    std::memcpy(packet_ + kSentAt, &now, sizeof now);
  }
  return send(ends_[at].socket, packet_, kPacketLength, MSG_NOSIGNAL | MSG_DONTWAIT) > 0;
}

bool FarEnds::IsExpected(const uint8_t* packet, std::size_t length, std::size_t at) const {
  if (sealed_) return length == kPacketLength + Seals::TagLength(at);
  if (length != kPacketLength) return false;
  uint32_t run = 0, sender = 0;
  std::memcpy(&run, packet + kRun, sizeof run);
  std::memcpy(&sender, packet + kSender, sizeof sender);
  return run == run_ && sender == (at ^ 1);
}

void FarEnds::Receive(std::size_t at, Arrivals& arrivals, std::vector<int64_t>& delays) {
  for (int count = kBatch; count == kBatch;) {
    batch_->Prepare(stamped_);
    count = recvmmsg(ends_[at].socket, batch_->messages.data(), kBatch, MSG_DONTWAIT, nullptr);
    // What an earlier packet met; what waits behind it has not been looked at.
    if (count < 0 && errno == ECONNREFUSED)
      count = kBatch;
    else
      for (int i = 0; i < count; ++i) Count(at, *batch_, static_cast<std::size_t>(i), arrivals, delays);
  }
}

void FarEnds::Count(std::size_t at, const Batch& batch, std::size_t i, Arrivals& arrivals,
                    std::vector<int64_t>& delays) const {
  const uint8_t* const packet = batch.packets[i].data();
  if (!IsExpected(packet, batch.messages[i].msg_len, at)) {
    ++arrivals.strange;
    return;
  }
  ++arrivals.expected;
  if (!stamped_ || sealed_) return;
  int64_t sent = 0;
  std::memcpy(&sent, packet + kSentAt, sizeof sent);
  delays.push_back(StampOf(batch.messages[i].msg_hdr) - sent);
}

void FarEnds::DrainReports() {
  std::array<uint8_t, 512> packet;
  while (recv(rtcp_socket_, packet.data(), packet.size(), MSG_DONTWAIT) >= 0) {
  }
}

uint64_t FarEnds::OwnDrops() const {
  uint64_t drops = 0;
  for (const End& end : ends_) {
    std::array<uint32_t, SK_MEMINFO_VARS> info{};
    socklen_t length = sizeof info;
    if (getsockopt(end.socket, SOL_SOCKET, SO_MEMINFO, info.data(), &length) == 0) drops += info[SK_MEMINFO_DROPS];
  }
  return drops;
}

}  // namespace bench
