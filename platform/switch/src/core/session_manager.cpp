#include "core/session_manager.h"

#include <malloc.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <unordered_map>
#include <utility>

#include "core/guard.h"
#include "core/leg_threads.h"
#include "core/many_readers_lock.h"
#include "core/session_rate.h"
#include "core/session_record.h"

namespace kvx_switch {
namespace {

constexpr uint32_t kUsualMaximum = 1000;
constexpr std::chrono::seconds kTellAgain{10};
/// Longer than SIP transactions outlive the leg that they belonged to (RFC 3261, timers D and J: 32 s).
constexpr std::chrono::seconds kQuiet{34};

struct State {
  mutable std::mutex mutex;
  std::condition_variable ended;                                    // a leg is gone
  std::condition_variable to_trim;                                  // memory has come into use, or no legs will come
  mutable ManyReadersLock uuids_mutex;                              // after mutex; looked up far more than changed
  std::unordered_map<std::string, switch_core_session_t*> by_uuid;  // guarded by uuids_mutex
  std::chrono::steady_clock::time_point last_end;                   // guarded by mutex; of a leg
  std::thread trimmer;                                              // Start and Stop only
  bool running = false;                                             // guarded by mutex
  bool paused = false;                                              // guarded by mutex
  bool trimmer_may_end = false;                                     // guarded by mutex
  bool memory_used = false;                                         // guarded by mutex; by legs, not given back yet
  std::chrono::milliseconds quiet = kQuiet;                         // guarded by mutex
  uint32_t maximum = kUsualMaximum;                                 // guarded by mutex
  uint32_t alive = 0;                                               // guarded by mutex; until they are freed
  uint32_t peak = 0;                                                // guarded by mutex
  uint64_t total = 0;                                               // guarded by mutex
  uint64_t last_id = 0;                                             // guarded by mutex
};

LegThreads& leg_threads() {
  static LegThreads* const threads = new LegThreads;
  return *threads;
}

State& state() {
  static State* const all = new State;
  return *all;
}

std::string fresh_uuid() {
  char text[SWITCH_UUID_FORMATTED_LENGTH + 1];
  return switch_uuid_str(text, sizeof(text));
}

std::string local_time(switch_time_t when) {
  switch_time_exp_t parts;
  switch_time_exp_lt(&parts, when);
  char text[32];
  switch_size_t length = 0;
  switch_strftime(text, &length, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts);
  return std::string(text, length);
}

SessionInfo info_of(switch_core_session_t* session) {
  switch_channel_t& channel = session->channel;
  SessionInfo info;
  info.uuid = session->uuid.load();
  info.name = switch_str_nil(channel.name.load());
  info.direction = channel.direction == SWITCH_CALL_DIRECTION_INBOUND ? "inbound" : "outbound";
  info.state = switch_channel_state_name(static_cast<switch_channel_state_t>(channel.state.load()));
  info.partner_uuid = PartnerUuid(&channel);
  std::lock_guard<std::mutex> lock(channel.mutex);
  info.callstate = switch_channel_callstate2str(channel.callstate);
  info.cid_name = channel.caller.caller_id_name;
  info.cid_number = channel.caller.caller_id_number;
  info.destination = channel.caller.destination_number;
  info.context = channel.caller.context;
  info.created_time = channel.times.created;
  info.answered_time = channel.times.answered;
  info.created = local_time(info.created_time);
  return info;
}

/// However the program ends, the leg is hung up afterwards.
void run_program(switch_core_session_t* session, LegProgram& program) {
  switch_channel_t* channel = &session->channel;
  switch_call_cause_t cause = SWITCH_CAUSE_NORMAL_CLEARING;
  std::string what;
  if (!RunGuarded([&] { program.Run(session); }, what)) {
    switch_log_printf(SWITCH_CHANNEL_SESSION_LOG(session), SWITCH_LOG_ERROR, "An exception ended the leg %s: %s\n",
                      switch_channel_get_name(channel), what.c_str());
    cause = SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER;
  }
  if (!IsHungUp(channel)) switch_channel_hangup(channel, cause);
}

/// The C library keeps what was freed for the next call; after a busy hour that is much to keep for a quiet night.
void give_memory_back() {
  malloc_trim(0);
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "No leg for a while: unused memory given back\n");
}

void report_end(switch_core_session_t* session) {
  switch_channel_t* channel = &session->channel;
  WaitForHangupTold(channel);
  FireChannelEvent(channel, SWITCH_EVENT_CHANNEL_HANGUP_COMPLETE, __FILE__, __func__, __LINE__);
  switch_channel_set_state(channel, CS_REPORTING);
  switch_channel_set_state(channel, CS_DESTROY);
  FireChannelEvent(channel, SWITCH_EVENT_CHANNEL_DESTROY, __FILE__, __func__, __LINE__);
}

}  // namespace

SessionManager& SessionManager::Get() {
  static SessionManager manager;
  return manager;
}

