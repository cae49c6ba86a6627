#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <switch.h>

namespace kvx_switch {

/// What a leg does on its own thread. The signalling side implements it; the core runs it, and when Run returns reports
/// the leg, waits for its readers and destroys the session and then the program.
class LegProgram {
 public:
  virtual ~LegProgram() = default;

  /// Returns when the leg is over. A leg that was not hung up by then is, with NORMAL_CLEARING. An exception that
  /// leaves it is logged and ends the leg with DESTINATION_OUT_OF_ORDER.
  virtual void Run(switch_core_session_t* session) = 0;
};

/// Who calls whom, as signalling knows it: what variables of the leg fall back to and what its events carry.
struct CallerData {
  std::string caller_id_name;
  std::string caller_id_number;
  std::string destination_number;
  std::string network_address;
  std::string context = "default";
};

/// A new session under a fresh uuid: registered, to be located, its thread not launched. Null, with a log line, when
/// the switch is full, paused or shutting down.
switch_core_session_t* RequestSession(switch_call_direction_t direction, const std::string& channel_name);

/// The variable with the uuid that the legs of one call share: the first leg's. RequestSession sets it to the leg's
/// own.
constexpr const char* kCallUuidVariable = "call_uuid";

/// Starts the leg's thread. FALSE when it was started before; the session then stays as it is.
switch_status_t LaunchSession(switch_core_session_t* session, std::shared_ptr<LegProgram> program);

/// Call before the launch, or on the leg's thread. Fires nothing.
void SetCallerData(switch_core_session_t* session, const CallerData& caller);
CallerData GetCallerData(switch_core_session_t* session);

/// Queues `task` for the leg's own thread, in order; from any thread, never blocks. False when the leg takes no more
/// tasks. The caller holds a read lock or knows that the session lives.
bool PostToSession(switch_core_session_t* session, std::function<void()> task);
/// Locates the leg itself, also one that is hanging up; false when there is none.
bool PostToSession(const std::string& uuid, std::function<void()> task);

/// On the leg's thread: runs posted tasks until done() holds (true), or the leg is hung up or the deadline passes
/// (false). done() is asked before the first wait and after every task or wake-up.
bool ServeUntil(switch_core_session_t* session, std::chrono::steady_clock::time_point deadline,
                const std::function<bool()>& done);
/// On the leg's thread, also after the hang-up: the same without an end at the hang-up (to finish signalling).
bool ServeAfterHangup(switch_core_session_t* session, std::chrono::steady_clock::time_point deadline,
                      const std::function<bool()>& done);
/// On the leg's thread: runs the tasks that are queued, does not wait.
void DrainTasks(switch_core_session_t* session);

/// On the leg's thread: the media server has nothing of the leg any more. Who located the leg may be looking whether it
/// has, and finishes first; one that keeps the leg for seconds is not waited for.
void ForgetMediaServersInfo(switch_core_session_t* session);

/// One leg as `show channels` and `show calls` print it.
struct SessionInfo {
  std::string uuid;
  std::string name;
  std::string direction;  ///< "inbound", "outbound"
  std::string state;      ///< CS_...
  std::string callstate;  ///< DOWN, RINGING, ...
  std::string cid_name;
  std::string cid_number;
  std::string destination;
  std::string context;
  std::string partner_uuid;         ///< "" when unbridged
  std::string created;              ///< local time, "2024-01-31 23:59:59"
  switch_time_t created_time = 0;   ///< microseconds since the epoch
  switch_time_t answered_time = 0;  ///< 0: not answered
};

/// Oldest first.
std::vector<SessionInfo> ListSessions();

/// Until no session is left; false when some are after `timeout`.
bool WaitForNoSessions(std::chrono::milliseconds timeout);

}  // namespace kvx_switch
