#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <thread>

#include "support/rtp_packet.h"
#include "support/udp_socket.h"

namespace test_support {

/// What a relay may do wrong with one packet of a stream, to see whether the probe notices.
enum class RelayFault {
  kNone,
  kDrop,             // forgets it; the gap stays in the sequence numbers
  kDropAndRenumber,  // forgets it and closes the gap
  kDuplicate,
  kSwap,          // sends it after the one that follows
  kAlterPayload,  // one bit of its last byte
  kShortenPayload,
  kClearMarker,
  kShiftTimestamp,
  kChangeSsrc,
  kChangePayloadType,
  kOtherSocket,     // sends it from another port
  kInvent,          // adds one with a sequence number far ahead
  kTruncateHeader,  // adds a datagram that is no RTP
};

/// One direction of a media server in miniature: takes RTP on its port and forwards it to the receiver under an SSRC,
/// sequence numbers and timestamps of its own; does one thing wrong when told to. A thread of its own, joined by the
/// destructor.
class RtpRelay {
 public:
  /// `at`: the packet that the fault befalls, counted from the first of the stream; with kClearMarker the next marked
  /// one from there.
  RtpRelay(UdpAddress receiver, RelayFault fault, std::size_t at, std::size_t deaf_for = 0);
  ~RtpRelay();
  RtpRelay(const RtpRelay&) = delete;
  RtpRelay& operator=(const RtpRelay&) = delete;

  /// Where to send, and from where the receiver hears.
  UdpAddress Address() const { return {"127.0.0.1", socket_.Port()}; }
  /// Keeps the sender's SSRC.
  void PassSsrcThrough() { pass_ssrc_ = true; }
  /// Adds this to every payload type.
  void ShiftPayloadTypes(std::uint8_t by) { payload_type_shift_ = by; }

 private:
  void Run();
  void Forward(RtpPacket packet);
  void Send(const RtpPacket& packet);

  UdpSocket socket_;
  UdpSocket other_socket_;
  const UdpAddress receiver_;
  const RelayFault fault_;
  const std::size_t at_;
  const std::size_t deaf_for_;
  std::atomic<bool> pass_ssrc_{false};
  std::atomic<std::uint8_t> payload_type_shift_{0};
  std::atomic<bool> stop_{false};
  std::size_t count_ = 0;  // owned by the thread, as all below
  bool done_ = false;
  std::uint16_t sequence_shift_ = 30000;
  std::optional<RtpPacket> held_;
  std::thread thread_;
};

}  // namespace test_support