void SessionManager::Start() {
  State& all = state();
  SessionRate::Get().Reset();
  {
    std::lock_guard<std::mutex> lock(all.mutex);
    all.running = true;
    all.paused = false;
    all.trimmer_may_end = false;
    all.memory_used = false;
    all.maximum = kUsualMaximum;
    all.quiet = kQuiet;
    all.peak = 0;
    all.total = 0;
  }
  all.trimmer = std::thread([this] { GiveMemoryBack(); });
}

void SessionManager::BeginShutdown() {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().running = false;
}

void SessionManager::Stop() {
  BeginShutdown();
  HangUpAll(SWITCH_CAUSE_SYSTEM_SHUTDOWN);
  DestroyUnlaunched();
  while (!WaitForNone(std::chrono::steady_clock::now() + kTellAgain)) {
    for (const SessionInfo& leg : List()) {
      switch_log_printf(SWITCH_CHANNEL_UUID_LOG(leg.uuid.c_str()), SWITCH_LOG_WARNING, "Waiting for leg %s in %s\n",
                        leg.name.c_str(), leg.state.c_str());
    }
    HangUpAll(SWITCH_CAUSE_SYSTEM_SHUTDOWN);
  }
  State& all = state();
  {
    std::lock_guard<std::mutex> lock(all.mutex);
    all.trimmer_may_end = true;
    all.to_trim.notify_all();
  }
  if (all.trimmer.joinable()) all.trimmer.join();
  leg_threads().Stop();
}

switch_core_session_t* SessionManager::Create(switch_call_direction_t direction, switch_memory_pool_t** pool,
                                              const std::string& wanted_uuid, std::string& reason) {
  const std::string uuid = wanted_uuid.empty() ? fresh_uuid() : wanted_uuid;
  switch_memory_pool_t* own_pool = pool ? *pool : nullptr;
  if (!own_pool && switch_core_new_memory_pool(&own_pool) != SWITCH_STATUS_SUCCESS) {
    reason = "there is no memory";
    return nullptr;
  }
  State& all = state();
  std::lock_guard<std::mutex> lock(all.mutex);
  std::lock_guard<ManyReadersLock> uuids_lock(all.uuids_mutex);
  if (uuid.size() > SWITCH_UUID_FORMATTED_LENGTH) {
    reason = "the uuid is too long";
  } else if (!all.running) {
    reason = "the switch is shutting down";
  } else if (all.paused) {
    reason = "the switch takes no new calls at the moment";
  } else if (all.alive >= all.maximum) {
    reason = "there are " + std::to_string(all.alive) + " of at most " + std::to_string(all.maximum) + " legs";
  } else if (direction == SWITCH_CALL_DIRECTION_INBOUND) {  // others count as well, but half a call is of no use
    reason = SessionRate::Get().Refusal(std::chrono::steady_clock::now());
  }
  if (all.by_uuid.count(uuid)) reason = "the uuid " + uuid + " is in use";
  if (!reason.empty()) {
    if (!pool || !*pool) switch_core_destroy_memory_pool(&own_pool);
    return nullptr;
  }
  if (pool) *pool = nullptr;
  auto* session = new switch_core_session(++all.last_id, own_pool, direction);
  session->uuid = switch_core_strdup(own_pool, uuid.c_str());
  session->channel.times.created = switch_time_now();
  all.by_uuid.emplace(uuid, session);
  all.peak = std::max(all.peak, ++all.alive);
  ++all.total;
  SessionRate::Get().Count(std::chrono::steady_clock::now());
  return session;
}

bool SessionManager::Launch(switch_core_session_t* session, std::shared_ptr<LegProgram> program) {
  if (session->started.exchange(true)) return false;
  session->running = true;
  FireChannelEvent(&session->channel, SWITCH_EVENT_CHANNEL_CREATE, __FILE__, __func__, __LINE__);
  try {
    leg_threads().Run([this, session, program = std::move(program)]() mutable { RunLeg(session, std::move(program)); });
  } catch (const std::system_error& error) {
    switch_log_printf(SWITCH_CHANNEL_SESSION_LOG(session), SWITCH_LOG_CRIT, "Cannot start a leg's thread: %s\n",
                      error.what());
    session->running = false;
    session->started = false;
    return false;
  }
  return true;
}

void SessionManager::RunLeg(switch_core_session_t* session, std::shared_ptr<LegProgram> program) {
  if (switch_channel_get_state(&session->channel) == CS_NEW) switch_channel_set_state(&session->channel, CS_INIT);
  run_program(session, *program);
  session->tasks.Close();
  report_end(session);
  session->running = false;
  Free(session);
  program.reset();
  State& all = state();
  std::lock_guard<std::mutex> lock(all.mutex);
  --all.alive;
  all.last_end = std::chrono::steady_clock::now();
  all.ended.notify_all();
  if (!std::exchange(all.memory_used, true)) all.to_trim.notify_all();
}

void SessionManager::Destroy(switch_core_session_t* session) {
  if (!IsHungUp(&session->channel)) switch_channel_hangup(&session->channel, SWITCH_CAUSE_NORMAL_CLEARING);
  WaitForHangupTold(&session->channel);
  session->tasks.Close();
  Free(session);
  State& all = state();
  std::lock_guard<std::mutex> lock(all.mutex);
  --all.alive;
  all.ended.notify_all();
}

