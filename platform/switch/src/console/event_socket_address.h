#pragma once

#include <netdb.h>

#include <memory>
#include <string>

namespace kvx_switch {

using SocketAddresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

/// A numeric address or "localhost", to listen on; null for anything else. No name server is asked: the switch must not
/// wait for one to come up.
SocketAddresses ResolveListenAddress(const std::string& host, const std::string& port);

bool IsLoopback(const sockaddr* address);

/// The passwords of sample configurations, ours and others', which are no secret.
bool IsKnownToEverybody(const std::string& password);

}  // namespace kvx_switch
