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
  void Close();
  int fd() const { return fd_; }
  bool is_open() const { return fd_ >= 0; }

  /// Sets the fields that are given and that the socket's family has. Empty, or what the system refused.
  std::string ApplyIpHeader(int family, const IpHeaderSettings& settings) const;

 private:
  int fd_ = -1;
};

}  // namespace media_engine
