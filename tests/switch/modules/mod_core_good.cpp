// A module as a module should be: commands, a codec, a media server, completions, an event receiver, a log sink.

#include <stdexcept>

#include <switch.h>

#include <switch_media_server.h>

SWITCH_MODULE_LOAD_FUNCTION(mod_core_good_load);
SWITCH_MODULE_SHUTDOWN_FUNCTION(mod_core_good_shutdown);
SWITCH_MODULE_DEFINITION(mod_core_good, mod_core_good_load, mod_core_good_shutdown, NULL);

SWITCH_STANDARD_API(echo_function) {
  stream->write_function(stream, "%s|%s\n", cmd ? cmd : "(null)", session ? "session" : "no session");
  return SWITCH_STATUS_SUCCESS;
}

SWITCH_STANDARD_API(throw_function) {
  (void)cmd;
  (void)session;
  (void)stream;
  throw std::runtime_error("a command's mistake");
}

SWITCH_STANDARD_API(throw_odd_function) {
  (void)cmd;
  (void)session;
  (void)stream;
  throw 17;
}

static switch_status_t pass_through(switch_codec_t*, switch_codec_t*, void* in, uint32_t in_length, uint32_t, void* out,
                                    uint32_t* out_length, uint32_t*, unsigned int*) {
  if (*out_length < in_length) return SWITCH_STATUS_FALSE;
  memcpy(out, in, in_length);
  *out_length = in_length;
  return SWITCH_STATUS_SUCCESS;
}

static switch_status_t init(switch_codec_t* codec, switch_codec_flag_t flags, const switch_codec_settings_t*) {
  if (flags & SWITCH_CODEC_FLAG_AAL2) return SWITCH_STATUS_FALSE;
  if (flags & SWITCH_CODEC_FLAG_PASSTHROUGH) throw std::runtime_error("a codec's mistake");
  codec->fmtp_out = switch_core_strdup(codec->memory_pool, codec->fmtp_in);
  return SWITCH_STATUS_SUCCESS;
}

static switch_status_t destroy(switch_codec_t*) {
  return SWITCH_STATUS_SUCCESS;
}

static switch_status_t parse_fmtp(const char* fmtp, switch_codec_fmtp_t* parsed) {
  if (zstr(fmtp)) return SWITCH_STATUS_FALSE;
  parsed->bits_per_second = atoi(fmtp);
  return SWITCH_STATUS_SUCCESS;
}

static switch_status_t complete(const char*, const char*, switch_console_callback_match_t** matches) {
  switch_console_push_match(matches, "first");
  switch_console_push_match(matches, "second");
  return SWITCH_STATUS_SUCCESS;
}

static switch_bool_t is_available() {
  return SWITCH_TRUE;
}
static void receive(switch_event_t*) {}
static switch_status_t swallow(const switch_log_node_t*, switch_log_level_t) {
  return SWITCH_STATUS_SUCCESS;
}

static void add_codec(switch_loadable_module_interface_t** module_interface, switch_memory_pool_t* pool,
                      const char* name, const char* iana, int bits_per_second, int first, int last) {
  switch_codec_interface_t* codec;
  SWITCH_ADD_CODEC(codec, name);
  codec->parse_fmtp = parse_fmtp;
  for (int ms = first; ms <= last; ms += 10) {
    switch_core_codec_add_implementation(pool, codec, SWITCH_CODEC_TYPE_AUDIO, 0, iana, NULL, 8000, 8000,
                                         bits_per_second, ms * 1000, 8 * ms, 16 * ms, 8 * ms, 1, 1, init, pass_through,
                                         pass_through, destroy);
  }
}

SWITCH_MODULE_LOAD_FUNCTION(mod_core_good_load) {
  switch_api_interface_t* api;
  *module_interface = switch_loadable_module_create_module_interface(pool, modname);
  SWITCH_ADD_API(api, "core_echo", "repeat", echo_function, "[<text>]");
  SWITCH_ADD_API(api, "core_throw", "throw", throw_function, "");
  SWITCH_ADD_API(api, "core_throw_odd", "throw", throw_odd_function, "");
  add_codec(module_interface, pool, "Good one", "ONE", 64000, 10, 40);
  add_codec(module_interface, pool, "Good two", "TWO", 8000, 30, 60);
  auto* media_server = (switch_media_server_interface_t*)switch_loadable_module_create_interface(
      *module_interface, SWITCH_MEDIA_SERVER_INTERFACE);
  media_server->interface_name = "good";
  media_server->is_available = is_available;
  switch_console_set_complete("add core_echo up");
  switch_console_set_complete("add core_echo down ::good_words");
  switch_console_add_complete_func("good_words", complete);
  switch_event_bind(modname, SWITCH_EVENT_ALL, NULL, receive, NULL);
  switch_log_bind_logger(swallow, SWITCH_LOG_DEBUG, SWITCH_FALSE);
  return SWITCH_STATUS_SUCCESS;
}

SWITCH_MODULE_SHUTDOWN_FUNCTION(mod_core_good_shutdown) {
  // The completion function, the event receiver and the log sink are left behind on purpose.
  switch_core_set_variable("mod_core_good_shut_down", "yes");
  return SWITCH_STATUS_SUCCESS;
}
