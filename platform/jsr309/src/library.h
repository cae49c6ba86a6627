/// What all objects of one factory share: servers, sessions, the event thread and the lock over their book-keeping.
///
/// Objects:   MSControlFactory -> Library <- Session, Endpoint <- the application's handles
///            Library owns the Servers; its list of sessions holds no reference.
/// Teardown:  Stop ends the sessions, shuts the servers down and joins the event thread. The Library itself goes with
///            the last handle, and the servers with it.
/// Locks:     mutex_ is the only lock over book-keeping: of this class, of Server, Session and Endpoint. It is held for
///            a few instructions, never during a call of a driver, a listener, the logger or a destructor of theirs.
#pragma once

#include "brief_mutex.h"
#include "configuration.h"
#include "event_loop.h"
#include "kelvaro/jsr309/clock.h"
#include "kelvaro/jsr309/guarded_logger.h"
#include "kelvaro/jsr309/jsr309_stats.h"
#include "server.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kelvaro::jsr309 {

class Session;

class Library : public std::enable_shared_from_this<Library> {
 public:
  Library(const Configuration& configuration, std::shared_ptr<Clock> clock, std::shared_ptr<GuardedLogger> logger);
  ~Library();

  /// Opens every server and starts the event thread. False, with everything shut down again, when one refuses.
  bool Open(const Configuration& configuration, SettingError& refusal);
  void Stop();
  /// After Stop, for the factory's end: waits for a listener that has outlasted it.
  void JoinEventThread() { events_.Join(); }

  /// A session placed as MSControlFactory::CreateMediaSession says; null when there is none.
  std::shared_ptr<Session> CreateSession();
  bool IsServerAvailable();
  bool SetServerStatus(const std::string& ip, bool in_service);
  bool GetStats(JSR309Stats& stats);

  /// Called with no lock of the library held.
  void ServerLost(Server& server);
  void ServerBack(Server& server);

  /// Takes a session out of the books. Guard: mutex_ held by the caller.
  void ForgetSession(Session& session);

  BriefMutex& mutex() { return mutex_; }
  EventLoop& events() { return events_; }
  GuardedLogger& logger() { return *logger_; }
  uint32_t NextNumber() { return ++last_number_; }

 private:
  enum class State { kOpening, kRunning, kStopping, kStopped };

  bool OpenServer(const ServerConfiguration& configuration, SettingError& refusal);
  void ShutDownServers();
  std::chrono::milliseconds LongestRequestTimeout() const;

  std::vector<bool> AliveServers() const;
  /// The server for the next session, null when none has room. Guard: mutex_ held by the caller.
  Server* PlaceSession(const std::vector<bool>& usable);
  std::shared_ptr<Session> CreateSessionOn(Server& server, uint64_t epoch);

  const std::shared_ptr<Clock> clock_;
  const std::shared_ptr<GuardedLogger> logger_;
  std::map<std::string, std::shared_ptr<MediaServerDriver>> drivers_;  // set by Open, then constant
  std::vector<std::unique_ptr<Server>> servers_;                       // set by Open, then constant

  alignas(64) BriefMutex mutex_;  // what stands above is read without it, and not on its cache line
  std::atomic<uint32_t> last_number_{0};
  State state_ = State::kOpening;  // guarded by mutex_
  std::list<Session*> sessions_;   // guarded by mutex_; those that have not ended, as they came
  MediaSessionStats summary_;      // guarded by mutex_; capacity and service are filled in by GetStats
  std::condition_variable_any stopped_condition_;

  EventLoop events_;  // last: its thread uses all of the above
};

}  // namespace kelvaro::jsr309
