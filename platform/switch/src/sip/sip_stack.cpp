#include "sip/sip_stack.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "sip/message_limits.h"
#include "sip/sip_text.h"

// What the stack's library calls with each time that it reads; exported by it, but in no header. Null in a library that
// does not have it.
extern "C" void (*_su_time)(su_time_t* now) __attribute__((weak));

namespace kvx_switch {

namespace {

void DropMicroseconds(su_time_t* now) {
  now->tv_usec -= now->tv_usec % 1000;
}

// Of the UDP socket. The system's default holds some ninety messages of calls, which a busy switch is sent while its
// thread waits a few milliseconds for a processor; each one lost comes again after T1, with all others of that moment.
// This holds as many as are read within T1 by a processor that has nothing else to do: what waits longer is sent again
// anyway. The system gives what net.core.rmem_max allows, or all of it to a process that may administer the network.
constexpr unsigned kReceiveBuffer = 2 << 20;

constexpr const char* kMethods = "INVITE, ACK, BYE, CANCEL, OPTIONS, REFER, UPDATE";

const char* Supported(const SipProfile& profile) {
  return profile.session_timer.enabled ? kSupported : kSupportedWithoutTimer;
}

/// What the system says when it is asked to bind; empty when it does.
std::string TryToBind(int type, const sockaddr_storage& address, socklen_t length) {
  const int fd = socket(address.ss_family, type | SOCK_CLOEXEC, 0);
  if (fd < 0) return std::strerror(errno);
  const int on = 1;
  // As the stack does: connections of an earlier run that are still closing do not matter.
  if (type == SOCK_STREAM) setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  std::string problem;
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
      (type == SOCK_STREAM && listen(fd, 1) != 0)) {
    problem = std::strerror(errno);
  }
  close(fd);
  return problem;
}

}  // namespace

std::string HostPort(const SipProfile& profile, unsigned port) {
  return (profile.IsIpv6() ? "[" + profile.sip_address + "]" : profile.sip_address) + ":" + std::to_string(port);
}

std::string ProbeAddress(const SipProfile& profile) {
  sockaddr_storage storage{};
  socklen_t length = sizeof(sockaddr_in);
  auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
  auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
  if (inet_pton(AF_INET, profile.sip_address.c_str(), &v4->sin_addr) == 1) {
    v4->sin_family = AF_INET;
    v4->sin_port = htons(profile.sip_port);
  } else if (inet_pton(AF_INET6, profile.sip_address.c_str(), &v6->sin6_addr) == 1) {
    v6->sin6_family = AF_INET6;
    v6->sin6_port = htons(profile.sip_port);
    length = sizeof(*v6);
  } else {
    return profile.sip_address + ": not a numeric address";
  }
  for (const char* transport : {"udp", "tcp"}) {
    const bool udp = transport[0] == 'u';
    if (!(udp ? profile.transports.udp : profile.transports.tcp)) continue;
    const std::string problem = TryToBind(udp ? SOCK_DGRAM : SOCK_STREAM, storage, length);
    if (!problem.empty()) return std::string(transport) + " " + HostPort(profile, profile.sip_port) + ": " + problem;
  }
  return "";
}

// The stack waits for its next timer by whole milliseconds, rounded down: with less than one left it would not wait at
// all but look again and again until the timer is due, and with some thousand timers running that is nearly always.
void CountWholeMilliseconds() {
  static const bool done = [] {
    if (&_su_time != nullptr) _su_time = DropMicroseconds;
    return true;
  }();
  static_cast<void>(done);
}

nua_t* CreateStack(su_root_t* root, nua_callback_f callback, SipAgent* agent, const SipProfile& profile) {
  const std::string port = profile.sip_port ? std::to_string(profile.sip_port) : "*";
  const std::string address = HostPort(profile, 0);
  // Both are what the stack opens unless it is told one; a list of two it does not read safely.
  const bool both = profile.transports.udp && profile.transports.tcp;
  const std::string url = "sip:" + address.substr(0, address.rfind(':') + 1) + port +
                          (both ? "" : ";transport=" + profile.transports.Names());
  // A connection that says nothing, or breaks off in a message, is closed in the end; how many there may be until then
  // is ConnectionLimit's to see to.
  nua_t* nua = nua_create(
      root, callback, agent, NUTAG_URL(url.c_str()), NUTAG_MEDIA_ENABLE(0), NUTAG_AUTOALERT(0), NUTAG_AUTOANSWER(0),
      NUTAG_AUTOACK(1), NUTAG_SESSION_TIMER(0), NUTAG_ALLOW(kMethods), NUTAG_MIN_SE(1),
      NUTAG_APPL_METHOD("INVITE, REFER, UPDATE"), NTATAG_MAXSIZE(kLargestMessage), NTATAG_SIP_T1(profile.timers.t1),
      NTATAG_SIP_T1X64(profile.timers.t1x64), NTATAG_SIP_T2(profile.timers.t2), NTATAG_SIP_T4(profile.timers.t4),
      TPTAG_UDP_RMEM(kReceiveBuffer), TPTAG_TIMEOUT(profile.timers.t1x64), TPTAG_IDLE(profile.tcp_idle_seconds * 1000),
      SIPTAG_SUPPORTED_STR(Supported(profile)), SIPTAG_USER_AGENT_STR("kvx-switch"), TAG_END());
  if (nua) nua_set_params(nua, SIPTAG_ALLOW_STR(kMethods), NUTAG_AUTO302(0), TAG_END());
  return nua;
}

}  // namespace kvx_switch
