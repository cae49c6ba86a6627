#include <switch.h>

namespace {

/// Room for `more` bytes and a terminator.
bool make_room(switch_stream_handle_t* handle, switch_size_t more) {
  const switch_size_t needed = handle->data_len + more + 1;
  if (needed <= handle->data_size) return true;
  switch_size_t size = handle->data_size * 2;
  if (size < needed + handle->alloc_chunk) size = needed + handle->alloc_chunk;
  void* grown = realloc(handle->data, size);
  if (!grown) return false;
  handle->data = grown;
  handle->data_size = handle->alloc_len = size;
  return true;
}

}  // namespace

switch_status_t switch_console_stream_raw_write(switch_stream_handle_t* handle, uint8_t* data, switch_size_t datalen) {
  if (!make_room(handle, datalen)) return SWITCH_STATUS_MEMERR;
  auto* text = static_cast<char*>(handle->data);
  if (datalen) memcpy(text + handle->data_len, data, datalen);
  handle->data_len += datalen;
  text[handle->data_len] = '\0';
  handle->end = text + handle->data_len;
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_console_stream_write(switch_stream_handle_t* handle, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  char* text = switch_vmprintf(fmt, ap);
  va_end(ap);
  if (!text) return SWITCH_STATUS_MEMERR;
  const switch_status_t status =
      switch_console_stream_raw_write(handle, reinterpret_cast<uint8_t*>(text), strlen(text));
  free(text);
  return status;
}
