#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <switch.h>

#include "core/session.h"

namespace kvx_switch {

/// All legs: made, found, and ended here. Each launched leg has a thread (LegThreads).
class SessionManager {
 public:
  static SessionManager& Get();

  void Start();
  /// No new legs from now on.
  void BeginShutdown();
  /// Hangs up every leg, waits for them, however long that takes, and joins all threads.
  void Stop();

  /// Takes over `*pool` (or makes one when it is null). Null with a reason when refused.
  switch_core_session_t* Create(switch_call_direction_t direction, switch_memory_pool_t** pool, const std::string& uuid,
                                std::string& reason);
  bool Launch(switch_core_session_t* session, std::shared_ptr<LegProgram> program);
  /// For a leg without a thread: takes it out, waits for its readers, frees it.
  void Destroy(switch_core_session_t* session);

  /// Read-locked; null when there is none, or it is hung up and that does not do.
  switch_core_session_t* Locate(const std::string& uuid, bool also_hung_up);
  bool Rename(switch_core_session_t* session, const std::string& uuid);
  /// Read-locked, oldest first.
  std::vector<switch_core_session_t*> LockAll();
  std::vector<SessionInfo> List();

  bool WaitForNone(std::chrono::steady_clock::time_point deadline);

  uint32_t Count() const;
  uint32_t Peak() const;
  uint64_t Total() const;

  /// How long there must be no leg before memory goes back to the system; 34 s from Start on.
  void SetQuiet(std::chrono::milliseconds quiet);
  bool Running() const;
  void SetPaused(bool paused);
  bool Paused() const;
  void SetMaximum(uint32_t maximum);
  uint32_t Maximum() const;

 private:
  void RunLeg(switch_core_session_t* session, std::shared_ptr<LegProgram> program);
  void Free(switch_core_session_t* session);
  void GiveMemoryBack();
  void DestroyUnlaunched();
};

/// Hangs up every leg there is.
void HangUpAll(switch_call_cause_t cause);

}  // namespace kvx_switch
