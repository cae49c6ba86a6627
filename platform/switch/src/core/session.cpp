#include "core/session.h"

#include "core/pool.h"
#include "core/session_manager.h"
#include "core/session_record.h"

using kvx_switch::SessionManager;

namespace {

/// A leg that no signalling drives: there until it is hung up.
class Idle : public kvx_switch::LegProgram {
 public:
  void Run(switch_core_session_t* session) override {
    kvx_switch::ServeUntil(session, std::chrono::steady_clock::time_point::max(), [] { return false; });
  }
};

switch_status_t success_if(bool good) {
  return good ? SWITCH_STATUS_SUCCESS : SWITCH_STATUS_FALSE;
}

}  // namespace

switch_core_session_t* switch_core_session_perform_locate(const char* uuid_str, const char*, const char*, int) {
  return uuid_str ? SessionManager::Get().Locate(uuid_str, false) : nullptr;
}

switch_core_session_t* switch_core_session_perform_force_locate(const char* uuid_str, const char*, const char*, int) {
  return uuid_str ? SessionManager::Get().Locate(uuid_str, true) : nullptr;
}

switch_status_t switch_core_session_read_lock(switch_core_session_t* session) {
  if (!session || kvx_switch::IsHungUp(&session->channel)) return SWITCH_STATUS_FALSE;
  return success_if(session->lock.TryLockRead());
}

switch_status_t switch_core_session_read_lock_hangup(switch_core_session_t* session) {
  return success_if(session && session->lock.TryLockRead());
}

void switch_core_session_rwunlock(switch_core_session_t* session) {
  session->lock.Unlock();
}

switch_status_t switch_core_session_perform_get_partner(switch_core_session_t* session, switch_core_session_t** partner,
                                                        const char*, const char*, int) {
  *partner = nullptr;
  const std::string uuid = kvx_switch::PartnerUuid(&session->channel);
  if (!uuid.empty() && uuid != session->uuid.load()) *partner = SessionManager::Get().Locate(uuid, false);
  return success_if(*partner != nullptr);
}

switch_channel_t* switch_core_session_get_channel(switch_core_session_t* session) {
  return &session->channel;
}
char* switch_core_session_get_uuid(switch_core_session_t* session) {
  return session->uuid;
}
switch_memory_pool_t* switch_core_session_get_pool(switch_core_session_t* session) {
  return session->pool;
}

void* switch_core_perform_session_alloc(switch_core_session_t* session, switch_size_t memory, const char* file,
                                        const char* func, int line) {
  return switch_core_perform_alloc(session->pool, memory, file, func, line);
}

char* switch_core_perform_session_strdup(switch_core_session_t* session, const char* todup, const char* file,
                                         const char* func, int line) {
  return switch_core_perform_strdup(session->pool, todup, file, func, line);
}

char* switch_core_session_sprintf(switch_core_session_t* session, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  char* text = switch_core_vsprintf(session->pool, fmt, ap);
  va_end(ap);
  return text;
}

switch_core_session_t* switch_core_session_request_uuid(switch_endpoint_interface_t*, switch_call_direction_t direction,
                                                        switch_originate_flag_t, switch_memory_pool_t** pool,
                                                        const char* use_uuid) {
  std::string reason;
  switch_core_session_t* session = SessionManager::Get().Create(direction, pool, switch_str_nil(use_uuid), reason);
  if (!session) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "No new leg: %s\n", reason.c_str());
  }
  return session;
}

void switch_core_session_perform_destroy(switch_core_session_t** session, const char*, const char*, int) {
  if (!session || !*session) return;
  if ((*session)->started) {
    switch_log_printf(SWITCH_CHANNEL_SESSION_LOG(*session), SWITCH_LOG_ERROR,
                      "A leg with a thread of its own is destroyed by that alone\n");
    return;
  }
  SessionManager::Get().Destroy(*session);
  *session = nullptr;
}

switch_status_t switch_core_session_thread_launch(switch_core_session_t* session) {
  return kvx_switch::LaunchSession(session, std::make_shared<Idle>());
}

unsigned int switch_core_session_running(switch_core_session_t* session) {
  return session->running;
}
unsigned int switch_core_session_started(switch_core_session_t* session) {
  return session->started;
}

