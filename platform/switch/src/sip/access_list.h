#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// Who may call at all, by address: a SIP port that is open to everybody is found within hours, and what follows costs
/// money. Values only.
namespace kvx_switch {

/// Networks that are let in or kept out. The longest network that an address is in decides, whatever the order of the
/// nodes; an address that is in none gets the list's default.
class AccessList {
 public:
  explicit AccessList(bool allows_others = false) : allows_others_(allows_others) {}

  /// `cidr` is "10.0.0.0/8", "2001:db8::/32", or one address. Of two nodes for one network the later one counts. False
  /// when it is no network, also when bits are set that the length does not cover.
  bool Add(const std::string& cidr, bool allow);
  /// `address` is numeric. An IPv4 address in IPv6 clothes (::ffff:10.0.0.1) is taken for what it is; what is no
  /// address is not allowed.
  bool Allows(const std::string& address) const;

 private:
  using Bits = std::array<uint8_t, 16>;  // IPv4 addresses as their IPv6 form

  struct Network {
    Bits bits;
    unsigned length;  // 0 to 128
    bool allow;
  };

  static bool ReadAddress(const std::string& text, Bits& bits, bool& ipv4);

  bool allows_others_;
  std::vector<Network> networks_;
};

using AccessLists = std::map<std::string, AccessList>;

/// The lists of an acl.conf.xml, by their names. False and `error`, as lines "file:line: what", when it cannot be read
/// or something in it makes no sense: a list that is not what was meant lets in whom it should keep out. `lists` are
/// then good for their names alone; none when the file is no XML.
bool LoadAccessLists(const std::string& path, AccessLists& lists, std::string& error);

}  // namespace kvx_switch
