#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <switch.h>

switch_bool_t switch_is_number(const char* str) {
  if (!str) return SWITCH_FALSE;
  if (*str == '-' || *str == '+') ++str;
  for (; *str; ++str) {
    if (*str != '.' && !isdigit(static_cast<unsigned char>(*str))) return SWITCH_FALSE;
  }
  return SWITCH_TRUE;
}

char* switch_copy_string(char* dst, const char* src, switch_size_t dst_size) {
  if (!dst) return nullptr;
  if (!dst_size) return dst;
  const size_t length = src ? strnlen(src, dst_size - 1) : 0;
  if (length) memmove(dst, src, length);
  dst[length] = '\0';
  return dst + length;
}

int switch_snprintf(char* buf, switch_size_t len, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int written = vsnprintf(buf, len, format, ap);
  va_end(ap);
  return written;
}

char* switch_vmprintf(const char* fmt, va_list ap) {
  char* text = nullptr;
  return vasprintf(&text, fmt, ap) < 0 ? nullptr : text;
}

char* switch_mprintf(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  char* text = switch_vmprintf(fmt, ap);
  va_end(ap);
  return text;
}

switch_status_t switch_resolve_host(const char* host, char* buf, size_t buflen) {
  if (zstr(host) || !buf || !buflen) return SWITCH_STATUS_FALSE;
  addrinfo hints{};
  hints.ai_socktype = SOCK_DGRAM;  // one entry per address
  addrinfo* found = nullptr;
  if (getaddrinfo(host, nullptr, &hints, &found) != 0 || !found) return SWITCH_STATUS_FALSE;
  const int failed =
      getnameinfo(found->ai_addr, found->ai_addrlen, buf, static_cast<socklen_t>(buflen), nullptr, 0, NI_NUMERICHOST);
  freeaddrinfo(found);
  if (failed) *buf = '\0';
  return failed ? SWITCH_STATUS_FALSE : SWITCH_STATUS_SUCCESS;
}
