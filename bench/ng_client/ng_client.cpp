#include "ng_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <random>
#include <stdexcept>

namespace rtpengine_ng {
namespace {

/// Two clients of one daemon, or two runs of one program, must not share cookies.
std::string DrawPrefix() {
  static const char digits[] = "0123456789abcdef";
  std::random_device random;
  std::string prefix;
  for (int i = 0; i < 16; ++i) prefix += digits[random() % 16];
  return prefix + "_";
}

}  // namespace

NgClient::NgClient(const NgSettings& settings) : settings_(settings), cookie_prefix_(DrawPrefix()) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(settings_.port);
  if (inet_pton(AF_INET, settings_.address.c_str(), &to.sin_addr) != 1) {
    throw std::runtime_error("ng server \"" + settings_.address + "\" is no IPv4 address");
  }
  socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket_ >= 0 && connect(socket_, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0) return;
  const std::string why = std::strerror(errno);
  if (socket_ >= 0) close(socket_);
  throw std::runtime_error("no socket towards " + Where() + ": " + why);
}

NgClient::~NgClient() {
  close(socket_);
}

std::string NgClient::Where() const {
  return "ng server " + settings_.address + ":" + std::to_string(settings_.port);
}

std::optional<Dictionary> NgClient::Ask(const Dictionary& request, std::string& error) {
  const std::string cookie = cookie_prefix_ + std::to_string(++last_cookie_);
  const std::string datagram = FrameNg(cookie, request);
  const Clock::time_point end = Clock::now() + settings_.limit;
  error = "no reply within " + std::to_string(settings_.limit.count()) + " ms";
  std::chrono::milliseconds wait = settings_.first_wait;
  for (bool again = false; Clock::now() < end; again = true, wait *= 2) {
    if (again) ++retransmissions_;
    if (!Send(datagram, error)) break;
    const Clock::time_point until = std::min(end, Clock::now() + wait);
    if (std::optional<Dictionary> reply = AwaitReply(cookie, until, error)) return reply;
  }
  error = Where() + ": " + error;
  return std::nullopt;
}

bool NgClient::Send(const std::string& datagram, std::string& error) {
  // A refusal that an earlier datagram met is reported here; the daemon may be there by now.
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (send(socket_, datagram.data(), datagram.size(), MSG_NOSIGNAL) >= 0) return true;
    if (errno == ECONNREFUSED || errno == EINTR) continue;
    error = std::string("cannot send: ") + std::strerror(errno);
    return false;
  }
  return true;
}

std::optional<Dictionary> NgClient::AwaitReply(const std::string& cookie, Clock::time_point until, std::string& error) {
  std::array<char, kLongestNgDatagram> room;
  for (Clock::time_point now = Clock::now(); now < until; now = Clock::now()) {
    pollfd waiting{socket_, POLLIN, 0};
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(until - now);
    if (poll(&waiting, 1, static_cast<int>(rest.count())) <= 0) continue;
    const ssize_t length = recv(socket_, room.data(), room.size(), MSG_DONTWAIT);
    if (length < 0) {
      if (errno == ECONNREFUSED) error = "nothing listens there";
      continue;
    }
    std::string malformed;
    std::optional<NgFrame> frame = ParseNg({room.data(), static_cast<std::size_t>(length)}, malformed);
    if (!frame) {
      error = "malformed reply: " + malformed;
    } else if (frame->cookie == cookie) {
      return std::move(frame->message);
    }
  }
  return std::nullopt;
}

}  // namespace rtpengine_ng
