#include "operate/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace kvx_switch {
namespace {

/// 0 when the watchdog is off or meant for another process.
std::chrono::milliseconds pause_between_signs() {
  const char* period = std::getenv("WATCHDOG_USEC");
  const char* process = std::getenv("WATCHDOG_PID");
  if (!period || (process && std::strtol(process, nullptr, 10) != getpid())) return {};
  return std::chrono::milliseconds(std::strtoull(period, nullptr, 10) / 2000);
}

}  // namespace

ServiceManager::ServiceManager() {
  const char* address = std::getenv("NOTIFY_SOCKET");
  if (!address || (address[0] != '/' && address[0] != '@')) return;
  address_ = address;
  if (address_.front() == '@') address_.front() = '\0';
  if (address_.size() < sizeof(sockaddr_un::sun_path)) socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket_ >= 0) watchdog_pause_ = pause_between_signs();
}

ServiceManager::~ServiceManager() {
  if (socket_ >= 0) close(socket_);
}

bool ServiceManager::Notify(const std::string& state) {
  if (socket_ < 0) return false;
  sockaddr_un to{};
  to.sun_family = AF_UNIX;
  std::memcpy(to.sun_path, address_.data(), address_.size());
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());
  return sendto(socket_, state.data(), state.size(), MSG_NOSIGNAL | MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&to),
                length) == static_cast<ssize_t>(state.size());
}

}  // namespace kvx_switch
