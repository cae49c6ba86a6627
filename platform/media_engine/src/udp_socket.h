/// A UDP socket that is bound, does not block and closes itself.
#pragma once

#include "media_engine/description.h"
#include "socket_address.h"

namespace media_engine {

class UdpSocket {
 public:
  UdpSocket() = default;
  ~UdpSocket() { Close(); }
  UdpSocket(UdpSocket&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  UdpSocket& operator=(UdpSocket&& other) noexcept;

  /// 0, or the errno with which it failed; nothing is open then.
  int Bind(const SocketAddress& address);
  /// A second socket on a port that `first` is bound to: the system gives it what comes from the peer and `first` the
  /// rest. Nobody else can come between, before or afterwards. 0, or the errno; nothing is open then.
  int ConnectBeside(const UdpSocket& first, const SocketAddress& local, const SocketAddress& peer);
  void Close();
  int fd() const { return fd_; }
  bool is_open() const { return fd_ >= 0; }

  /// Sets the fields that are given and that the socket's family has. Empty, or what the system refused.
  std::string ApplyIpHeader(int family, const IpHeaderSettings& settings) const;

 private:
  int Open(int family);

  int fd_ = -1;
};

}  // namespace media_engine
