#include "ip_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

namespace kelvaro {

namespace {

/// How many 32-bit words an address of the family has; 0 for a family that is not an IP one.
size_t words_of(short family) {
  switch (family) {
    case AF_INET:
      return 1;
    case AF_INET6:
      return 4;
    default:
      return 0;
  }
}

bool is_bracketed(const std::string& text) {
  return text.size() >= 2 && text.front() == '[' && text.back() == ']';
}

}  // namespace

void* IpAddress::AddressBytes() {
  if (sockaddr_.ss_family == AF_INET6) return &reinterpret_cast<sockaddr_in6&>(sockaddr_).sin6_addr;
  return &reinterpret_cast<sockaddr_in&>(sockaddr_).sin_addr;
}

bool IpAddress::set(const sockaddr_storage* address) {
  if (!address || words_of(static_cast<short>(address->ss_family)) == 0) return false;
  sockaddr_ = *address;
  valid_ = true;
  return true;
}

bool IpAddress::set(uint32_t* addr, size_t len, short family) {
  const size_t words = words_of(family);
  if (words == 0 || len < words) return false;
  sockaddr_.ss_family = static_cast<sa_family_t>(family);
  std::memcpy(AddressBytes(), addr, words * sizeof(*addr));
  valid_ = true;
  return true;
}

bool IpAddress::get(uint32_t* addr) {
  const size_t words = words_of(get_family());
  if (words == 0) return false;
  std::memcpy(addr, AddressBytes(), words * sizeof(*addr));
  return true;
}

short IpAddress::get(uint32_t* addr, size_t len) {
  if (len < words_of(get_family())) return 0;
  get(addr);
  return get_family();
}

short IpAddress::get_family(const std::string& text) {
  if (text.empty()) return AF_UNSPEC;
  return is_bracketed(text) || text.find(':') != std::string::npos ? AF_INET6 : AF_INET;
}

bool IpAddress::set(const std::string& text) {
  if (text.empty()) return false;
  sockaddr_.ss_family = static_cast<sa_family_t>(get_family(text));
  const std::string literal = is_bracketed(text) ? text.substr(1, text.size() - 2) : text;
  valid_ = inet_pton(sockaddr_.ss_family, literal.c_str(), AddressBytes()) == 1;
  return valid_;
}

bool IpAddress::get(std::string& text) {
  char buffer[INET6_ADDRSTRLEN];
  if (words_of(get_family()) == 0) return false;
  if (!inet_ntop(sockaddr_.ss_family, AddressBytes(), buffer, sizeof(buffer))) return false;
  text = buffer;
  return true;
}

}  // namespace kelvaro
