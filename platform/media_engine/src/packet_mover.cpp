#include "packet_mover.h"

#include <cerrno>

namespace media_engine {
namespace {

bool NothingThere(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

/// A connected socket's next call fails with what became of a packet that was sent before: there was nobody at the
/// port, or no way to it (ICMP). It says nothing of this packet.
bool IsOfFormerPacket(int error) {
  return error == ECONNREFUSED || error == EHOSTUNREACH || error == ENETUNREACH || error == EHOSTDOWN ||
         error == ENOPROTOOPT || error == EMSGSIZE || error == EPROTO || error == EOPNOTSUPP || error == ENONET;
}

void CountReceiveError(Participant& from) {
  if (!NothingThere(errno) && !IsOfFormerPacket(errno)) from.CountReceiveError();
}

/// How packets get to an endpoint's far end.
struct Way {
  explicit Way(const Participant& through) {
    const PortPair& ports = *through.ports();
    const SocketAddress& far_end = through.remote_rtp();
    if (ports.HasExpressTo(far_end)) {
      fd = ports.express().fd();
    } else {
      fd = ports.rtp().fd();
      name = far_end.native();
      length = far_end.length();
    }
  }
  /// After a failure, by errno. A packet is not lost because an earlier one was: the error is gone by the second
  /// attempt.
  bool IsWorthAnother(int attempt) const {
    return errno == EINTR || (attempt == 0 && name == nullptr && IsOfFormerPacket(errno));
  }

  int fd = -1;
  const sockaddr* name = nullptr;  // null: connected
  socklen_t length = 0;
};

}  // namespace

PacketMover::Buffers::Buffers() : received{}, sent{} {
  for (std::size_t i = 0; i < kBatch; ++i) {
    received_parts[i] = {packets[i].data(), kPacketRoom};
    received[i].msg_hdr.msg_name = sources[i].native();
    received[i].msg_hdr.msg_iov = &received_parts[i];
    received[i].msg_hdr.msg_iovlen = 1;
    sent[i].msg_hdr.msg_iov = &sent_parts[i];
    sent[i].msg_hdr.msg_iovlen = 1;
  }
}

PacketMover::PacketMover() : buffers_(std::make_unique<Buffers>()) {}

std::size_t PacketMover::Gather(Participant& from, const UdpSocket& socket, Protocol protocol) {
  Buffers& b = *buffers_;
  socklen_t room = SocketAddress::kRoom;
  // With MSG_TRUNC the length is the packet's own.
  const ssize_t length = recvfrom(socket.fd(), b.packets[gathered_].data(), kPacketRoom, MSG_DONTWAIT | MSG_TRUNC,
                                  b.sources[gathered_].native(), &room);
  if (length < 0) {
    CountReceiveError(from);
    return 0;
  }
  b.gathered[gathered_++] = {&from, static_cast<std::size_t>(length), protocol};
  return 1;
}

std::size_t PacketMover::GatherAll(Participant& from, const UdpSocket& socket, Protocol protocol) {
  Buffers& b = *buffers_;
  mmsghdr* const first = &b.received[gathered_];
  for (std::size_t i = gathered_; i < kBatch; ++i) b.received[i].msg_hdr.msg_namelen = SocketAddress::kRoom;
  const int count = recvmmsg(socket.fd(), first, static_cast<unsigned>(room()), MSG_DONTWAIT | MSG_TRUNC, nullptr);
  if (count < 0) {
    CountReceiveError(from);
    return 0;
  }
  for (const mmsghdr* one = first; one < first + count; ++one)
    b.gathered[gathered_++] = {&from, one->msg_len, protocol};
  return static_cast<std::size_t>(count);
}

void PacketMover::MoveGathered(TimePoint now) {
  Buffers& b = *buffers_;
  std::size_t out = 0;
  for (std::size_t i = 0; i < gathered_; ++i) {
    const Gathered& one = b.gathered[i];
    if (one.length > kPacketRoom) {
      one.from->CountOversized();
    } else if (one.protocol == Protocol::kRtcp) {
      one.from->TakeRtcp(b.packets[i].data(), one.length, b.sources[i], now);
    } else {
      b.handovers[out] = one.from->TakeRtp(b.packets[i].data(), one.length, b.sources[i], now);
      if (b.handovers[out].to != nullptr) ++out;
    }
  }
  gathered_ = 0;
  Send(out);
}

void PacketMover::PlayOut(Participant& from, TimePoint now) {
  Buffers& b = *buffers_;
  bool due = true;
  while (due) {
    std::size_t out = 0;
    while (out < kBatch && (due = from.PlayNext(b.packets[out].data(), now, b.handovers[out]))) {
      if (b.handovers[out].to != nullptr) ++out;
    }
    Send(out);
  }
}

void PacketMover::Send(std::size_t count) {
  const auto& handovers = buffers_->handovers;
  for (std::size_t begin = 0, end = 0; begin < count; begin = end) {
    Participant* const to = handovers[begin].to;
    for (end = begin + 1; end < count && handovers[end].to == to;) ++end;
    end == begin + 1 ? SendOne(*to, handovers[begin]) : SendBatch(*to, begin, end);
  }
}

void PacketMover::SendOne(Participant& through, const Handover& packet) {
  const Way way(through);
  for (int attempt = 0;; ++attempt) {
    const ssize_t sent = sendto(way.fd, packet.data, packet.length, MSG_DONTWAIT | MSG_NOSIGNAL, way.name, way.length);
    if (sent >= 0) return through.CountSent(packet);
    if (!way.IsWorthAnother(attempt)) break;
  }
  // Whatever it is concerns this packet, or will be gone by the next one: voice does not wait.
  through.CountSendError();
}

void PacketMover::SendBatch(Participant& through, std::size_t begin, std::size_t end) {
  Buffers& b = *buffers_;
  const Way way(through);
  for (std::size_t i = begin; i < end; ++i) {
    b.sent_parts[i] = {b.handovers[i].data, b.handovers[i].length};
    b.sent[i].msg_hdr.msg_name = const_cast<sockaddr*>(way.name);
    b.sent[i].msg_hdr.msg_namelen = way.length;
  }
  std::size_t next = begin;
  for (int attempt = 0; next < end;) {
    const int sent = sendmmsg(way.fd, &b.sent[next], static_cast<unsigned>(end - next), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent > 0) {
      for (const std::size_t gone = next + static_cast<std::size_t>(sent); next < gone; ++next) {
        through.CountSent(b.handovers[next]);
      }
      attempt = 0;
    } else if (way.IsWorthAnother(attempt)) {
      ++attempt;
    } else {
      through.CountSendError();
      ++next;
      attempt = 0;
    }
  }
}

}  // namespace media_engine
