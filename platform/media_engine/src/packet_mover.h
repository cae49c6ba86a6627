/// Takes packets from endpoints' sockets and sends them on through others'.
///
/// At 50 packets a second there is hardly ever a second packet in a socket, and asking for it costs as much as the next
/// turn does. So one packet is taken with the plainest call there is, and many at once only where the caller expects
/// them. Packets of many endpoints are gathered and moved together: all are received, then all are handled, then all
/// are sent, so that the processor finds the code of each step in its caches for all packets but the first.
///
/// The buffers belong to the worker and serve one batch at a time, so nothing is allocated per packet. A batch is
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

  enum class Protocol : uint8_t { kRtp, kRtcp };

  PacketMover();

  /// Takes a packet from one of the endpoint's sockets, if there is one, to be moved with others. How many: none or
  /// one.
  std::size_t Gather(Participant& from, const UdpSocket& socket, Protocol protocol);
  /// Takes all packets that are in the socket, as far as there is room. How many.
  std::size_t GatherAll(Participant& from, const UdpSocket& socket, Protocol protocol);
  /// How many more can be gathered.
  std::size_t room() const { return kBatch - gathered_; }
  /// Before anything else is asked of this or of the endpoints.
  void MoveGathered(TimePoint now);
  /// Sends on what is due in the endpoint's jitter buffer. Nothing must have been gathered.
  void PlayOut(Participant& from, TimePoint now);

 private:
  /// Where the packet in the buffer of the same place comes from.
  struct Gathered {
    Participant* from;
    std::size_t length;
    Protocol protocol;
  };
  struct Buffers {
    Buffers();

    alignas(16) std::array<std::array<uint8_t, kPacketRoom + kSrtpTrailerRoom>, kBatch> packets;
    std::array<SocketAddress, kBatch> sources;
    std::array<iovec, kBatch> received_parts;
    std::array<mmsghdr, kBatch> received;
    std::array<Handover, kBatch> handovers;
    std::array<iovec, kBatch> sent_parts;
    std::array<mmsghdr, kBatch> sent;
    std::array<Gathered, kBatch> gathered;
  };

  /// Sends the first handovers, those with one destination together.
  void Send(std::size_t count);
  void SendOne(Participant& through, const Handover& packet);
  void SendBatch(Participant& through, std::size_t begin, std::size_t end);

  const std::unique_ptr<Buffers> buffers_;
  std::size_t gathered_ = 0;
};

}  // namespace media_engine
