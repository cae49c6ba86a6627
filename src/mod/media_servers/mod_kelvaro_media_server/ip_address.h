#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace kelvaro {

/// The connection address of an SDP arrives as text: an IPv4 literal, an IPv6 literal with or without brackets, or a
/// host name. This class tells a literal from a name and converts between text, words and socket address; it never
/// resolves a name. Words are in network byte order. One object belongs to one thread at a time.
class IpAddress {
 public:
  IpAddress() = default;
  IpAddress(const IpAddress&) = default;
  IpAddress& operator=(const IpAddress&) = default;
  virtual ~IpAddress() = default;

  /// Takes over an AF_INET or AF_INET6 address; anything else, and null, is refused and changes nothing.
  virtual bool set(const sockaddr_storage* address);

  /// Takes one word for AF_INET, four for AF_INET6; too few words or another family is refused and changes nothing.
  virtual bool set(uint32_t* addr, size_t len, short family);

  /// Copies one or four words out, by family; the caller has room for four. False, and nothing copied, without a
  /// family.
  virtual bool get(uint32_t* addr);

  /// Copies one or four words out and returns the family; 0 when `len` words are too few. An unset address copies
  /// nothing and returns the family as it is stored.
  virtual short get(uint32_t* addr, size_t len);

  /// True when the text is a numeric address of the family that its form says (see get_family).
  virtual bool set(const std::string& text);

  /// False, and `text` untouched, when the stored address has no family.
  virtual bool get(std::string& text);

  bool valid() const { return valid_; }
  short get_family() const { return static_cast<short>(sockaddr_.ss_family); }

  /// AF_INET6 for a text in brackets or with a colon in it, else AF_INET; an empty text has no family (0).
  static short get_family(const std::string& text);

 private:
  void* AddressBytes();

  bool valid_ = false;
  sockaddr_storage sockaddr_ = {};
};

}  // namespace kelvaro
