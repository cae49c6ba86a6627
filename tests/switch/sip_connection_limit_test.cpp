// Connections over TCP that nobody needs: a stranger may make many of them and say nothing.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include "sip/sip_front.h"
#include "sip_call_fixture.h"
#include "support/process_child.h"

namespace kvx_switch {
namespace {

using std::chrono::seconds;

/// A silent connection to a port on loopback.
class Connection {
 public:
  Connection(const char* from, uint16_t port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, from, &address.sin_addr);
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
    address.sin_port = htons(port);
    EXPECT_EQ(connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  }
  ~Connection() { close(socket_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// The far end has neither closed it nor said anything.
  bool IsUp() const {
    pollfd waiting{socket_, POLLIN, 0};
    return poll(&waiting, 1, 0) == 0;
  }

 private:
  const int socket_;
};

class SipTcpConnections : public SipCall {
 protected:
  void AllowConnections(int most) {
    Profile("<param name=\"tcp-max-connections\" value=\"" + std::to_string(most) + "\"/>");
    StopSipSide();
    StartSipSide();
    const std::string address = SipAddress();
    port_ = static_cast<uint16_t>(std::stoi(address.substr(address.rfind(':') + 1)));
  }

  void Connect(const char* from, int count) {
    for (int i = 0; i < count; ++i) connections_.push_back(std::make_unique<Connection>(from, port_));
  }
  std::ptrdiff_t Up() const {
    return std::count_if(connections_.begin(), connections_.end(), [](const auto& one) { return one->IsUp(); });
  }

  uint16_t port_ = 0;
  std::vector<std::unique_ptr<Connection>> connections_;
};

TEST_F(SipTcpConnections, WhatIsTooMuchIsClosedAndCallsGoOn) {
  AllowConnections(5);
  Connect("127.0.0.1", 60);
  EXPECT_TRUE(test_support::wait_until(seconds(10), [this] { return Up() == 5; })) << Up();
  ConnectToBob();
  EndCall();
  EXPECT_EQ(Up(), 5);
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, "SIP profile \"internal\": there may be 5 TCP connections; "));
  EXPECT_TRUE(Logged(SWITCH_LOG_WARNING, " more were closed, the first from 127.0.0.1, which had most"));
}

TEST_F(SipTcpConnections, WhoHasMostLosesThem) {
  AllowConnections(5);
  Connection other("127.0.0.2", port_);
  Connect("127.0.0.1", 30);
  EXPECT_TRUE(test_support::wait_until(seconds(10), [this] { return Up() == 4; })) << Up();
  EXPECT_TRUE(other.IsUp());
}

TEST_F(SipTcpConnections, ConnectionsWithinItStay) {
  AllowConnections(5);
  Connect("127.0.0.1", 5);
  ConnectToBob();
  EndCall();
  EXPECT_EQ(Up(), 5);
  EXPECT_EQ(SipConnectionLimit(), 5u);
}

}  // namespace
}  // namespace kvx_switch
