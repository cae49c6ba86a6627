#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "core/event.h"

namespace kvx_switch {
namespace {

/// Names and addresses of this host, looked up once.
struct Host {
  Host() {
    char buffer[256] = "";
    if (gethostname(buffer, sizeof(buffer) - 1) == 0) name = buffer;
    ifaddrs* interfaces = nullptr;
    if (getifaddrs(&interfaces) != 0) return;
    for (ifaddrs* at = interfaces; at; at = at->ifa_next) Consider(*at);
    freeifaddrs(interfaces);
  }

  void Consider(const ifaddrs& interface) {
    if (!interface.ifa_addr || interface.ifa_flags & IFF_LOOPBACK) return;
    char text[INET6_ADDRSTRLEN];
    if (interface.ifa_addr->sa_family == AF_INET && !found_ipv4) {
      const auto* address = reinterpret_cast<const sockaddr_in*>(interface.ifa_addr);
      ipv4 = inet_ntop(AF_INET, &address->sin_addr, text, sizeof(text));
      found_ipv4 = true;
    } else if (interface.ifa_addr->sa_family == AF_INET6 && !found_ipv6) {
      const auto* address = reinterpret_cast<const sockaddr_in6*>(interface.ifa_addr);
      if (IN6_IS_ADDR_LINKLOCAL(&address->sin6_addr)) return;
      ipv6 = inet_ntop(AF_INET6, &address->sin6_addr, text, sizeof(text));
      found_ipv6 = true;
    }
  }

  std::string name = "localhost";
  std::string ipv4 = "127.0.0.1";
  std::string ipv6 = "::1";
  bool found_ipv4 = false;
  bool found_ipv6 = false;
};

const Host& this_host() {
  static const Host* const host = new Host;
  return *host;
}

std::string printed(switch_time_exp_t parts, const char* format) {
  char text[64];
  switch_size_t length = 0;
  switch_strftime(text, &length, sizeof(text), format, &parts);
  return std::string(text, length);
}

std::atomic<uint64_t> sequence{0};

}  // namespace

void AddCoreHeaders(switch_event_t* event, const char* file, const char* func, int line) {
  const auto add = [event](const char* name, const std::string& value) {
    switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, name, value.c_str());
  };
  const char* slash = file ? strrchr(file, '/') : nullptr;
  const switch_time_t now = switch_time_now();
  switch_time_exp_t local, gmt;
  switch_time_exp_lt(&local, now);
  switch_time_exp_gmt(&gmt, now);

  add("Event-Name", switch_event_name(event->event_id));
  add("Core-UUID", switch_core_get_uuid());
  add("FreeSWITCH-Hostname", this_host().name);
  add("FreeSWITCH-Switchname", this_host().name);
  add("FreeSWITCH-IPv4", this_host().ipv4);
  add("FreeSWITCH-IPv6", this_host().ipv6);
  add("Event-Date-Local", printed(local, "%Y-%m-%d %H:%M:%S"));
  add("Event-Date-GMT", printed(gmt, "%a, %d %b %Y %H:%M:%S GMT"));
  add("Event-Date-Timestamp", std::to_string(now));
  add("Event-Calling-File", slash ? slash + 1 : switch_str_nil(file));
  add("Event-Calling-Function", switch_str_nil(func));
  add("Event-Calling-Line-Number", std::to_string(line));
  add("Event-Sequence", std::to_string(++sequence));
}

}  // namespace kvx_switch