switch_status_t switch_core_session_wake_session_thread(switch_core_session_t* session) {
  session->tasks.Wake();
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_core_session_set_uuid(switch_core_session_t* session, const char* use_uuid) {
  const std::string old = session->uuid.load();
  if (!use_uuid || !SessionManager::Get().Rename(session, use_uuid)) return SWITCH_STATUS_FALSE;
  switch_event_t* event = nullptr;
  if (switch_event_create(&event, SWITCH_EVENT_CHANNEL_UUID) == SWITCH_STATUS_SUCCESS) {
    switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Old-Unique-ID", old.c_str());
    switch_channel_event_set_data(&session->channel, event);
    switch_event_fire(&event);
  }
  return SWITCH_STATUS_SUCCESS;
}

uint32_t switch_core_session_count(void) {
  return SessionManager::Get().Count();
}
void switch_core_session_hupall(switch_call_cause_t cause) {
  kvx_switch::HangUpAll(cause);
}

switch_status_t switch_core_session_set_private_class(switch_core_session_t* session, void* private_info,
                                                      switch_pvt_class_t index) {
  session->private_slots[index] = private_info;
  return SWITCH_STATUS_SUCCESS;
}

void* switch_core_session_get_private_class(switch_core_session_t* session, switch_pvt_class_t index) {
  return session->private_slots[index];
}

switch_status_t switch_core_session_set_read_codec(switch_core_session_t* session, switch_codec_t* codec) {
  session->read_codec = codec;
  return SWITCH_STATUS_SUCCESS;
}

switch_codec_t* switch_core_session_get_read_codec(switch_core_session_t* session) {
  return session->read_codec;
}

switch_status_t switch_core_session_set_write_codec(switch_core_session_t* session, switch_codec_t* codec) {
  session->write_codec = codec;
  return SWITCH_STATUS_SUCCESS;
}

switch_codec_t* switch_core_session_get_write_codec(switch_core_session_t* session) {
  return session->write_codec;
}

switch_media_connection_t* switch_core_session_get_media_connection(switch_core_session_t* session) {
  return &session->media_connection;
}

namespace kvx_switch {

switch_core_session_t* RequestSession(switch_call_direction_t direction, const std::string& channel_name) {
  switch_core_session_t* session = switch_core_session_request(nullptr, direction, SOF_NONE, nullptr);
  if (!session) return nullptr;
  switch_channel_set_name(&session->channel, channel_name.c_str());
  switch_channel_set_variable(&session->channel, kCallUuidVariable, switch_core_session_get_uuid(session));
  return session;
}

switch_status_t LaunchSession(switch_core_session_t* session, std::shared_ptr<LegProgram> program) {
  return success_if(program && SessionManager::Get().Launch(session, std::move(program)));
}

void SetCallerData(switch_core_session_t* session, const CallerData& caller) {
  std::lock_guard<std::mutex> lock(session->channel.mutex);
  session->channel.caller = caller;
}

CallerData GetCallerData(switch_core_session_t* session) {
  std::lock_guard<std::mutex> lock(session->channel.mutex);
  return session->channel.caller;
}

bool PostToSession(switch_core_session_t* session, std::function<void()> task) {
  return session->tasks.Post(std::move(task));
}

bool PostToSession(const std::string& uuid, std::function<void()> task) {
  switch_core_session_t* session = SessionManager::Get().Locate(uuid, true);
  if (!session) return false;
  const bool posted = session->tasks.Post(std::move(task));
  switch_core_session_rwunlock(session);
  return posted;
}

bool ServeUntil(switch_core_session_t* session, std::chrono::steady_clock::time_point deadline,
                const std::function<bool()>& done) {
  return session->tasks.ServeUntil(deadline, done, [session] { return IsHungUp(&session->channel); });
}

bool ServeAfterHangup(switch_core_session_t* session, std::chrono::steady_clock::time_point deadline,
                      const std::function<bool()>& done) {
  return session->tasks.ServeUntil(deadline, done, [] { return false; });
}

void DrainTasks(switch_core_session_t* session) {
  session->tasks.Drain();
}

void ForgetMediaServersInfo(switch_core_session_t* session) {
  // A reader looks at it at once, and may hold the leg for a request to the media server after that.
  constexpr std::chrono::seconds kReaderPatience{5};
  const auto forget = [session] { session->media_connection.private_info = nullptr; };
  if (!session->lock.RunUnlocked(kReaderPatience, forget)) forget();
}

std::vector<SessionInfo> ListSessions() {
  return SessionManager::Get().List();
}

bool WaitForNoSessions(std::chrono::milliseconds timeout) {
  return SessionManager::Get().WaitForNone(std::chrono::steady_clock::now() + timeout);
}

}  // namespace kvx_switch
