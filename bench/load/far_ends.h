/// The far ends of calls: what sends the packets that a relay has to move, and counts what comes back.
///
/// A relay can only be measured by something that is cheaper than it: each far end is a connected UDP socket that sends
/// once per packet time and every now and then takes in what has come since, many packets a system call. No readiness
/// is asked for; what comes in between waits in the socket, and the kernel's stamp tells when it came. Two neighbours
/// (0 and 1, 2 and 3, ...) are the far ends of one call: what the one sends shall come out at the other.
///
/// A loss on the way into our own sockets is ours and told apart from the relay's.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "seals.h"

namespace bench {

/// 12 octets of header and 160 of G.711: 20 ms of speech.
constexpr std::size_t kPacketLength = 172;

/// What one far end found in its socket.
struct Arrivals {
  uint64_t expected = 0;  ///< packets of the run under way, from the neighbour
  uint64_t strange = 0;   ///< anything else
};

class FarEnds {
 public:
  FarEnds(std::size_t count, const std::string& address, bool sealed);
  ~FarEnds();
  FarEnds(const FarEnds&) = delete;
  FarEnds& operator=(const FarEnds&) = delete;

  std::size_t count() const { return ends_.size(); }
  std::vector<uint16_t> Ports() const;
  /// Where reports shall go: one socket for all, so that they meet an open port.
  uint16_t RtcpPort() const { return rtcp_port_; }
  std::vector<std::string> Keys() const { return seals_.Keys(); }
  /// Puts the far ends into another order: at each place stands which one it is now. Before anything is sent.
  void Reorder(const std::vector<std::size_t>& order);
  /// Where the far ends send from now on.
  void ConnectTo(const std::string& address, const std::vector<uint16_t>& ports);

  /// A new run: what was sent before counts as strange from now on.
  void BeginRun(bool stamped, std::size_t packets_each);
  /// False when the system refused to send.
  bool Send(std::size_t end);
  /// Takes in what waits. Delays are added to, in nanoseconds, when the run is stamped.
  void Receive(std::size_t end, Arrivals& arrivals, std::vector<int64_t>& delays);
  void DrainReports();
  /// Packets that came and found our sockets full, so far.
  uint64_t OwnDrops() const;

 private:
  struct End {
    int socket = -1;
    uint16_t port = 0;
    uint16_t sequence_number = 0;
    uint32_t timestamp = 0;
  };

  struct Batch;

  void Open(End& end, const std::string& address);
  void WritePacket(std::size_t end);
  void Count(std::size_t at, const Batch& batch, std::size_t i, Arrivals& arrivals, std::vector<int64_t>& delays) const;
  bool IsExpected(const uint8_t* packet, std::size_t length, std::size_t at) const;

  std::vector<End> ends_;
  std::unique_ptr<Batch> batch_;
  int rtcp_socket_ = -1;
  uint16_t rtcp_port_ = 0;
  Seals seals_;
  bool sealed_;
  bool stamped_ = false;
  uint32_t run_ = 0;
  uint8_t packet_[kPacketLength] = {};
};

}  // namespace bench
