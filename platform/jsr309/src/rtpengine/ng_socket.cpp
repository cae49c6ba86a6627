#include "rtpengine/ng_socket.h"

#include <netdb.h>
#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>
#include <system_error>

namespace kelvaro::jsr309::rtpengine {
namespace {

/// Unlike strerror, from any thread.
std::string Message(int number) {
  return std::generic_category().message(number);
}

}  // namespace

NgSocket::~NgSocket() {
  if (socket_ >= 0) close(socket_);
  if (bell_ >= 0) close(bell_);
}

bool NgSocket::Open(const std::string& address, uint16_t port, std::string& error) {
  addrinfo hints{}, *list = nullptr;
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_DGRAM;
  if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &list) != 0) {
    error = "\"" + address + "\" is no numeric address";
    return false;
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> to(list, freeaddrinfo);
  // One octet more than is taken, so that a longer datagram shows.
  room_.resize(kLongestNgDatagram + 1);
  bell_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  socket_ = socket(to->ai_family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (bell_ >= 0 && socket_ >= 0 && connect(socket_, to->ai_addr, to->ai_addrlen) == 0) return true;
  error = "no socket towards " + address + " port " + std::to_string(port) + ": " + Message(errno);
  return false;
}

NgSocket::Sent NgSocket::Send(const std::string& datagram, std::string& error) {
  Sent result = Sent::kYes;
  for (int attempt = 0; attempt < 3; ++attempt) {
    if (send(socket_, datagram.data(), datagram.size(), MSG_NOSIGNAL) >= 0) return result;
    if (errno == EAGAIN || errno == ENOBUFS) return result;
    if (errno != ECONNREFUSED && errno != EINTR) {
      error = Message(errno);
      return Sent::kFailed;
    }
    if (errno == ECONNREFUSED) result = Sent::kRefused;
  }
  return result;
}

NgSocket::Received NgSocket::Receive(std::string_view& datagram, std::string& error) {
  const ssize_t length = recv(socket_, room_.data(), room_.size(), MSG_TRUNC);
  if (length > static_cast<ssize_t>(kLongestNgDatagram)) return Received::kOversized;
  if (length >= 0) {
    taken_ = static_cast<std::size_t>(length);
    datagram = {room_.data(), static_cast<std::size_t>(length)};
    return Received::kDatagram;
  }
  if (errno == EAGAIN || errno == EINTR) return Received::kNothing;
  if (errno == ECONNREFUSED) return Received::kRefused;
  error = Message(errno);
  return Received::kFailed;
}

void NgSocket::WipeReceived() {
  explicit_bzero(room_.data(), taken_);
}

void NgSocket::Wait(std::chrono::milliseconds time) {
  pollfd waiting[] = {{socket_, POLLIN, 0}, {bell_, POLLIN, 0}};
  const auto rest = std::clamp<std::chrono::milliseconds::rep>(time.count(), 0, INT_MAX);
  if (poll(waiting, 2, static_cast<int>(rest)) <= 0 || waiting[1].revents == 0) return;
  eventfd_t count = 0;
  eventfd_read(bell_, &count);
}

void NgSocket::Ring() {
  eventfd_write(bell_, 1);
}

}  // namespace kelvaro::jsr309::rtpengine
