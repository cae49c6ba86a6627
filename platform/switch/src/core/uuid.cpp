#include <sys/random.h>

#include <random>

#include <switch.h>

namespace {

constexpr size_t kUuidBytes = 16;
constexpr size_t kUuidTextLength = 36;

void fill_with_random(unsigned char* data) {
  size_t have = 0;
  while (have < kUuidBytes) {
    const ssize_t got = getrandom(data + have, kUuidBytes - have, 0);
    if (got > 0) {
      have += static_cast<size_t>(got);
    } else if (errno != EINTR) {
      // A kernel without getrandom: the library's own device.
      std::random_device device;
      for (; have < kUuidBytes; ++have) data[have] = static_cast<unsigned char>(device());
    }
  }
}

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool dash_before_byte(size_t byte) {
  return byte == 4 || byte == 6 || byte == 8 || byte == 10;
}

}  // namespace

void switch_uuid_get(switch_uuid_t* uuid) {
  fill_with_random(uuid->data);
  uuid->data[6] = static_cast<unsigned char>((uuid->data[6] & 0x0F) | 0x40);  // RFC 4122, 4.4: version 4
  uuid->data[8] = static_cast<unsigned char>((uuid->data[8] & 0x3F) | 0x80);  // and the variant
}

void switch_uuid_format(char* buffer, const switch_uuid_t* uuid) {
  static const char kDigits[] = "0123456789abcdef";
  for (size_t i = 0; i < kUuidBytes; ++i) {
    if (dash_before_byte(i)) *buffer++ = '-';
    *buffer++ = kDigits[uuid->data[i] >> 4];
    *buffer++ = kDigits[uuid->data[i] & 0x0F];
  }
  *buffer = '\0';
}

switch_status_t switch_uuid_parse(switch_uuid_t* uuid, const char* uuid_str) {
  if (!uuid_str || strlen(uuid_str) != kUuidTextLength) return SWITCH_STATUS_FALSE;
  switch_uuid_t parsed;
  for (size_t i = 0; i < kUuidBytes; ++i) {
    if (dash_before_byte(i) && *uuid_str++ != '-') return SWITCH_STATUS_FALSE;
    const int high = hex_value(uuid_str[0]);
    const int low = hex_value(uuid_str[1]);
    if (high < 0 || low < 0) return SWITCH_STATUS_FALSE;
    parsed.data[i] = static_cast<unsigned char>(high << 4 | low);
    uuid_str += 2;
  }
  *uuid = parsed;
  return SWITCH_STATUS_SUCCESS;
}

char* switch_uuid_str(char* buf, switch_size_t len) {
  if (len <= kUuidTextLength) {
    if (len) *buf = '\0';
    return buf;
  }
  switch_uuid_t uuid;
  switch_uuid_get(&uuid);
  switch_uuid_format(buf, &uuid);
  return buf;
}
