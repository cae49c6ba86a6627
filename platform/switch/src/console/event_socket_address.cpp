#include "console/event_socket_address.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <iterator>

namespace kvx_switch {
namespace {

const char* const kPasswordsEverybodyKnows[] = {"kelvaro", "ClueCon"};

}  // namespace

SocketAddresses ResolveListenAddress(const std::string& host, const std::string& port) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const std::string numeric = host == "localhost" ? "127.0.0.1" : host;
  if (numeric.empty() || getaddrinfo(numeric.c_str(), port.c_str(), &hints, &found) != 0) found = nullptr;
  return SocketAddresses(found, &freeaddrinfo);
}

bool IsLoopback(const sockaddr* address) {
  if (address->sa_family == AF_INET) {
    const auto* ipv4 = reinterpret_cast<const sockaddr_in*>(address);
    return (ntohl(ipv4->sin_addr.s_addr) >> 24) == IN_LOOPBACKNET;
  }
  const in6_addr& ipv6 = reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
  return IN6_IS_ADDR_LOOPBACK(&ipv6) || (IN6_IS_ADDR_V4MAPPED(&ipv6) && ipv6.s6_addr[12] == IN_LOOPBACKNET);
}

bool IsKnownToEverybody(const std::string& password) {
  return std::any_of(std::begin(kPasswordsEverybodyKnows), std::end(kPasswordsEverybodyKnows),
                     [&password](const char* known) { return password == known; });
}

}  // namespace kvx_switch
