#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "core/event.h"
#include "core/guard.h"
#include "core/receiver.h"

/// A binding. Who bound removably holds the address as a handle; the dispatcher owns it.
struct switch_event_node {
  std::string id;
  switch_event_types_t event_id;
  std::string subclass_name;
  bool any_subclass;
  switch_event_callback_t callback;
  void* user_data;
  kvx_switch::Receiver receiver;

  bool Wants(const switch_event_t& event) const {
    if (event_id == SWITCH_EVENT_ALL) return true;
    if (event_id != event.event_id) return false;
    return any_subclass || (event.subclass_name && !strcasecmp(subclass_name.c_str(), event.subclass_name));
  }
};

namespace kvx_switch {
namespace {

using Binding = std::shared_ptr<switch_event_node>;

class Dispatcher {
 public:
  void Start();
  void Stop();
  void Flush();
  /// Takes the event; false, and it stays the caller's, when the dispatcher does not run.
  bool Queue(switch_event_t* event);
  bool IsWanted(switch_event_types_t id) const {
    const bool known = id >= 0 && id <= SWITCH_EVENT_ALL;
    return (known && wanted_[id].load() != 0) || wanted_[SWITCH_EVENT_ALL].load() != 0;
  }
  void Deliver(switch_event_t* event);

  switch_event_node_t* Bind(Binding binding);
  int RemoveIf(const std::function<bool(const switch_event_node_t&)>& is_doomed);

  bool Reserve(const std::string& subclass, const std::string& owner);
  switch_status_t Free(const std::string& subclass, const std::string& owner);

 private:
  void Run();

  std::mutex start_mutex_;
  std::thread thread_;  // guarded by start_mutex_

  std::mutex mutex_;
  std::condition_variable queued_;
  std::condition_variable delivered_;
  bool running_ = false;                // guarded by mutex_
  bool stopping_ = false;               // guarded by mutex_
  bool asleep_ = false;                 // guarded by mutex_
  std::deque<switch_event_t*> events_;  // guarded by mutex_
  size_t warn_at_ = kFirstWarning;      // guarded by mutex_
  uint64_t events_in_ = 0;              // guarded by mutex_
  uint64_t events_out_ = 0;             // guarded by mutex_

  std::mutex bindings_mutex_;
  std::vector<Binding> bindings_;                                     // guarded by bindings_mutex_
  std::array<std::atomic<unsigned>, SWITCH_EVENT_ALL + 1> wanted_{};  // bindings by kind; written under bindings_mutex_
  std::map<std::string, std::string> owners_;                         // guarded by bindings_mutex_; by subclass

  /// A backlog that says a receiver does not keep up; told again at every doubling.
  static constexpr size_t kFirstWarning = 10000;
};

/// Lives as long as the process: events may be fired from anywhere at any time.
Dispatcher& the_dispatcher() {
  static Dispatcher* const dispatcher = new Dispatcher;
  return *dispatcher;
}

void Dispatcher::Start() {
  std::lock_guard<std::mutex> start_lock(start_mutex_);
  if (thread_.joinable()) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    running_ = true;
    stopping_ = false;
    warn_at_ = kFirstWarning;
  }
  thread_ = std::thread([this] { Run(); });
}

void Dispatcher::Stop() {
  std::lock_guard<std::mutex> start_lock(start_mutex_);
  if (!thread_.joinable()) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  queued_.notify_all();
  thread_.join();
  RemoveIf([](const switch_event_node_t&) { return true; });
  std::lock_guard<std::mutex> lock(bindings_mutex_);
  owners_.clear();
}

void Dispatcher::Flush() {
  std::unique_lock<std::mutex> lock(mutex_);
  const uint64_t last = events_in_;
  delivered_.wait(lock, [&] { return !running_ || events_out_ >= last; });
}

bool Dispatcher::Queue(switch_event_t* event) {
  size_t backlog = 0;
  bool wake = false;
  const bool wanted = IsWanted(event->event_id);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!running_) return false;
    if (wanted) {
      events_.push_back(event);
      ++events_in_;
      wake = asleep_;
    }
    if (events_.size() >= warn_at_) {
      backlog = events_.size();
      warn_at_ *= 2;
    }
  }
  if (wake) queued_.notify_one();
  if (!wanted) switch_event_destroy(&event);
  if (backlog) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "%zu events wait: a receiver does not keep up\n",
                      backlog);
  }
  return true;
}

void Dispatcher::Run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    asleep_ = true;
    queued_.wait(lock, [this] { return stopping_ || !events_.empty(); });
    asleep_ = false;
    if (events_.empty()) break;
    switch_event_t* event = events_.front();
    events_.pop_front();
    lock.unlock();
    Deliver(event);
    switch_event_destroy(&event);
    lock.lock();
    ++events_out_;
    delivered_.notify_all();
  }
  running_ = false;
  delivered_.notify_all();
}

void Dispatcher::Deliver(switch_event_t* event) {
  std::vector<Binding> wanted;
  {
    std::lock_guard<std::mutex> lock(bindings_mutex_);
    std::copy_if(bindings_.begin(), bindings_.end(), std::back_inserter(wanted),
                 [&](const Binding& binding) { return binding->Wants(*event); });
  }
  for (const Binding& binding : wanted) {
    const Receiver::Call call(binding->receiver);
    if (!call) continue;
    event->bind_user_data = binding->user_data;
    std::string what;
    if (!RunGuarded([&] { binding->callback(event); }, what)) {
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "An exception left the event receiver %s: %s\n",
                        binding->id.c_str(), what.c_str());
    }
  }
}

