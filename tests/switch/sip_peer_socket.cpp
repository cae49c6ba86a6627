#include "sip_peer_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <list>
#include <system_error>
#include <vector>

namespace kvx_switch {

namespace {

struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t length = sizeof(storage);

  sockaddr* Raw() { return reinterpret_cast<sockaddr*>(&storage); }
  const sockaddr* Raw() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

SocketAddress Loopback(bool ipv6, uint16_t port) {
  SocketAddress address;
  if (ipv6) {
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&address.storage);
    v6->sin6_family = AF_INET6;
    v6->sin6_addr = in6addr_loopback;
    v6->sin6_port = htons(port);
    address.length = sizeof(*v6);
  } else {
    auto* v4 = reinterpret_cast<sockaddr_in*>(&address.storage);
    v4->sin_family = AF_INET;
    v4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    v4->sin_port = htons(port);
    address.length = sizeof(*v4);
  }
  return address;
}

/// Tests run on loopback alone, so the port says it all.
SocketAddress AddressOf(const std::string& text) {
  return Loopback(text.front() == '[', static_cast<uint16_t>(std::atoi(text.c_str() + text.rfind(':') + 1)));
}

class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {
    if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "a test phone's socket");
  }
  ~Descriptor() { close(descriptor_); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int Get() const { return descriptor_; }

 private:
  int descriptor_;
};

int MillisecondsUntil(std::chrono::steady_clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

std::string BindToLoopback(const Descriptor& socket, bool ipv6) {
  SocketAddress address = Loopback(ipv6, 0);
  if (bind(socket.Get(), address.Raw(), address.length) != 0 ||
      getsockname(socket.Get(), address.Raw(), &address.length) != 0) {
    throw std::system_error(errno, std::generic_category(), "a test phone's port");
  }
  const uint16_t port = ntohs(reinterpret_cast<sockaddr_in*>(&address.storage)->sin_port);
  return (ipv6 ? "[::1]:" : "127.0.0.1:") + std::to_string(port);
}

class UdpSide : public SipPeerSocket {
 public:
  explicit UdpSide(bool ipv6)
      : socket_(socket(ipv6 ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)),
        address_(BindToLoopback(socket_, ipv6)) {}

  std::string Address() const override { return address_; }

  void Send(const std::string& to, const std::string& message) override {
    const SocketAddress address = AddressOf(to);
    for (int attempt = 0; attempt < 3; ++attempt) {
      // An earlier message's refusal (ICMP) comes up here.
      if (sendto(socket_.Get(), message.data(), message.size(), 0, address.Raw(), address.length) >= 0) return;
    }
  }

  std::optional<std::string> Receive(std::chrono::steady_clock::time_point deadline) override {
    thread_local std::array<char, 65536> buffer;
    while (true) {
      const ssize_t size = recv(socket_.Get(), buffer.data(), buffer.size(), 0);
      if (size >= 0) return std::string(buffer.data(), static_cast<size_t>(size));
      if (errno == ECONNREFUSED || errno == EINTR) continue;
      const int limit = MillisecondsUntil(deadline);
      pollfd polled{socket_.Get(), POLLIN, 0};
      if (limit == 0 || poll(&polled, 1, limit) == 0) return std::nullopt;
    }
  }

 private:
  Descriptor socket_;
  std::string address_;
};

class TcpSide : public SipPeerSocket {
 public:
  explicit TcpSide(bool ipv6)
      : ipv6_(ipv6),
        listener_(socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)),
        address_(BindToLoopback(listener_, ipv6)) {
    if (listen(listener_.Get(), 16) != 0) throw std::system_error(errno, std::generic_category(), "listen");
  }

  std::string Address() const override { return address_; }

  void Send(const std::string& to, const std::string& message) override {
    if (connections_.empty()) Connect(to);
    size_t sent = 0;
    while (!connections_.empty() && sent < message.size()) {
      const int descriptor = connections_.back().socket.Get();
      const ssize_t size = send(descriptor, message.data() + sent, message.size() - sent, MSG_NOSIGNAL);
      if (size > 0) sent += static_cast<size_t>(size);
      if (size >= 0 || errno == EINTR) continue;
      if (errno != EAGAIN) return connections_.pop_back();
      pollfd polled{descriptor, POLLOUT, 0};
      if (poll(&polled, 1, 5000) == 0) return;
    }
  }

  std::optional<std::string> Receive(std::chrono::steady_clock::time_point deadline) override {
    while (true) {
      for (Connection& connection : connections_) {
        if (std::optional<std::string> message = TakeSipMessage(connection.stream)) return message;
      }
      std::vector<pollfd> polled = {{listener_.Get(), POLLIN, 0}};
      for (const Connection& connection : connections_) polled.push_back({connection.socket.Get(), POLLIN, 0});
      if (poll(polled.data(), polled.size(), MillisecondsUntil(deadline)) <= 0) return std::nullopt;
      size_t index = 1;
      for (auto at = connections_.begin(); at != connections_.end(); ++index) {
        at = polled[index].revents == 0 || Read(*at) ? std::next(at) : connections_.erase(at);
      }
      if (polled[0].revents) Accept();
    }
  }

 private:
  struct Connection {
    explicit Connection(int descriptor) : socket(descriptor) {}
    Descriptor socket;
    std::string stream;
  };

  void Connect(const std::string& to) {
    connections_.emplace_back(socket(ipv6_ ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const SocketAddress address = AddressOf(to);
    const int descriptor = connections_.back().socket.Get();
    if (connect(descriptor, address.Raw(), address.length) == 0) return;
    pollfd polled{descriptor, POLLOUT, 0};
    if (errno != EINPROGRESS || poll(&polled, 1, 5000) != 1) connections_.pop_back();
  }

  void Accept() {
    const int descriptor = accept4(listener_.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (descriptor >= 0) connections_.emplace_back(descriptor);
  }

  static bool Read(Connection& connection) {
    std::array<char, 65536> buffer;
    const ssize_t size = recv(connection.socket.Get(), buffer.data(), buffer.size(), 0);
    if (size > 0) connection.stream.append(buffer.data(), static_cast<size_t>(size));
    return size > 0 || (size < 0 && (errno == EAGAIN || errno == EINTR));
  }

  const bool ipv6_;
  Descriptor listener_;
  std::string address_;
  std::list<Connection> connections_;  // the newest last
};

}  // namespace

std::unique_ptr<SipPeerSocket> SipPeerSocket::Open(SipPeerTransport transport) {
  if (transport.tcp) return std::make_unique<TcpSide>(transport.ipv6);
  return std::make_unique<UdpSide>(transport.ipv6);
}

std::optional<std::string> TakeSipMessage(std::string& stream) {
  stream.erase(0, std::min(stream.find_first_not_of("\r\n"), stream.size()));
  const size_t end = stream.find("\r\n\r\n");
  if (end == std::string::npos) return std::nullopt;
  size_t length = end + 4;
  for (size_t line = stream.find("\r\n"); line < end; line = stream.find("\r\n", line + 2)) {
    const char* header = stream.c_str() + line + 2;
    if (strncasecmp(header, "Content-Length:", 15) == 0) length += std::strtoul(header + 15, nullptr, 10);
    if (strncasecmp(header, "l:", 2) == 0) length += std::strtoul(header + 2, nullptr, 10);
  }
  if (stream.size() < length) return std::nullopt;
  std::string message = stream.substr(0, length);
  stream.erase(0, length);
  return message;
}

}  // namespace kvx_switch
