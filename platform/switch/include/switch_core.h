#pragma once

/// Memory pools, hash tables, global variables, and the start and end of the core.

#include "switch_apr.h"
#include "switch_module_interfaces.h"
#include "switch_types.h"

SWITCH_BEGIN_EXTERN_C

/// Memory that lives until its pool is destroyed: nothing is given back singly. Zeroed. A pool may be used by several
/// threads.
SWITCH_DECLARE(switch_status_t)
switch_core_perform_new_memory_pool(switch_memory_pool_t** pool, const char* file, const char* func, int line);
#define switch_core_new_memory_pool(p) switch_core_perform_new_memory_pool(p, __FILE__, __SWITCH_FUNC__, __LINE__)
SWITCH_DECLARE(switch_status_t)
switch_core_perform_destroy_memory_pool(switch_memory_pool_t** pool, const char* file, const char* func, int line);
#define switch_core_destroy_memory_pool(p) \
  switch_core_perform_destroy_memory_pool(p, __FILE__, __SWITCH_FUNC__, __LINE__)
SWITCH_DECLARE(void*)
switch_core_perform_alloc(switch_memory_pool_t* pool, switch_size_t memory, const char* file, const char* func,
                          int line);
#define switch_core_alloc(_pool, _mem) switch_core_perform_alloc(_pool, _mem, __FILE__, __SWITCH_FUNC__, __LINE__)
SWITCH_DECLARE(char*)
switch_core_perform_strdup(switch_memory_pool_t* pool, const char* todup, const char* file, const char* func, int line);
#define switch_core_strdup(_pool, _todup) switch_core_perform_strdup(_pool, _todup, __FILE__, __SWITCH_FUNC__, __LINE__)
SWITCH_DECLARE_NONSTD(char*)
switch_core_sprintf(switch_memory_pool_t* pool, const char* fmt, ...) PRINTF_FUNCTION(2, 3);
SWITCH_DECLARE(char*)
switch_core_vsprintf(switch_memory_pool_t* pool, const char* fmt, va_list ap) PRINTF_FUNCTION(2, 0);

/// Text to pointer, keys copied. Without a lock of its own: whoever shares one guards it. `destructor` is called for a
/// value that is replaced, or left when the table is destroyed; a deleted one is handed back instead.
typedef void (*hashtable_destructor_t)(void* ptr);
SWITCH_DECLARE(switch_status_t) switch_core_hash_init_case(switch_hash_t** hash, switch_bool_t case_sensitive);
#define switch_core_hash_init(_hash) switch_core_hash_init_case(_hash, SWITCH_TRUE)
#define switch_core_hash_init_nocase(_hash) switch_core_hash_init_case(_hash, SWITCH_FALSE)
SWITCH_DECLARE(switch_status_t) switch_core_hash_destroy(switch_hash_t** hash);
SWITCH_DECLARE(switch_status_t)
switch_core_hash_insert_destructor(switch_hash_t* hash, const char* key, const void* data,
                                   hashtable_destructor_t destructor);
#define switch_core_hash_insert(_h, _k, _d) switch_core_hash_insert_destructor(_h, _k, _d, NULL)
SWITCH_DECLARE(void*) switch_core_hash_find(switch_hash_t* hash, const char* key);
SWITCH_DECLARE(void*) switch_core_hash_delete(switch_hash_t* hash, const char* key);

/// Global variables. The text returned stays good until the core is destroyed, also when the variable changes.
SWITCH_DECLARE(char*) switch_core_get_variable(const char* varname);
/// A null value deletes.
SWITCH_DECLARE(void) switch_core_set_variable(const char* varname, const char* value);

/// The uuid of this run of the switch.
SWITCH_DECLARE(char*) switch_core_get_uuid(void);
SWITCH_DECLARE(switch_time_t) switch_micro_time_now(void);

/// Where the switch finds its files. Heap text or null; null ones are filled by switch_core_set_globals, all are freed
/// by switch_core_destroy.
struct switch_directories {
  char* base_dir;
  char* mod_dir;
  char* conf_dir;
  char* log_dir;
  char* run_dir;
  char* temp_dir;
};
typedef struct switch_directories switch_directories;
SWITCH_DECLARE_DATA extern switch_directories SWITCH_GLOBAL_dirs;

SWITCH_DECLARE(void) switch_core_set_globals(void);

/// Starts log and event threads and reads vars.xml and switch.conf.xml of the configuration directory. `console` logs
/// to standard output. On failure `*err` says why (static text) and nothing is left running. Once per process at a
/// time: init, destroy, init again works.
SWITCH_DECLARE(switch_status_t) switch_core_init(switch_core_flag_t flags, switch_bool_t console, const char** err);
/// The same, and loads the modules that modules.conf.xml lists.
SWITCH_DECLARE(switch_status_t)
switch_core_init_and_modload(switch_core_flag_t flags, switch_bool_t console, const char** err);
/// Hangs up every leg, waits for them, unloads the modules and ends every thread of the core.
SWITCH_DECLARE(switch_status_t) switch_core_destroy(void);

/// `val` points to an int32_t, read and written. SCSC_MAX_SESSIONS, SCSC_SPS (sessions per second) and SCSC_LOGLEVEL
/// set when it is positive (log level: not negative) and store the value now in force; SCSC_PAUSE_ALL refuses (1) or
/// takes (0) new sessions; SCSC_HUPALL and SCSC_SHUTDOWN end all legs, the second for good; SCSC_CHECK_RUNNING answers
/// 1 or 0. Else -1.
SWITCH_DECLARE(int32_t) switch_core_session_ctl(switch_session_ctl_t cmd, void* val);

SWITCH_DECLARE(switch_loadable_module_interface_t*)
switch_loadable_module_create_module_interface(switch_memory_pool_t* pool, const char* name);
/// Zeroed, appended to the end of the module's list of that kind. Kinds served: CODEC, API and the media server's; any
/// other gives null and a warning.
SWITCH_DECLARE(void*)
switch_loadable_module_create_interface(switch_loadable_module_interface_t* mod, switch_module_interface_name_t iname);

/// "add <words>" or "del <words>"; a word ::[a:b lists literal choices, ::name names a completion function. "del *"
/// removes all.
SWITCH_DECLARE(switch_status_t) switch_console_set_complete(const char* string);

SWITCH_END_EXTERN_C

#include "switch_core_codec.h"
#include "switch_core_session.h"