switch_event_node_t* Dispatcher::Bind(Binding binding) {
  std::lock_guard<std::mutex> lock(bindings_mutex_);
  ++wanted_[binding->event_id];
  bindings_.push_back(std::move(binding));
  return bindings_.back().get();
}

int Dispatcher::RemoveIf(const std::function<bool(const switch_event_node_t&)>& is_doomed) {
  std::vector<Binding> removed;
  {
    std::lock_guard<std::mutex> lock(bindings_mutex_);
    const auto kept = std::stable_partition(bindings_.begin(), bindings_.end(),
                                            [&](const Binding& binding) { return !is_doomed(*binding); });
    removed.assign(kept, bindings_.end());
    bindings_.erase(kept, bindings_.end());
    for (const Binding& binding : removed) --wanted_[binding->event_id];
  }
  for (const Binding& binding : removed) binding->receiver.Remove();
  return static_cast<int>(removed.size());
}

bool Dispatcher::Reserve(const std::string& subclass, const std::string& owner) {
  std::lock_guard<std::mutex> lock(bindings_mutex_);
  return owners_.emplace(subclass, owner).second;
}

switch_status_t Dispatcher::Free(const std::string& subclass, const std::string& owner) {
  std::lock_guard<std::mutex> lock(bindings_mutex_);
  const auto found = owners_.find(subclass);
  if (found == owners_.end() || found->second != owner) return SWITCH_STATUS_FALSE;
  owners_.erase(found);
  return SWITCH_STATUS_SUCCESS;
}

}  // namespace

void StartEvents() {
  the_dispatcher().Start();
}
void StopEvents() {
  the_dispatcher().Stop();
}
void FlushEvents() {
  the_dispatcher().Flush();
}

bool IsEventWanted(switch_event_types_t id) {
  return the_dispatcher().IsWanted(id);
}

int RemoveEventBindingsIf(const std::function<bool(void*)>& is_doomed) {
  return the_dispatcher().RemoveIf(
      [&](const switch_event_node_t& binding) { return is_doomed(reinterpret_cast<void*>(binding.callback)); });
}

}  // namespace kvx_switch

using kvx_switch::the_dispatcher;

switch_status_t switch_event_fire_detailed(const char*, const char*, int, switch_event_t** event, void* user_data) {
  if (!event || !*event) return SWITCH_STATUS_FALSE;
  if (user_data) (*event)->event_user_data = user_data;
  if (!the_dispatcher().Queue(*event)) {
    switch_event_destroy(event);
    return SWITCH_STATUS_FALSE;
  }
  *event = nullptr;
  return SWITCH_STATUS_SUCCESS;
}

void switch_event_deliver(switch_event_t** event) {
  if (!event || !*event) return;
  the_dispatcher().Deliver(*event);
  switch_event_destroy(event);
}

switch_status_t switch_event_bind(const char* id, switch_event_types_t event, const char* subclass_name,
                                  switch_event_callback_t callback, void* user_data) {
  switch_event_node_t* node = nullptr;
  return switch_event_bind_removable(id, event, subclass_name, callback, user_data, &node);
}

switch_status_t switch_event_bind_removable(const char* id, switch_event_types_t event, const char* subclass_name,
                                            switch_event_callback_t callback, void* user_data,
                                            switch_event_node_t** node) {
  if (!callback || event < 0 || event > SWITCH_EVENT_ALL) return SWITCH_STATUS_FALSE;
  auto binding = std::make_shared<switch_event_node>();
  binding->id = switch_str_nil(id);
  binding->event_id = event;
  binding->subclass_name = switch_str_nil(subclass_name);
  binding->any_subclass = subclass_name == SWITCH_EVENT_SUBCLASS_ANY;
  binding->callback = callback;
  binding->user_data = user_data;
  *node = the_dispatcher().Bind(std::move(binding));
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_event_unbind(switch_event_node_t** node) {
  if (!node || !*node) return SWITCH_STATUS_FALSE;
  const switch_event_node_t* doomed = *node;
  *node = nullptr;
  const int removed = the_dispatcher().RemoveIf([&](const switch_event_node_t& binding) { return &binding == doomed; });
  return removed ? SWITCH_STATUS_SUCCESS : SWITCH_STATUS_FALSE;
}

switch_status_t switch_event_unbind_callback(switch_event_callback_t callback) {
  const int removed =
      the_dispatcher().RemoveIf([&](const switch_event_node_t& binding) { return binding.callback == callback; });
  return removed ? SWITCH_STATUS_SUCCESS : SWITCH_STATUS_FALSE;
}

switch_status_t switch_event_reserve_subclass_detailed(const char* owner, const char* subclass_name) {
  if (!owner || !subclass_name) return SWITCH_STATUS_FALSE;
  return the_dispatcher().Reserve(subclass_name, owner) ? SWITCH_STATUS_SUCCESS : SWITCH_STATUS_INUSE;
}

switch_status_t switch_event_free_subclass_detailed(const char* owner, const char* subclass_name) {
  if (!owner || !subclass_name) return SWITCH_STATUS_FALSE;
  return the_dispatcher().Free(subclass_name, owner);
}
