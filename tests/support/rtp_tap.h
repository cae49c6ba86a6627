#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/rtp_probe.h"
#include "support/udp_socket.h"

namespace test_support {

/// Whether a call is really encrypted shows only on the wire. A tap stands between a phone and the switch: the phone
/// dials the tap instead of the switch, the tap hands every SIP message on with its own media address in the
/// description, and so all RTP of the call passes through it, is written down, and is handed on as it came.
///
/// For the first description each way, IPv4 on loopback; later messages of the dialogue go past it, as their addresses
/// are the switch's own. A thread of its own, joined by the destructor; the other members may be called from one other
/// thread.
class RtpTap {
 public:
  explicit RtpTap(UdpAddress switch_address);
  ~RtpTap();
  RtpTap(const RtpTap&) = delete;
  RtpTap& operator=(const RtpTap&) = delete;

  /// Where the phone has to call.
  UdpAddress Address() const { return {"127.0.0.1", sip_.Port()}; }

  /// The datagrams that the phone sent, and those that the media server sent to it: RTP or SRTP, as they were.
  std::vector<std::vector<std::uint8_t>> FromPhone() const;
  std::vector<std::vector<std::uint8_t>> ToPhone() const;
  /// The descriptions' keys, the values of "a=crypto"; empty when there were none.
  std::string PhoneCrypto() const;
  std::string SwitchCrypto() const;

 private:
  struct Side {
    UdpAddress media;  // where this side wants its RTP; port 0 until it has said so
    std::string crypto;
    std::vector<std::vector<std::uint8_t>> sent;
  };

  void Run();
  void HandSipOn();
  void Rewrite(std::string& message, Side& side, std::uint16_t port);
  void HandMediaOn(RtpPhone& in, RtpPhone& out, Side& from, const Side& to);

  const UdpAddress switch_;
  UdpSocket sip_;
  RtpPhone towards_phone_;
  RtpPhone towards_switch_;
  UdpAddress phone_sip_;  // owned by the thread
  mutable std::mutex mutex_;
  Side phone_;  // guarded by mutex_
  Side far_;    // guarded by mutex_
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace test_support
