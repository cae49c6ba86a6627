#include "module/call_hooks.h"

#include <new>

#include "kelvaro_media_server_logger.h"

namespace module_test {

CallHooks& call_hooks() {
  static CallHooks hooks;
  return hooks;
}

namespace {

/// Takes the place of the module's logger, in the storage that was made for it.
class FailingLogger : public kvx_media_server::KvrMediaServerLogger {
 public:
  using KvrMediaServerLogger::Init;
  using KvrMediaServerLogger::KvrMediaServerLogger;
  bool Init(const char*, kelvaro::LogLevel) override { return false; }
};
static_assert(sizeof(FailingLogger) == sizeof(kvx_media_server::KvrMediaServerLogger));

}  // namespace

}  // namespace module_test

using module_test::call_hooks;

// The linker sends calls of <name> to __wrap_<name>, and those of __real_<name> to where <name> is. CMakeLists.txt
// lists the names.

extern "C" {

void* __real_switch_loadable_module_create_interface(switch_loadable_module_interface_t* module,
                                                     switch_module_interface_name_t kind);
void* __wrap_switch_loadable_module_create_interface(switch_loadable_module_interface_t* module,
                                                     switch_module_interface_name_t kind) {
  call_hooks().interface_made(kind);
  return __real_switch_loadable_module_create_interface(module, kind);
}

switch_status_t __real_switch_console_set_complete(const char* completion);
switch_status_t __wrap_switch_console_set_complete(const char* completion) {
  call_hooks().completion(completion);
  return __real_switch_console_set_complete(completion);
}

void __real_switch_sleep(switch_interval_time_t microseconds);
void __wrap_switch_sleep(switch_interval_time_t microseconds) {
  call_hooks().sleep(microseconds);
  __real_switch_sleep(microseconds);
}

switch_channel_state_t __real_switch_channel_perform_hangup(switch_channel_t* channel, const char* file,
                                                            const char* func, int line, switch_call_cause_t cause);
switch_channel_state_t __wrap_switch_channel_perform_hangup(switch_channel_t* channel, const char* file,
                                                            const char* func, int line, switch_call_cause_t cause) {
  call_hooks().hangup(channel, cause);
  return __real_switch_channel_perform_hangup(channel, file, func, line, cause);
}

void __real_switch_core_session_rwunlock(switch_core_session_t* session);
void __wrap_switch_core_session_rwunlock(switch_core_session_t* session) {
  call_hooks().unlock(session);
  __real_switch_core_session_rwunlock(session);
}

char* __real_switch_core_perform_strdup(switch_memory_pool_t* pool, const char* text, const char* file,
                                        const char* func, int line);
char* __wrap_switch_core_perform_strdup(switch_memory_pool_t* pool, const char* text, const char* file,
                                        const char* func, int line) {
  return call_hooks().pool_is_full ? nullptr : __real_switch_core_perform_strdup(pool, text, file, func, line);
}
}

// The same for functions of C++, by the linker's names for them.

#define KVX_MAKE_LOGGER "_ZN16kvx_media_server20KvrMediaServerLoggerC1Eb"
void make_logger(kvx_media_server::KvrMediaServerLogger* storage, bool enable_trace) __asm__("__real_" KVX_MAKE_LOGGER);
void make_hooked_logger(kvx_media_server::KvrMediaServerLogger* storage,
                        bool enable_trace) __asm__("__wrap_" KVX_MAKE_LOGGER);
void make_hooked_logger(kvx_media_server::KvrMediaServerLogger* storage, bool enable_trace) {
  if (call_hooks().logger_fails) {
    new (storage) module_test::FailingLogger(enable_trace);
  } else {
    make_logger(storage, enable_trace);
  }
}

#define KVX_LIST_LEGS                                                                     \
  "_ZN16kvx_media_server17MediaSessionTable25ListMediaSessionAllFSUuidERSt6vectorINSt7__" \
  "cxx1112basic_stringIcSt11char_traitsIcESaIcEEESaIS7_EERKN5boost5uuids4uuidE"
bool list_legs(kvx_media_server::MediaSessionTable* table, std::vector<std::string>& out,
               const boost::uuids::uuid& msuuid) __asm__("__real_" KVX_LIST_LEGS);
bool list_hooked_legs(kvx_media_server::MediaSessionTable* table, std::vector<std::string>& out,
                      const boost::uuids::uuid& msuuid) __asm__("__wrap_" KVX_LIST_LEGS);
bool list_hooked_legs(kvx_media_server::MediaSessionTable* table, std::vector<std::string>& out,
                      const boost::uuids::uuid& msuuid) {
  return call_hooks().leg_lists_are_empty || list_legs(table, out, msuuid);
}
