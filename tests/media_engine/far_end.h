/// A far end for engine tests: UDP sockets on loopback that speak raw octets, so that a test can send what no decent
/// RTP stack would. RTP has an even port and RTCP the odd one above it, so that one far end's reports never reach
/// another's RTP port.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "media_engine/description.h"
#include "rtp_header.h"
#include "socket_address.h"
#include "udp_socket.h"

namespace media_engine_test {

using Bytes = std::vector<uint8_t>;
using media_engine::SocketAddress;

/// Long enough for a busy machine; a test that passes never waits that long.
constexpr std::chrono::milliseconds kPatience{5000};
/// For what must not come: nothing else is on its way when this is waited for.
constexpr std::chrono::milliseconds kNothingComes{50};

struct Rtp {
  uint8_t payload_type = 0;
  uint16_t sequence_number = 0;
  uint32_t timestamp = 0;
  uint32_t ssrc = 0x11111111;
  bool marker = false;
  Bytes payload;
};

Bytes Serialise(const Rtp& packet);
/// A payload that no other number has.
Bytes PayloadOf(uint16_t number, std::size_t length = 160);

/// What the header of a packet said: the traffic class or type of service, and the hops left.
struct ReceivedHeader {
  int traffic_class = -1;
  int hops = -1;
};

class FarEnd {
 public:
  explicit FarEnd(const std::string& address = "127.0.0.1");

  const SocketAddress& address() const { return address_; }
  uint16_t port() const { return address_.port(); }

  uint16_t rtcp_port() const { return static_cast<uint16_t>(port() + 1); }

  void Send(const Bytes& data, uint16_t to_port) const { SendThrough(rtp_, data, to_port); }
  void SendRtcp(const Bytes& data, uint16_t to_port) const { SendThrough(rtcp_, data, to_port); }
  void SendRtp(const Rtp& packet, uint16_t to_port) const { Send(Serialise(packet), to_port); }
  std::optional<Bytes> Receive(std::chrono::milliseconds limit = kPatience) const { return ReceiveOn(rtp_, limit); }
  std::optional<Bytes> ReceiveRtcp(std::chrono::milliseconds limit = kPatience) const {
    return ReceiveOn(rtcp_, limit);
  }
  /// The packet and its header; none when nothing came or when it is not RTP.
  std::optional<Rtp> ReceiveRtp(std::chrono::milliseconds limit = kPatience) const;
  /// The header of a packet that is there, of which only that remains. To be asked for before the packet comes.
  void AskForHeader() const;
  ReceivedHeader ReceiveHeader() const;
  /// A description of this far end with one codec and, unless 0, telephone events.
  media_engine::RemoteDescription Description(const media_engine::Codec& codec, uint8_t events = 0) const;
  int fd() const { return rtp_.fd(); }

 private:
  bool BindPair(const std::string& address);
  void SendThrough(const media_engine::UdpSocket& socket, const Bytes& data, uint16_t to_port) const;
  static std::optional<Bytes> ReceiveOn(const media_engine::UdpSocket& socket, std::chrono::milliseconds limit);

  media_engine::UdpSocket rtp_, rtcp_;
  SocketAddress address_;
};

media_engine::Codec Pcmu(int payload_type = 0);
media_engine::Codec Pcma(int payload_type = 8);
media_engine::Codec MakeCodec(const std::string& name, int payload_type, int clock_rate = 8000, int bit_rate = 0);
media_engine::LocalSettings LocalFor(const media_engine::Codec& codec, uint8_t events = 0);

/// A range of that many pairs whose ports were all free a moment ago.
std::pair<uint16_t, uint16_t> FreePortRange(unsigned pairs);

}  // namespace media_engine_test
