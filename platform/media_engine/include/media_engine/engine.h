/// A media server in software: relays RTP between pairs of endpoints, each an RTP participant of its own (RFC 3550).
///
/// Thousands of packets per second must not wait for a request, and a request must not wait for a lock that packets
/// contend for. Every session therefore lives on one worker thread with all its endpoints and their sockets; only that
/// thread touches them. Requests are posted to it and answered. An endpoint can be imported into a session of another
/// worker, or of another server: it moves there with its sockets, and requests made afterwards follow it.
///
///     Engine      what servers share, so that endpoints can move between them
///       Server    addresses, a port range, worker threads
///         Session   endpoints that may be joined with each other
///           Endpoint  a pair of UDP ports towards one far end
///
/// Ownership: objects are held by shared pointers and may outlive what they were made from; their requests then fail.
/// An endpoint ends with Close, with its Endpoint object, with its session, with the server whose ports it has and with
/// the server it was imported into.
///
/// Threads: all operations from any thread at the same time, except from the callbacks, which must not call back.
/// Operations with a time limit wait for the worker that long at most; the others do not wait.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "media_engine/clock.h"
#include "media_engine/description.h"
#include "media_engine/log.h"
#include "media_engine/outcome.h"
#include "media_engine/statistics.h"

namespace media_engine {

class EndpointRoute;
class Mailbox;
class ServerContext;
class SessionRoute;
class WorkerThread;
class HeartbeatMonitor;

/// Hears of an endpoint's silences, on a worker thread: it returns at once.
class EndpointEvents {
 public:
  virtual ~EndpointEvents() = default;
  /// Once per silence. had_media: RTP had been coming and stopped (the inactive timeout); else none ever came.
  virtual void OnRtpTimeout(bool had_media) = 0;
};

/// Hears of a server whose workers do not serve, on a thread of the server's own: it returns at once.
class ServerEvents {
 public:
  virtual ~ServerEvents() = default;
  virtual void OnServerLost() = 0;
  virtual void OnServerBack() = 0;
};

struct ServerConfig {
  std::vector<std::string> addresses;  ///< numeric; endpoints are bound to the first
  std::string public_address;          ///< empty when there is none
  uint16_t rtp_port_min = 16384;       ///< both ends belong to the range; RTP takes the even ports, RTCP the odd ones
  uint16_t rtp_port_max = 32767;
  /// How long ports of an endpoint that has ended stay unused, while its far end may still be sending. Counts like any
  /// other time of the engine. When all that are free rest so, a new endpoint is refused. 0: not at all.
  milliseconds port_quarantine{0};
  unsigned threads = 1;
  /// A worker with at least 200 endpoints that found few packets rests for that long, so that the next ones can be
  /// served together: a fraction of the CPU for as much delay at most. Less than a second. 0: packets are served as
  /// they come.
  std::chrono::microseconds coalescing{0};
  milliseconds heartbeat{2000};  ///< a worker that has not served for that long counts as lost
  LogSink log;                   ///< may be empty
};

struct ServerUsage {
  std::size_t sessions = 0;
  std::size_t endpoints = 0;   ///< on this server's workers
  std::size_t port_pairs = 0;  ///< taken from this server's range
};

class Endpoint {
 public:
  Endpoint(std::shared_ptr<ServerContext> server, std::shared_ptr<EndpointRoute> route);
  ~Endpoint();  ///< ends the endpoint without waiting
  Endpoint(const Endpoint&) = delete;
  Endpoint& operator=(const Endpoint&) = delete;

