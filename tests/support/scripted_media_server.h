/// Media servers that do what a test tells them.
///
/// What a caller does when the media server refuses, keeps silent or dies can only be tested with a server that does so
/// on command. ScriptedMediaServers registers a driver with the control library and writes a configuration file with
/// servers of it; what is tested then runs through the library's real factory, sessions and connections:
///
///     ScriptedMediaServers servers;
///     MSControlFactory factory;
///     ASSERT_TRUE(factory.Init(servers.config_path().c_str(), &logger));
///     ...
///     servers.Fail(ScriptedOperation::kJoin);
///     EXPECT_FALSE(a->Join(kDuplex, b));
///     EXPECT_THAT(servers.Operations(), ElementsAre(...));
///
/// Untold, the servers succeed: local descriptions get the server's addresses and a pair of ports, joins are kept as
/// the driver interface asks, connections have no image stream, and no RTP was seen.
///
/// Sessions, endpoints and servers are named by number: servers from 0 in configured order, sessions and endpoints from
/// 1 in the order of their making over all servers. Threads: all operations from any thread.
#pragma once

#include "kelvaro/jsr309/joinable.h"
#include "kelvaro/jsr309/media_config.h"
#include "kelvaro/jsr309/rtcp_stats_report.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace test_support {

class ScriptedState;

enum class ScriptedOperation {
  kOpen,
  kCreateSession,
  kCreateEndpoint,
  kImportEndpoint,
  kGetLocalOffer,
  kGetLocalAnswer,
  kSetRemoteOffer,
  kSetRemoteAnswer,
  kSetRemoteAddressDetection,
  kGetLocalImageConfig,
  kGetRemoteImageConfig,
  kGetRtcpStatsReport,
  kJoin,
  kUnjoin,
  kClose,    ///< an endpoint, the caller waiting for it
  kRelease,  ///< an endpoint, nobody waiting for it
  kReleaseSession,
  kShutdown,
};

const char* Name(ScriptedOperation operation);
std::ostream& operator<<(std::ostream& out, ScriptedOperation operation);

/// One operation as it reached a server, whether it then succeeded or not.
struct ScriptedCall {
  explicit ScriptedCall(ScriptedOperation called) : operation(called) {}

  ScriptedOperation operation;
  size_t server = 0;
  unsigned session = 0;   ///< 0 where there is none yet; the destination of an import
  unsigned endpoint = 0;  ///< 0 where there is none yet
  unsigned other = 0;     ///< the other endpoint of a join or unjoin
  kelvaro::jsr309::Direction direction = kelvaro::jsr309::kDuplex;  ///< of a join
  std::optional<kelvaro::jsr309::MediaConfig> config;               ///< as the caller gave it, where there is one
  bool result = false;
};

struct ScriptedOptions {
  size_t servers = 1;
  size_t capacity = 100;
  std::vector<size_t> capacities;  ///< of the first servers, in place of capacity
  unsigned request_timeout_ms = 300;
  unsigned lost_events_per_second = 1000000;
  std::string public_address;         ///< of the first server
  std::string audio_codecs;           ///< XML put into media.codec.audio
  std::string more_servers;           ///< XML of further media_server elements, of other drivers
  std::string extra_server_elements;  ///< XML put into each media_server
};

class ScriptedMediaServers {
 public:
  static constexpr int kAlways = -1;

  explicit ScriptedMediaServers(const ScriptedOptions& options = {});
  /// Takes the registration back and removes the file. Factories may live on.
  ~ScriptedMediaServers();
  ScriptedMediaServers(const ScriptedMediaServers&) = delete;
  ScriptedMediaServers& operator=(const ScriptedMediaServers&) = delete;

  /// The configuration file. Server n has the MAC 02:00:00:00:00:0n (in hexadecimal, n from 1) and the addresses
  /// 127.0.1.n and 127.0.2.n.
  const std::string& config_path() const { return config_path_; }
  /// The name under which the driver is registered, for a configuration file of the test's own.
  const std::string& driver_name() const { return driver_name_; }
  /// The first address of a server.
  std::string Address(size_t server = 0) const;
  std::string Mac(size_t server = 0) const;

  // What the servers are to do.

  /// Lets the next calls of the operation fail, in every server; kAlways until Succeed.
  void Fail(ScriptedOperation operation, int times = 1);
  void Succeed(ScriptedOperation operation);
  /// Lets the next Open of that server fail.
  void FailOpen(size_t server);
  /// Changes what a successful GetLocalOffer, GetLocalAnswer or Get...ImageConfig puts into the record.
  void Answer(ScriptedOperation operation, std::function<void(kelvaro::jsr309::MediaConfig&)> fill_in);
  /// What a successful GetRtcpStatsReport yields.
  void AnswerReports(std::vector<kelvaro::jsr309::RtcpStatsReport> reports);
  /// Lets calls of the operation wait, until Resume or until their request_timeout_ms is over, when they fail.
  void Hold(ScriptedOperation operation);
  void Resume(ScriptedOperation operation);
  /// Whether a call of a held operation is waiting, within the patience of the tests.
  bool WaitForHeld(ScriptedOperation operation);
  /// Runs work once, in the middle of the next call of the operation: on its caller's thread, before the server acts.
  void During(ScriptedOperation operation, std::function<void()> work);

  // What the servers do by themselves.

  /// False when the endpoint has ended.
  bool FireRtpTimeout(unsigned endpoint, bool had_media = true);
  /// Loses a server, with all that is on it. With report off the library is not told: the server only stops answering.
  void Lose(size_t server = 0, bool report = true);
  void Return(size_t server = 0);
  /// Tells the library of a loss that has not happened.
  void ReportLost(size_t server = 0);

  // What has come of it.

  std::vector<ScriptedCall> Calls() const;
  std::vector<ScriptedCall> Calls(ScriptedOperation operation) const;
  std::vector<ScriptedOperation> Operations() const;
  void ForgetCalls();
  /// The number of the endpoint made last; 0 before the first.
  unsigned LastEndpoint() const;
  std::vector<unsigned> OpenEndpoints() const;
  size_t OpenSessions() const;
  /// 0 for an endpoint that has ended.
  unsigned SessionOf(unsigned endpoint) const;
  /// None when the two are not joined. Seen from the first.
  std::optional<kelvaro::jsr309::Direction> JoinOf(unsigned endpoint, unsigned other) const;
  /// The local RTP port of an endpoint, 0 before its first local description.
  uint16_t PortOf(unsigned endpoint) const;

 private:
  const std::shared_ptr<ScriptedState> state_;
  std::string driver_name_;
  std::string config_path_;
};

}  // namespace test_support
