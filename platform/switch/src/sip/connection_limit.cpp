#include "sip/connection_limit.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <switch.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace kvx_switch {

namespace {

constexpr std::chrono::milliseconds kBetweenLooks{200};
constexpr std::chrono::milliseconds kLongestWait{1000};
/// A busy stack turns thousands of times a second, and to ask each time how many connections there are would cost it
/// more than those that a far end can make in between.
constexpr std::chrono::milliseconds kBetweenGlances{2};
constexpr std::chrono::seconds kBetweenWarnings{10};
/// So many connections more than at the last look are reason enough to look at once.
constexpr size_t kManyOpened = 32;
constexpr size_t kUnknown = SIZE_MAX / 2;  // beyond every limit

std::vector<uint8_t> BytesOf(const sockaddr_storage& address) {
  const auto* v4 = reinterpret_cast<const sockaddr_in*>(&address);
  const auto* v6 = reinterpret_cast<const sockaddr_in6*>(&address);
  const bool ipv4 = address.ss_family == AF_INET;
  const auto* bytes = ipv4 ? reinterpret_cast<const uint8_t*>(&v4->sin_addr) : v6->sin6_addr.s6_addr;
  return {bytes, bytes + (ipv4 ? sizeof(v4->sin_addr) : sizeof(v6->sin6_addr))};
}

std::string TextOf(const std::vector<uint8_t>& address) {
  char text[INET6_ADDRSTRLEN] = "";
  inet_ntop(address.size() == sizeof(in_addr) ? AF_INET : AF_INET6, address.data(), text, sizeof(text));
  return text;
}

/// False for what is no TCP connection, or one that is on its way out already.
bool IsUp(int descriptor, uint32_t& silent_ms) {
  tcp_info info{};
  socklen_t length = sizeof(info);
  if (getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &length) != 0) return false;
  silent_ms = info.tcpi_last_data_recv;
  return info.tcpi_state == TCP_ESTABLISHED;
}

/// The number behind "TCP: inuse" in what the system counts; kUnknown where it does not tell.
size_t InUse(int descriptor, const char* before) {
  char text[512];
  const ssize_t length = pread(descriptor, text, sizeof(text) - 1, 0);
  text[std::max<ssize_t>(length, 0)] = '\0';
  const char* found = std::strstr(text, before);
  return found == nullptr ? kUnknown : std::strtoul(found + std::strlen(before), nullptr, 10);
}

size_t QuarterOfDescriptors() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return SIZE_MAX;
  return std::max<size_t>(limit.rlim_cur / 4, 1);
}

}  // namespace

ConnectionLimit::ConnectionLimit(const std::string& profile, const std::string& address, uint16_t port, uint32_t most)
    : profile_(profile), most_(most), port_(port), descriptors_(opendir("/proc/self/fd"), closedir) {
  sockaddr_storage storage{};
  auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
  auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
  storage.ss_family = inet_pton(AF_INET, address.c_str(), &v4->sin_addr) == 1 ? AF_INET : AF_INET6;
  const bool ipv4 = storage.ss_family == AF_INET;
  sockets_ = FileDescriptor(open(ipv4 ? "/proc/self/net/sockstat" : "/proc/self/net/sockstat6", O_RDONLY | O_CLOEXEC));
  if (storage.ss_family == AF_INET6) inet_pton(AF_INET6, address.c_str(), &v6->sin6_addr);
  address_ = BytesOf(storage);
}

bool ConnectionLimit::IsOurs(const sockaddr_storage& local) const {
  if (local.ss_family != AF_INET && local.ss_family != AF_INET6) return false;
  // The port is at the same place in both.
  return ntohs(reinterpret_cast<const sockaddr_in*>(&local)->sin_port) == port_ && BytesOf(local) == address_;
}

size_t ConnectionLimit::Find(Connections& connections) {
  size_t count = 0;
  rewinddir(descriptors_.get());
  while (const dirent* entry = readdir(descriptors_.get())) {
    const int descriptor = std::atoi(entry->d_name);
    sockaddr_storage local{};
    sockaddr_storage remote{};
    socklen_t local_length = sizeof(local);
    socklen_t remote_length = sizeof(remote);
    Connection connection{descriptor, 0};
    if (entry->d_name[0] == '.' || getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &local_length) != 0 ||
        !IsOurs(local) || getpeername(descriptor, reinterpret_cast<sockaddr*>(&remote), &remote_length) != 0 ||
        !IsUp(descriptor, connection.silent_ms)) {
      continue;
    }
    connections[BytesOf(remote)].push_back(connection);
    ++count;
  }
  return count;
}

std::chrono::milliseconds ConnectionLimit::Look(Clock::time_point now) {
  if (!descriptors_) return kLongestWait;
  if (now < next_glance_) return kBetweenLooks;
  next_glance_ = now + kBetweenGlances;
  const size_t most = std::min<size_t>(most_, QuarterOfDescriptors());
  const size_t in_use = InUse(sockets_.get(), address_.size() == sizeof(in_addr) ? "TCP: inuse " : "TCP6: inuse ");
  // With calls up there are thousands of descriptors to look through, nearly all of them media's.
  if (in_use <= most) return kLongestWait;
  if (now < next_look_ && in_use < in_use_at_last_look_ + kManyOpened) return kBetweenLooks;
  next_look_ = now + kBetweenLooks;
  in_use_at_last_look_ = in_use;
  Connections connections;
  const size_t count = Find(connections);
  if (count > most) ShutDown(connections, count - most, most, now);
  return kLongestWait;
}

void ConnectionLimit::ShutDown(Connections& connections, size_t excess, size_t most, Clock::time_point now) {
  std::string from;
  for (size_t left = excess; left > 0; --left) {
    const auto crowd = std::max_element(connections.begin(), connections.end(),
                                        [](const auto& a, const auto& b) { return a.second.size() < b.second.size(); });
    std::vector<Connection>& theirs = crowd->second;
    const auto longest = std::max_element(theirs.begin(), theirs.end(), [](const Connection& a, const Connection& b) {
      return a.silent_ms < b.silent_ms;
    });
    shutdown(longest->descriptor, SHUT_RDWR);
    theirs.erase(longest);
    if (from.empty()) from = TextOf(crowd->first);
  }
  closed_ += excess;
  if (now < next_warning_) return;
  next_warning_ = now + kBetweenWarnings;
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING,
                    "SIP profile \"%s\": there may be %zu TCP connections; %zu more were closed, the first from %s, "
                    "which had most\n",
                    profile_.c_str(), most, std::exchange(closed_, 0), from.c_str());
}

}  // namespace kvx_switch