  /// Binds a port pair unless the endpoint has one, and takes over the settings.
  Outcome DescribeLocal(const LocalSettings& settings, LocalDescription& description, milliseconds limit);
  Outcome DescribeRemote(const RemoteDescription& description, milliseconds limit);
  /// The image stream, in use or wished for by either side; none is no error. Its local side has ports from now on.
  Outcome ReadLocalImage(std::optional<ImageDescription>& image, milliseconds limit);
  /// What the far end said of its image stream; none is no error.
  Outcome ReadRemoteImage(std::optional<ImageDescription>& image, milliseconds limit);
  /// Lets the remote address of the audio be learned once for each address that the far end describes, from the first
  /// valid RTP packet that comes from elsewhere within 10 s. The 10 s start with the first request and with a
  /// description of another address, and anew with each request, description and join as long as no media has come.
  Outcome DetectRemoteAddress(milliseconds limit);
  /// Both in one session. A pair that is joined changes its direction; former joins with third ones are dissolved.
  /// Refused when the two codecs cannot be carried into each other, and for an image stream with audio, unless either
  /// is being described anew; a refused pair is left unjoined.
  Outcome Join(Direction direction, Endpoint& other, milliseconds limit);
  Outcome Unjoin(Endpoint& other, milliseconds limit);
  Outcome ReadStatistics(EndpointStatistics& statistics, milliseconds limit);
  /// The ports are free on return. Closing again is no error.
  Outcome Close(milliseconds limit);
  /// Closes without waiting.
  void Release();
  bool closed() const;

 private:
  friend class Session;
  const std::shared_ptr<ServerContext> server_;
  const std::shared_ptr<EndpointRoute> route_;
};

class Session {
 public:
  Session(std::shared_ptr<ServerContext> server, std::shared_ptr<SessionRoute> route);
  ~Session();  ///< ends the session and its endpoints without waiting
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Null when refused; outcome says why. events may be null and is let go of when the endpoint ends.
  std::shared_ptr<Endpoint> CreateEndpoint(std::shared_ptr<EndpointEvents> events, milliseconds limit,
                                           Outcome& outcome);
  /// Moves the endpoint here, from a session of any server of the engine, without waiting. It keeps its ports and its
  /// join only with endpoints that are in this session. Whoever made the call may take it as done from then on.
  Outcome Import(Endpoint& endpoint);
  /// Ends the session and its endpoints without waiting.
  void Release();

 private:
  const std::shared_ptr<ServerContext> server_;
  const std::shared_ptr<SessionRoute> route_;
};

class Server {
 public:
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// On the worker with the fewest sessions. Null when the server is lost or shut down.
  std::shared_ptr<Session> CreateSession(Outcome& outcome);
  /// Whether all workers serve.
  bool IsAlive() const;
  ServerUsage Usage() const;
  unsigned threads() const;
  /// Test aid: the worker stops serving, as if stuck, until it is told to go on.
  void StallWorker(unsigned index, bool stalled);
  /// Long enough for workers that serve, and for endpoints that are at another server's.
  static constexpr milliseconds kShutdownLimit{5000};
  /// Closes every endpoint, joins every thread; no callback and no log call comes after the return. Takes no longer
  /// than the limit, in real time: a worker that has not ended by then is left to itself, which is logged, and ends its
  /// endpoints when it goes on. Idempotent.
  void Shutdown(milliseconds limit = kShutdownLimit);

 private:
  friend class Engine;
  Server(std::shared_ptr<ServerContext> context, ServerEvents* events);
  Outcome Start(const ServerConfig& config);
  void CloseEmigrants(TimePoint deadline);

  const std::shared_ptr<ServerContext> context_;
  ServerEvents* const events_;
  std::vector<std::unique_ptr<WorkerThread>> workers_;
  std::unique_ptr<HeartbeatMonitor> heartbeat_;
};

/// Whether a server can have that address: numeric, and of one host. bound: whether endpoints can be bound to it, too.
Outcome CheckServerAddress(const std::string& address, bool bound);

/// Servers of one engine can import endpoints from each other.
class Engine {
 public:
  /// A null clock is the system's monotonic one.
  explicit Engine(std::shared_ptr<const Clock> clock = nullptr);

  /// Null when refused, with nothing left behind; outcome says why. events may be null and must outlive Shutdown.
  std::unique_ptr<Server> OpenServer(const ServerConfig& config, ServerEvents* events, Outcome& outcome);

 private:
  const std::shared_ptr<const Clock> clock_;
  const std::shared_ptr<const int> identity_;  ///< what the contexts of one engine have in common
};

}  // namespace media_engine
