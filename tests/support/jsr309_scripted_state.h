/// What all objects of one ScriptedMediaServers share: the script, the record of calls, and a model of the servers.
#pragma once

#include "kelvaro/jsr309/driver.h"
#include "support/scripted_media_server.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <utility>

namespace test_support {

/// Threads: all operations from any thread. Nothing is called out of the class with the lock held.
class ScriptedState : public std::enable_shared_from_this<ScriptedState> {
 public:
  using MediaConfig = kelvaro::jsr309::MediaConfig;
  using Direction = kelvaro::jsr309::Direction;

  struct Server {
    kelvaro::jsr309::MediaServerSettings settings;
    kelvaro::jsr309::MediaServerObserver* observer = nullptr;  // null outside Open to Shutdown
    bool alive = true;
    bool shut_down = false;
    unsigned ports_given = 0;
  };
  struct Endpoint {
    size_t server = 0;
    unsigned session = 0;
    bool open = true;
    std::weak_ptr<kelvaro::jsr309::RtpTimeoutSink> sink;
    uint16_t port = 0;
  };
  struct Session {
    size_t server = 0;
    bool open = true;
  };

  // For the driver. Each records the call with its result; request says what the operation does to the model, with the
  // lock held, and may refuse.

  size_t AddServer(const kelvaro::jsr309::MediaServerSettings& settings,
                   kelvaro::jsr309::MediaServerObserver& observer);
  bool Open(size_t server);
  bool IsAlive(size_t server) const;
  const kelvaro::jsr309::MediaServerSettings& Settings(size_t server) const;
  void Shutdown(size_t server);

  unsigned CreateSession(size_t server);
  void ReleaseSession(unsigned session);
  unsigned CreateEndpoint(unsigned session, std::weak_ptr<kelvaro::jsr309::RtpTimeoutSink> sink);
  bool ImportEndpoint(unsigned session, unsigned endpoint);
  bool Describe(ScriptedOperation operation, unsigned endpoint, MediaConfig& config);
  bool Accept(ScriptedOperation operation, unsigned endpoint, const MediaConfig* config);
  bool GetReports(unsigned endpoint, std::vector<kelvaro::jsr309::RtcpStatsReport>& reports);
  bool Join(unsigned endpoint, unsigned other, Direction direction);
  bool Unjoin(unsigned endpoint, unsigned other);
  bool EndEndpoint(ScriptedOperation operation, unsigned endpoint);

 private:
  friend class ScriptedMediaServers;

  using Request = std::function<bool()>;

  /// Runs what the test wants done meanwhile, waits while the operation is held, consumes a failure, runs request and
  /// records the call.
  bool Perform(ScriptedCall call, const Request& request);
  void RunMeanwhile(ScriptedOperation operation);
  bool WaitWhileHeld(std::unique_lock<std::mutex>& lock, const ScriptedCall& call);
  bool TakeFailure(ScriptedOperation operation);
  bool EndpointAnswers(unsigned endpoint) const;
  void FillInDescription(Endpoint& endpoint, MediaConfig& config, bool new_port);
  void CloseEndpoint(unsigned endpoint);
  void CloseSession(unsigned session);
  /// Dissolves the joins of an endpoint, those with endpoints of the session it is in excepted.
  void DissolveJoins(unsigned endpoint, std::optional<unsigned> except_session = std::nullopt);
  std::map<std::pair<unsigned, unsigned>, Direction>::iterator FindJoin(unsigned endpoint, unsigned other);

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  // All of the rest guarded by mutex_.
  std::vector<std::unique_ptr<Server>> servers_;
  std::map<unsigned, Session> sessions_;
  std::map<unsigned, Endpoint> endpoints_;
  std::map<std::pair<unsigned, unsigned>, Direction> joins_;  // seen from the first of the pair
  std::vector<ScriptedCall> calls_;
  std::map<ScriptedOperation, int> failures_;
  std::set<std::string> closed_macs_;  // servers whose next Open fails
  std::map<ScriptedOperation, std::function<void(MediaConfig&)>> answers_;
  std::vector<kelvaro::jsr309::RtcpStatsReport> reports_;
  std::map<ScriptedOperation, std::function<void()>> during_;
  std::set<ScriptedOperation> held_;
  std::map<ScriptedOperation, int> waiting_;
};

/// The driver over a state.
std::unique_ptr<kelvaro::jsr309::MediaServerDriver> MakeScriptedDriver(std::shared_ptr<ScriptedState> state);

}  // namespace test_support
