#include "sip/access_list.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "core/configuration.h"
#include "sip/located_xml.h"

namespace kvx_switch {

namespace {

constexpr unsigned kIpv4Start = 96;  // where an IPv4 address begins in its IPv6 form (RFC 4291, 2.5.5.2)

bool BitAt(const std::array<uint8_t, 16>& bits, unsigned position) {
  return (bits[position / 8] >> (7 - position % 8)) & 1;
}

/// Turns elements into lists and gathers every mistake in them.
class ListsReader {
 public:
  ListsReader(std::string path, AccessLists& lists) : path_(std::move(path)), lists_(lists) {}

  std::string Read(const LocatedElement& root) {
    const std::string* name = root.Attribute("name");
    if (root.name != "configuration" || !name || *name != "acl.conf") {
      Add(root, "expected <configuration name=\"acl.conf\">, not <" + root.name + ">");
      return mistakes_;
    }
    Attributes(root, {"name", "description"});
    for (const LocatedElement& section : root.children) {
      if (!Expect(section, "network-lists")) continue;
      Attributes(section, {});
      for (const LocatedElement& list : section.children) {
        if (Expect(list, "list")) ReadList(list);
      }
    }
    return mistakes_;
  }

 private:
  void Add(const LocatedElement& element, const std::string& what) { AddLine(mistakes_, At(path_, element) + what); }

  bool Expect(const LocatedElement& element, const std::string& name) {
    if (element.name != name) Add(element, "expected <" + name + ">, not <" + element.name + ">");
    return element.name == name;
  }

  void Attributes(const LocatedElement& element, std::initializer_list<const char*> known) {
    const std::string unknown = UnknownAttributes(path_, element, known);
    if (!unknown.empty()) AddLine(mistakes_, unknown);
  }

  /// "allow" or "deny".
  bool Verdict(const LocatedElement& element, const char* attribute) {
    const std::string* verdict = element.Attribute(attribute);
    if (verdict && (*verdict == "allow" || *verdict == "deny")) return *verdict == "allow";
    Add(element, "\"" + std::string(attribute) + "\" of \"" + element.name + "\" is \"" + (verdict ? *verdict : "") +
                     "\", not \"allow\" or \"deny\"");
    return false;
  }

  void ReadList(const LocatedElement& element) {
    Attributes(element, {"name", "default"});
    AccessList list(Verdict(element, "default"));
    for (const LocatedElement& node : element.children) {
      if (Expect(node, "node")) ReadNode(node, list);
    }
    const std::string* name = element.Attribute("name");
    if (!name || name->empty()) {
      Add(element, "a \"list\" needs a \"name\"");
    } else if (!lists_.emplace(*name, std::move(list)).second) {
      Add(element, "a second list \"" + *name + "\"");
    }
  }

  void ReadNode(const LocatedElement& node, AccessList& list) {
    Attributes(node, {"type", "cidr"});
    const bool allow = Verdict(node, "type");
    const std::string* cidr = node.Attribute("cidr");
    if (cidr && list.Add(*cidr, allow)) return;
    Add(node,
        "\"cidr\" of \"node\" is \"" + (cidr ? *cidr : "") + "\", not a network such as 10.0.0.0/8 or 2001:db8::/32");
  }

  const std::string path_;
  AccessLists& lists_;
  std::string mistakes_;
};

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
  lists.clear();
  LocatedElement root;
  if (!ReadLocatedXml(path, root, error)) return false;
  error = ListsReader(path, lists).Read(root);
  return error.empty();
}

}  // namespace kvx_switch
