#pragma once

/// Modules: shared libraries that export one table, loaded and unloaded at run time. A module's interfaces live in the
/// pool that its load got; they are visible to others from a successful load to the unload.

#include "switch_core.h"
#include "switch_module_interfaces.h"
#include "switch_types.h"

SWITCH_BEGIN_EXTERN_C

typedef struct switch_loadable_module_function_table {
  int switch_api_version;
  switch_module_load_t load;
  switch_module_shutdown_t shutdown;
  switch_module_runtime_t runtime;
  switch_module_flag_t flags;
} switch_loadable_module_function_table_t;

#define SWITCH_MODULE_LOAD_ARGS (switch_loadable_module_interface_t * *module_interface, switch_memory_pool_t * pool)
#define SWITCH_MODULE_RUNTIME_ARGS (void)
#define SWITCH_MODULE_SHUTDOWN_ARGS (void)
#define SWITCH_MODULE_LOAD_FUNCTION(name) switch_status_t name SWITCH_MODULE_LOAD_ARGS
#define SWITCH_MODULE_RUNTIME_FUNCTION(name) switch_status_t name SWITCH_MODULE_RUNTIME_ARGS
#define SWITCH_MODULE_SHUTDOWN_FUNCTION(name) switch_status_t name SWITCH_MODULE_SHUTDOWN_ARGS

#define SWITCH_MODULE_DEFINITION_EX(name, load, shutdown, runtime, flags)                                              \
  static const char modname[] __attribute__((unused)) = #name;                                                         \
  SWITCH_MOD_DECLARE_DATA switch_loadable_module_function_table_t name##_module_interface = {SWITCH_API_VERSION, load, \
                                                                                             shutdown, runtime, flags}
#define SWITCH_MODULE_DEFINITION(name, load, shutdown, runtime) \
  SWITCH_MODULE_DEFINITION_EX(name, load, shutdown, runtime, SMODF_NONE)

/// Texts are not copied: they must live as long as the module.
#define SWITCH_ADD_API(api_int, int_name, descript, funcptr, syntax_string)                                        \
  for (;;) {                                                                                                       \
    api_int =                                                                                                      \
        (switch_api_interface_t*)switch_loadable_module_create_interface(*module_interface, SWITCH_API_INTERFACE); \
    api_int->interface_name = int_name;                                                                            \
    api_int->desc = descript;                                                                                      \
    api_int->function = funcptr;                                                                                   \
    api_int->syntax = syntax_string;                                                                               \
    break;                                                                                                         \
  }

#define SWITCH_ADD_CODEC(codec_int, int_name)                                                                          \
  for (;;) {                                                                                                           \
    codec_int =                                                                                                        \
        (switch_codec_interface_t*)switch_loadable_module_create_interface(*module_interface, SWITCH_CODEC_INTERFACE); \
    codec_int->modname = switch_core_strdup(pool, (*module_interface)->module_name);                                   \
    codec_int->interface_name = switch_core_strdup(pool, int_name);                                                    \
    codec_int->codec_id = switch_core_codec_next_id();                                                                 \
    break;                                                                                                             \
  }

/// Loads <dir>/<fname>.so (a null dir is the module directory; the suffix may be given or not). With `runtime` an event
/// MODULE_LOAD follows each interface. On failure nothing stays registered and `*err` says why, in static text or text
/// of the calling thread, good until its next call.
SWITCH_DECLARE(switch_status_t)
switch_loadable_module_load_module(const char* dir, const char* fname, switch_bool_t runtime, const char** err);
/// Refused while an interface of the module is in use, or when the module asked not to be unloaded; `force` waits for
/// the users to finish, a second at most for each interface.
SWITCH_DECLARE(switch_status_t)
switch_loadable_module_unload_module(const char* dir, const char* fname, switch_bool_t force, const char** err);
SWITCH_DECLARE(switch_status_t) switch_loadable_module_exists(const char* mod);

/// Called by switch_core_init_and_modload. With `autoload` the modules that modules.conf.xml lists are loaded, in its
/// order; one that fails is logged and skipped unless it is marked critical="true".
SWITCH_DECLARE(switch_status_t) switch_loadable_module_init(switch_bool_t autoload);
/// Unloads all modules, last loaded first.
SWITCH_DECLARE(void) switch_loadable_module_shutdown(void);

/// Calls `callback` for each module's name until it returns non-zero.
typedef int (*switch_modulename_callback_func_t)(void* user_data, const char* module_name);
SWITCH_DECLARE(switch_status_t)
switch_loadable_module_enumerate_loaded(switch_modulename_callback_func_t callback, void* user_data);

/// Null, or an interface kept from going away: give it back with UNPROTECT_INTERFACE. Names in any case; a codec is
/// found by the IANA name of its implementations. A null `modname` means any module.
SWITCH_DECLARE(switch_api_interface_t*) switch_loadable_module_get_api_interface(const char* name);
SWITCH_DECLARE(switch_codec_interface_t*)
switch_loadable_module_get_codec_interface(const char* name, const char* modname);

/// All implementations, in the order of the modules' loading and of the interfaces' registration; returns how many are
/// in `array`. Borrowed from the modules: good while these stay loaded, so hold on to an interface of the module (the
/// media server's, say) while using them.
SWITCH_DECLARE(int)
switch_loadable_module_get_codecs(const switch_codec_implementation_t** array, int arraylen);
/// Only those that `prefs` names ("NAME@20i@8000h", also "MODULE.NAME" and "~fmtp"), in that order; without @..i the
/// implementation with the packet time nearest to 20 ms. `fmtp_array[i]` receives the fmtp that the preference carries.
SWITCH_DECLARE(int)
switch_loadable_module_get_codecs_sorted(const switch_codec_implementation_t** array,
                                         char fmtp_array[SWITCH_MAX_CODECS][MAX_FMTP_LEN], int arraylen, char** prefs,
                                         int preflen);
/// Takes "MODULE.NAME@20i@8000h@64000b@1c~fmtp" apart, in place; returns the name. What is not given is 0 or null.
SWITCH_DECLARE(char*)
switch_parse_codec_buf(char* buf, uint32_t* interval, uint32_t* rate, uint32_t* bit, uint32_t* channels, char** modname,
                       char** fmtp);

/// Runs a command; its return value. Unknown: "INVALID COMMAND!\n" on the stream and FALSE. An exception that leaves
/// the command is logged and answered "-ERR" with GENERR.
SWITCH_DECLARE(switch_status_t)
switch_api_execute(const char* cmd, const char* arg, switch_core_session_t* session, switch_stream_handle_t* stream);

SWITCH_END_EXTERN_C
