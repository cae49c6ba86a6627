#include "packet_mover.h"

#include <cerrno>

namespace media_engine {

PacketMover::PacketMover() : buffers_(std::make_unique<Buffers>()) {}

std::size_t PacketMover::Receive(int fd, Participant& from) {
  Buffers& b = *buffers_;
  for (std::size_t i = 0; i < kBatch; ++i) {
    b.received_parts[i] = {b.packets[i].data(), kPacketRoom};
    b.received[i] = {};
    b.received[i].msg_hdr.msg_name = b.sources[i].native();
    b.received[i].msg_hdr.msg_namelen = SocketAddress::kRoom;
    b.received[i].msg_hdr.msg_iov = &b.received_parts[i];
    b.received[i].msg_hdr.msg_iovlen = 1;
  }
  const int count = recvmmsg(fd, b.received.data(), kBatch, MSG_DONTWAIT, nullptr);
  if (count >= 0) return static_cast<std::size_t>(count);
  if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) from.CountReceiveError();
  return 0;
}

void PacketMover::MoveRtp(Participant& from, TimePoint now) {
  Buffers& b = *buffers_;
  const std::size_t received = Receive(from.ports()->rtp().fd(), from);
  std::size_t out = 0;
  for (std::size_t i = 0; i < received; ++i) {
    if ((b.received[i].msg_hdr.msg_flags & MSG_TRUNC) != 0) {
      from.CountOversized();
      continue;
    }
    b.handovers[out] = from.TakeRtp(b.packets[i].data(), b.received[i].msg_len, b.sources[i], now);
    if (b.handovers[out].to != nullptr) ++out;
  }
  // A participant has one peer at a time, and joins do not change within a batch.
  if (out > 0) Send(*b.handovers[0].to, out);
}

void PacketMover::PlayOut(Participant& from, TimePoint now) {
  Buffers& b = *buffers_;
  bool due = true;
  while (due) {
    std::size_t out = 0;
    while (out < kBatch && (due = from.PlayNext(b.packets[out].data(), now, b.handovers[out]))) {
      if (b.handovers[out].to != nullptr) ++out;
    }
    if (out > 0) Send(*b.handovers[0].to, out);
  }
}

void PacketMover::Send(Participant& through, std::size_t count) {
  Buffers& b = *buffers_;
  SocketAddress to = through.remote_rtp();
  for (std::size_t i = 0; i < count; ++i) {
    b.sent_parts[i] = {b.handovers[i].data, b.handovers[i].length};
    b.sent[i] = {};
    b.sent[i].msg_hdr.msg_name = to.native();
    b.sent[i].msg_hdr.msg_namelen = to.length();
    b.sent[i].msg_hdr.msg_iov = &b.sent_parts[i];
    b.sent[i].msg_hdr.msg_iovlen = 1;
  }
  std::size_t next = 0;
  while (next < count) {
    const int sent = sendmmsg(through.ports()->rtp().fd(), &b.sent[next], static_cast<unsigned>(count - next),
                              MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent > 0) {
      for (const std::size_t end = next + static_cast<std::size_t>(sent); next < end; ++next) {
        through.CountSent(b.handovers[next]);
      }
    } else if (errno != EINTR) {
      // Whatever it is concerns this packet, or will be gone by the next one: voice does not wait.
      through.CountSendError();
      ++next;
    }
  }
}

void PacketMover::TakeRtcp(Participant& from, TimePoint now) {
  Buffers& b = *buffers_;
  const std::size_t received = Receive(from.ports()->rtcp().fd(), from);
  for (std::size_t i = 0; i < received; ++i) {
    if ((b.received[i].msg_hdr.msg_flags & MSG_TRUNC) != 0) {
      from.CountOversized();
      continue;
    }
    from.TakeRtcp(b.packets[i].data(), b.received[i].msg_len, b.sources[i], now);
  }
}

}  // namespace media_engine
