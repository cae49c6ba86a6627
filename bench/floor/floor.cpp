// The least that a relay can do: takes a packet from a leg's connected socket and sends it through its neighbour's.
// It reads no header, keeps no count and has no RTCP; what a media server costs beyond this is its own.
//
//     legs LOCAL FAR P0 P1 ...  ->  ports L0 L1 ...
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "../support/lines.h"
#include "../support/system.h"

namespace bench {
namespace {

constexpr int kEventsPerTurn = 64;

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

sockaddr_in AddressOf(const std::string& address, uint16_t port) {
  sockaddr_in out{};
  out.sin_family = AF_INET;
  out.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &out.sin_addr) != 1) throw std::runtime_error("no address: " + address);
  return out;
}

int OpenLeg(const std::string& local, const std::string& far, uint16_t far_port, uint16_t& port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) Fail("no socket for a leg");
  sockaddr_in here = AddressOf(local, 0);
  const sockaddr_in there = AddressOf(far, far_port);
  socklen_t length = sizeof here;
  if (bind(fd, reinterpret_cast<const sockaddr*>(&here), length) != 0 ||
      connect(fd, reinterpret_cast<const sockaddr*>(&there), sizeof there) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&here), &length) != 0) {
    Fail("a leg at " + local);
  }
  port = ntohs(here.sin_port);
  return fd;
}

/// One packet: there is hardly ever a second one, and asking for it costs as much as the next turn does.
void Forward(int from, int to) {
  std::array<char, 2048> packet;
  const ssize_t length = recv(from, packet.data(), packet.size(), MSG_DONTWAIT);
  if (length > 0) send(to, packet.data(), static_cast<std::size_t>(length), MSG_DONTWAIT | MSG_NOSIGNAL);
}

[[noreturn]] void Serve(const std::vector<int>& legs) {
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  for (std::size_t i = 0; i < legs.size(); ++i) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = i;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, legs[i], &event) != 0) Fail("epoll");
  }
  std::array<epoll_event, kEventsPerTurn> events;
  for (;;) {
    const int count = epoll_wait(epoll, events.data(), kEventsPerTurn, -1);
    for (int i = 0; i < count; ++i) {
      const std::size_t leg = events[static_cast<std::size_t>(i)].data.u64;
      Forward(legs[leg], legs[leg ^ 1]);
    }
  }
}

[[noreturn]] void Main() {
  std::string line;
  std::getline(std::cin, line);
  const Words words = Split(line);
  if (words.size() < 5 || words[0] != "legs") throw std::runtime_error("no legs");
  std::vector<uint16_t> ports;
  std::vector<int> legs;
  AllowFiles(words.size() + 64);
  for (const uint16_t far_port : PortsOf(words, 3)) {
    ports.push_back(0);
    legs.push_back(OpenLeg(words[1], words[2], far_port, ports.back()));
  }
  Answer(Line("ports", ports));
  Serve(legs);
}

}  // namespace
}  // namespace bench

int main() try { bench::Main(); } catch (const std::exception& error) {
  std::fprintf(stderr, "floor: %s\n", error.what());
  return 1;
}