void SessionManager::Free(switch_core_session_t* session) {
  {
    std::lock_guard<ManyReadersLock> lock(state().uuids_mutex);
    state().by_uuid.erase(session->uuid.load());
  }
  // Nobody finds the leg any more; those who have found it finish first.
  while (!session->lock.TryLockWriteFor(kTellAgain)) {
    switch_log_printf(SWITCH_CHANNEL_SESSION_LOG(session), SWITCH_LOG_WARNING,
                      "Leg %s is over, but still somebody reads it\n", switch_channel_get_name(&session->channel));
  }
  switch_core_destroy_memory_pool(&session->pool);
  delete session;
}

/// When there has been no leg for a while.
void SessionManager::GiveMemoryBack() {
  State& all = state();
  std::unique_lock<std::mutex> lock(all.mutex);
  while (!all.trimmer_may_end) {
    if (!all.memory_used) {
      all.to_trim.wait(lock);
      continue;
    }
    const auto now = std::chrono::steady_clock::now();
    const auto due = all.alive == 0 ? all.last_end + all.quiet : now + all.quiet;
    if (now < due) {
      all.to_trim.wait_until(lock, due);
      continue;
    }
    all.memory_used = false;
    lock.unlock();
    give_memory_back();
    lock.lock();
  }
}

void SessionManager::DestroyUnlaunched() {
  std::vector<switch_core_session_t*> unlaunched;
  {
    std::shared_lock<ManyReadersLock> lock(state().uuids_mutex);
    for (const auto& item : state().by_uuid) {
      if (!item.second->started) unlaunched.push_back(item.second);
    }
  }
  for (switch_core_session_t* session : unlaunched) {
    switch_log_printf(SWITCH_CHANNEL_SESSION_LOG(session), SWITCH_LOG_WARNING,
                      "Leg %s was requested, but neither launched nor destroyed\n",
                      switch_channel_get_name(&session->channel));
    Destroy(session);
  }
}

switch_core_session_t* SessionManager::Locate(const std::string& uuid, bool also_hung_up) {
  std::shared_lock<ManyReadersLock> lock(state().uuids_mutex);
  const auto found = state().by_uuid.find(uuid);
  if (found == state().by_uuid.end()) return nullptr;
  switch_core_session_t* session = found->second;
  if (!also_hung_up && IsHungUp(&session->channel)) return nullptr;
  return session->lock.TryLockRead() ? session : nullptr;
}

bool SessionManager::Rename(switch_core_session_t* session, const std::string& uuid) {
  if (uuid.empty() || uuid.size() > SWITCH_UUID_FORMATTED_LENGTH) return false;
  char* text = switch_core_strdup(session->pool, uuid.c_str());
  std::lock_guard<ManyReadersLock> lock(state().uuids_mutex);
  if (session->uuid.load() == uuid) return true;
  if (!state().by_uuid.emplace(uuid, session).second) return false;
  state().by_uuid.erase(session->uuid.load());
  session->uuid = text;
  return true;
}

std::vector<switch_core_session_t*> SessionManager::LockAll() {
  std::vector<switch_core_session_t*> locked;
  std::shared_lock<ManyReadersLock> lock(state().uuids_mutex);
  for (const auto& item : state().by_uuid) {
    if (item.second->lock.TryLockRead()) locked.push_back(item.second);
  }
  lock.unlock();
  std::sort(locked.begin(), locked.end(), [](const auto* a, const auto* b) { return a->id < b->id; });
  return locked;
}

std::vector<SessionInfo> SessionManager::List() {
  std::vector<SessionInfo> list;
  for (switch_core_session_t* session : LockAll()) {
    list.push_back(info_of(session));
    switch_core_session_rwunlock(session);
  }
  return list;
}

bool SessionManager::WaitForNone(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock<std::mutex> lock(state().mutex);
  return state().ended.wait_until(lock, deadline, [] { return state().alive == 0; });
}

uint32_t SessionManager::Count() const {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().alive;
}

uint32_t SessionManager::Peak() const {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().peak;
}

uint64_t SessionManager::Total() const {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().total;
}

bool SessionManager::Running() const {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().running;
}

void SessionManager::SetPaused(bool paused) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().paused = paused;
}

bool SessionManager::Paused() const {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().paused;
}

void SessionManager::SetQuiet(std::chrono::milliseconds quiet) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().quiet = quiet;
  state().to_trim.notify_all();
}

void SessionManager::SetMaximum(uint32_t maximum) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().maximum = maximum;
}

uint32_t SessionManager::Maximum() const {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().maximum;
}

void HangUpAll(switch_call_cause_t cause) {
  for (switch_core_session_t* session : SessionManager::Get().LockAll()) {
    switch_channel_hangup(&session->channel, cause);
    switch_core_session_rwunlock(session);
  }
}

}  // namespace kvx_switch
