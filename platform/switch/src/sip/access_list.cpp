#include "sip/access_list.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>

#include "sip/located_xml.h"

namespace kvx_switch {

namespace {

constexpr unsigned kIpv4Start = 96;  // where an IPv4 address begins in its IPv6 form (RFC 4291, 2.5.5.2)

bool BitAt(const std::array<uint8_t, 16>& bits, unsigned position) {
  return (bits[position / 8] >> (7 - position % 8)) & 1;
}

/// "allow" or "deny".
bool ReadVerdict(const std::string& path, const LocatedElement& element, const char* attribute, bool& allow,
                 std::string& error) {
  const std::string* verdict = element.Attribute(attribute);
  if (verdict && (*verdict == "allow" || *verdict == "deny")) {
    allow = *verdict == "allow";
    return true;
  }
  error = At(path, element) + "\"" + attribute + "\" of \"" + element.name + "\" is \"" + (verdict ? *verdict : "") +
          "\", not \"allow\" or \"deny\"";
  return false;
}

bool ReadNode(const std::string& path, const LocatedElement& node, AccessList& list, std::string& error) {
  bool allow = false;
  if (!ReadVerdict(path, node, "type", allow, error)) return false;
  const std::string* cidr = node.Attribute("cidr");
  if (cidr && list.Add(*cidr, allow)) return true;
  error = At(path, node) + "\"cidr\" of \"node\" is \"" + (cidr ? *cidr : "") +
          "\", not a network such as 10.0.0.0/8 or 2001:db8::/32";
  return false;
}

bool ReadList(const std::string& path, const LocatedElement& element, AccessLists& lists, std::string& error) {
  const std::string* name = element.Attribute("name");
  if (!name || name->empty()) {
    error = At(path, element) + "a \"list\" needs a \"name\"";
    return false;
  }
  bool allows_others = false;
  if (!ReadVerdict(path, element, "default", allows_others, error)) return false;
  AccessList list(allows_others);
  for (const LocatedElement& node : element.children) {
    if (node.name != "node") {
      error = At(path, node) + "expected <node>, not <" + node.name + ">";
      return false;
    }
    if (!ReadNode(path, node, list, error)) return false;
  }
  if (lists.emplace(*name, std::move(list)).second) return true;
  error = At(path, element) + "a second list \"" + *name + "\"";
  return false;
}

}  // namespace

bool AccessList::ReadAddress(const std::string& text, Bits& bits, bool& ipv4) {
  bits = {};
  ipv4 = inet_pton(AF_INET, text.c_str(), bits.data() + kIpv4Start / 8) == 1;
  if (ipv4) bits[10] = bits[11] = 0xff;
  return ipv4 || inet_pton(AF_INET6, text.c_str(), bits.data()) == 1;
}

bool AccessList::Add(const std::string& cidr, bool allow) {
  const size_t slash = std::min(cidr.find('/'), cidr.size());
  Network network{{}, 128, allow};
  bool ipv4 = false;
  if (!ReadAddress(cidr.substr(0, slash), network.bits, ipv4)) return false;
  if (slash < cidr.size()) {
    const char* const end = cidr.data() + cidr.size();
    const auto result = std::from_chars(cidr.data() + slash + 1, end, network.length);
    if (result.ec != std::errc() || result.ptr != end || network.length > (ipv4 ? 32u : 128u)) return false;
    if (ipv4) network.length += kIpv4Start;
  }
  for (unsigned position = network.length; position < 128; ++position) {
    if (BitAt(network.bits, position)) return false;
  }
  networks_.push_back(network);
  return true;
}

bool AccessList::Allows(const std::string& address) const {
  Bits bits;
  bool ipv4 = false;
  if (!ReadAddress(address, bits, ipv4)) return false;
  const Network* decisive = nullptr;
  for (const Network& network : networks_) {
    unsigned same = 0;
    while (same < network.length && BitAt(bits, same) == BitAt(network.bits, same)) ++same;
    if (same == network.length && (!decisive || network.length >= decisive->length)) decisive = &network;
  }
  return decisive ? decisive->allow : allows_others_;
}

bool LoadAccessLists(const std::string& path, AccessLists& lists, std::string& error) {
  LocatedElement root;
  if (!ReadLocatedXml(path, root, error)) return false;
  lists.clear();
  for (const LocatedElement& section : root.children) {
    if (section.name != "network-lists") {
      error = At(path, section) + "expected <network-lists>, not <" + section.name + ">";
      return false;
    }
    for (const LocatedElement& list : section.children) {
      if (list.name != "list") {
        error = At(path, list) + "expected <list>, not <" + list.name + ">";
        return false;
      }
      if (!ReadList(path, list, lists, error)) return false;
    }
  }
  return true;
}

}  // namespace kvx_switch
