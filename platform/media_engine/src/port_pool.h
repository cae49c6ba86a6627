/// A server's RTP ports: an even one for RTP and the odd one above it for RTCP (RFC 3550, section 11).
///
/// A far end goes on sending for a while after its call is over, and what it sends must not reach the next call. So a
/// pair that has served rests for the quarantine, unbound, before it is handed out again, and the pool goes on from
/// where it last was: a pair just freed is the last to come again. When all that are free are resting there is none.
/// The range is shared with other programs; ports that they hold are passed over.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "media_engine/clock.h"
#include "socket_address.h"
#include "udp_socket.h"

namespace media_engine {

class PortPool;

/// A bound port pair, given back to its pool when it is destroyed.
class PortPair {
 public:
  PortPair(std::shared_ptr<PortPool> pool, std::size_t index, UdpSocket rtp, UdpSocket rtcp, SocketAddress address);
  ~PortPair();
  PortPair(const PortPair&) = delete;
  PortPair& operator=(const PortPair&) = delete;

  const UdpSocket& rtp() const { return rtp_; }
  const UdpSocket& rtcp() const { return rtcp_; }

  /// A second socket on the RTP port, connected to one far end. The system spares itself the look-up of the route for
  /// each packet to it, and of the socket for each packet from it; everybody else's packets still come to rtp(). Not
  /// open when the system refuses, or when so many files are open that it would be missed elsewhere.
  bool OpenExpress(const SocketAddress& peer);
  void CloseExpress();
  const UdpSocket& express() const { return express_; }
  /// Of the express socket, while it is open.
  const SocketAddress& express_peer() const { return express_peer_; }
  /// What a packet to that far end is best sent through.
  bool HasExpressTo(const SocketAddress& far_end) const { return express_.is_open() && express_peer_ == far_end; }
  /// What the RTP socket is bound to.
  const SocketAddress& address() const { return address_; }
  uint16_t rtp_port() const { return address_.port(); }
  uint16_t rtcp_port() const { return static_cast<uint16_t>(address_.port() + 1); }
  /// An endpoint has it: far ends may know it from now on. Others need no quarantine.
  void MarkUsed() { used_ = true; }

 private:
  UdpSocket rtp_, express_, rtcp_;
  SocketAddress express_peer_;
  bool used_ = false;
  const SocketAddress address_;
  const std::shared_ptr<PortPool> pool_;
  const std::size_t index_;
};

/// Threads: all operations from any thread. Acquire makes system calls, so it belongs on the threads that make
/// requests, not on the ones that move packets.
class PortPool : public std::enable_shared_from_this<PortPool> {
 public:
  /// A null clock is for no quarantine only.
  PortPool(SocketAddress address, uint16_t first, uint16_t last, milliseconds quarantine = milliseconds{0},
           std::shared_ptr<const Clock> clock = nullptr);

  /// Null when there is none; reason says why.
  std::unique_ptr<PortPair> Acquire(std::string& reason);
  std::size_t capacity() const { return size_; }
  /// Without those that rest.
  std::size_t in_use() const;
  /// Looks anew how many files are open; the descriptor is any that is.
  void CountDescriptors(int open_descriptor);
  /// Nearly as many files are open as may be: sockets that only make things faster should go.
  bool FewDescriptorsLeft() const { return few_descriptors_left_.load(std::memory_order_relaxed); }
  /// False from when such a socket was made and found to be one too many until a socket of any pair was closed: to make
  /// one and close it again, for every leg again and again, costs more than it would bring.
  bool RoomForExpress() const { return room_for_express_.load(std::memory_order_relaxed); }

 private:
  friend class PortPair;
  enum class Attempt { kBound, kTaken, kFailed };

  struct Resting {
    std::size_t index;
    TimePoint until;
  };

  /// Marks the next free pair as taken; none when all are.
  bool Reserve(std::size_t& index);
  void Release(std::size_t index, bool rest);
  /// Guard: mutex_ held by the caller.
  void WakeRested();
  std::string ExhaustedText(std::size_t taken_by_others) const;
  Attempt BindPair(std::size_t index, UdpSocket& rtp, UdpSocket& rtcp, std::string& reason) const;
  uint16_t PortOf(std::size_t index) const { return static_cast<uint16_t>(first_ + 2 * index); }
  std::string RangeText() const;

  const SocketAddress address_;
  const uint16_t first_;  // even
  const uint16_t last_;
  const std::size_t size_;  // in pairs
  const milliseconds quarantine_;
  const std::shared_ptr<const Clock> clock_;
  std::atomic<bool> few_descriptors_left_{false};
  std::atomic<bool> room_for_express_{true};

  mutable std::mutex mutex_;
  std::vector<bool> taken_;      // guarded by mutex_; in use or resting
  std::size_t next_ = 0;         // guarded by mutex_
  std::size_t in_use_ = 0;       // guarded by mutex_
  std::deque<Resting> resting_;  // guarded by mutex_; the first to come back in front
};

}  // namespace media_engine
