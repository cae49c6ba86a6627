/// Takes packets from one endpoint's socket and sends them on through another's.
///
/// At 50 packets a second there is hardly ever a second packet in a socket, and asking for it costs as much as the next
/// turn does. So one packet is taken with the plainest call there is, and many at once only where the caller expects
/// them. The buffers belong to the worker and serve one batch at a time, so nothing is allocated per packet. A batch is
/// bounded: an endpoint that is flooded gets its turn like every other, and the rest waits in its socket.
#pragma once

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <memory>

#include "participant.h"

namespace media_engine {

class PacketMover {
 public:
  static constexpr std::size_t kBatch = 32;
  /// Longer than any packet that fits an Ethernet frame; what is longer is dropped.
  static constexpr std::size_t kPacketRoom = 2048;
  static_assert(kPacketRoom <= EndpointCrypto::kLongestPacket && (kPacketRoom + kSrtpTrailerRoom) % 4 == 0);

  enum class Amount : uint8_t { kOne, kBatch };  ///< how many packets are taken at most

  PacketMover();

  /// From one of the endpoint's sockets that take RTP. How many packets came, those included that were dropped.
  std::size_t MoveRtp(Participant& from, const UdpSocket& socket, Amount amount, TimePoint now);
  std::size_t TakeRtcp(Participant& from, Amount amount, TimePoint now);
  /// Sends on what is due in the endpoint's jitter buffer.
  void PlayOut(Participant& from, TimePoint now);

 private:
  struct Buffers {
    Buffers();

    alignas(16) std::array<std::array<uint8_t, kPacketRoom + kSrtpTrailerRoom>, kBatch> packets;
    std::array<SocketAddress, kBatch> sources;
    std::array<iovec, kBatch> received_parts;
    std::array<mmsghdr, kBatch> received;
    std::array<Handover, kBatch> handovers;
    std::array<iovec, kBatch> sent_parts;
    std::array<mmsghdr, kBatch> sent;
  };

  std::size_t Receive(const UdpSocket& socket, Amount amount, Participant& from);
  std::size_t ReceiveOne(const UdpSocket& socket, Participant& from);
  std::size_t ReceiveBatch(const UdpSocket& socket, Participant& from);
  void Send(Participant& through, std::size_t count);
  void SendOne(Participant& through, const Handover& packet);
  void SendBatch(Participant& through, std::size_t count);

  const std::unique_ptr<Buffers> buffers_;
};

}  // namespace media_engine
