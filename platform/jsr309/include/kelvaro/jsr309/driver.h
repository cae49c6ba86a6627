/// The seam between the control library and the media servers it controls.
///
/// The library keeps the rules that hold for every media server: placement, handles, listeners, statistics, lost
/// servers. How a kind of server is talked to is a driver's business. A driver registers under a name; the
/// configuration names it per server, and MSControlFactory::Init has it open each.
///
///     MediaServerDriver   one per factory and name; opens servers
///       MediaServer       one configured server; makes sessions; reports loss and return to its MediaServerObserver
///         ServerSession   makes and adopts endpoints
///           ServerEndpoint  one RTP endpoint; reports silence to its RtpTimeoutSink
///
/// Rules for drivers:
///
/// - Ownership. The library holds the driver and its servers until the last handle of the application is gone, so a
///   session or an endpoint never outlives its server object. It calls Shutdown on every server before it destroys it,
///   and may still hold sessions and endpoints then: their operations return false.
/// - Threads. Every operation may be called from any thread, several at the same time, also on one object. The library
///   holds no lock during any of the calls. An operation that began before Close, Release or Shutdown may still be
///   running when these are called; it then returns false soon.
/// - Waiting. A request may wait for its server, request_timeout_ms at most, and returns false then. It must not hand a
///   reference to the caller's record to a thread that may use it after the return. Operations marked "must not wait"
///   are called by threads that hold locks of the application: they hand the work on and return.
/// - Callbacks. Observer and sink may be called from any thread, a media thread included, with locks held: they return
///   at once and do not call the driver back.
/// - Errors. False, or null; why goes to the logger. Nothing half-made is left behind. Nothing is thrown.
#pragma once

#include "kelvaro/jsr309/guarded_logger.h"
#include "kelvaro/jsr309/joinable.h"
#include "kelvaro/jsr309/media_config.h"
#include "kelvaro/jsr309/rtcp_stats_report.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kelvaro::jsr309 {

/// Hears of one endpoint's silences.
class RtpTimeoutSink {
 public:
  virtual ~RtpTimeoutSink() = default;
  /// Once per silence. had_media: RTP had been coming and stopped (the inactive timeout); else none ever came.
  virtual void OnRtpTimeout(bool had_media) = 0;
};

/// Hears of one server's loss and return. A server counts as reachable from MediaServer::IsAlive's first true on.
class MediaServerObserver {
 public:
  virtual ~MediaServerObserver() = default;
  /// Everything on the server is gone; what exists there stays gone. Reported again only after OnServerBack.
  virtual void OnServerLost() = 0;
  /// The server can take new sessions again.
  virtual void OnServerBack() = 0;
};

class ServerEndpoint {
 public:
  virtual ~ServerEndpoint() = default;

  /// Requests; they mean what the operations of the same name of NetworkConnection mean. The record that a getter
  /// fills in is a copy of the caller's: on false its content does not matter.
  virtual bool GetLocalOffer(MediaConfig& config) = 0;
  virtual bool GetLocalAnswer(MediaConfig& config) = 0;
  virtual bool SetRemoteOffer(const MediaConfig& config) = 0;
  virtual bool SetRemoteAnswer(const MediaConfig& config) = 0;
  virtual bool SetRemoteAddressDetection() = 0;
  virtual bool GetLocalImageConfig(MediaConfig& config) = 0;
  virtual bool GetRemoteImageConfig(MediaConfig& config) = 0;
  virtual bool GetRtcpStatsReport(std::vector<RtcpStatsReport>& reports) = 0;

  /// Requests. The other endpoint is of the same driver, never this one, and was in the same session when the library
  /// looked. The driver keeps the join: joining a joined pair changes its direction, joining with a third dissolves the
  /// former join of either, a failed join leaves the pair unjoined, Unjoin is false for what is not joined. Direction
  /// is seen from this endpoint. The pair may live on two servers; the join is then relayed between them.
  virtual bool Join(Direction direction, const std::shared_ptr<ServerEndpoint>& other) = 0;
  virtual bool Unjoin(const std::shared_ptr<ServerEndpoint>& other) = 0;

  /// Request. Ends the endpoint: join dissolved, ports free on return. The library calls it once, instead of Release.
  virtual bool Close() = 0;
  /// Must not wait. Ends the endpoint soon. The library calls it once, instead of Close.
  virtual void Release() = 0;
};

class ServerSession {
 public:
  virtual ~ServerSession() = default;
  /// Request. The sink may be gone at any time.
  virtual std::shared_ptr<ServerEndpoint> CreateEndpoint(std::weak_ptr<RtpTimeoutSink> sink) = 0;
  /// Must not wait. Moves an endpoint of another session, of this or another server of the driver, into this session;
  /// its joins with endpoints of the former session are dissolved. The object stays the same and keeps its server.
  virtual bool ImportEndpoint(const std::shared_ptr<ServerEndpoint>& endpoint) = 0;
  /// Must not wait. Ends the session. The library has released its endpoints before.
  virtual void Release() = 0;
};

class MediaServer {
 public:
  virtual ~MediaServer() = default;
  /// Must not wait and takes no lock under which the observer is called. Whether new sessions can be made now.
  virtual bool IsAlive() const = 0;
  /// Numeric addresses, the first being the one that local descriptions carry; fixed from Open on.
  virtual std::vector<std::string> Addresses() const = 0;
  /// How many sessions the server can hold; fixed from Open on, at most what the settings say.
  virtual std::size_t Capacity() const = 0;
  /// Request. Null when the server refuses or does not answer.
  virtual std::shared_ptr<ServerSession> CreateSession() = 0;
  /// Ends everything on the server and joins the server's threads. After the return neither observer nor sinks are
  /// called. Takes no longer than the time given; a server that does not answer by then is left to itself. Called
  /// once, on a server that came out of Open.
  virtual void Shutdown(std::chrono::milliseconds limit) = 0;
};

/// What the configuration says of one server. Checked: addresses are numeric, ports and counts in range.
struct MediaServerSettings {
  std::string mac;                     ///< upper case, ":" between the bytes
  std::vector<std::string> addresses;  ///< at least one
  std::string public_address;          ///< empty when there is none
  uint16_t rtp_port_min = 16384;       ///< both ends belong to the range
  uint16_t rtp_port_max = 32767;       ///< at least rtp_port_min + 1
  std::size_t capacity = 1000;         ///< sessions
  unsigned threads = 0;                ///< 0: the driver chooses
  unsigned request_timeout_ms = 2000;  ///< the longest that a request may wait
  std::vector<std::string> given;      ///< names of the elements that the file has for this server
  /// What is the driver's own: element names (nested ones joined by ".") and texts, in file order. A driver refuses
  /// what it does not know.
  std::vector<std::pair<std::string, std::string>> driver_settings;
};

/// Why Open refused: an element of the settings, its value and what is wrong with it. The library logs them with the
/// file's name. An empty element stands for the server as a whole.
struct SettingError {
  std::string element;
  std::string value;
  std::string reason;
};

class MediaServerDriver {
 public:
  virtual ~MediaServerDriver() = default;
  /// Opens a server; null, with error filled in and nothing left behind, when it cannot. A server that is configured
  /// but does not answer yet opens all the same, not alive. The observer outlives the server's Shutdown.
  virtual std::unique_ptr<MediaServer> Open(const MediaServerSettings& settings, MediaServerObserver& observer,
                                            const std::shared_ptr<GuardedLogger>& logger, SettingError& error) = 0;
  /// Called once, after the last Open. May wait for servers that are about to answer, for all of them together as long
  /// as one request may wait.
  virtual void AwaitServers() {}
  /// What Open would refuse in the settings themselves, all of it; opens nothing and asks nobody. Settings whose values
  /// were out of range carry their defaults.
  virtual std::vector<SettingError> Check(const MediaServerSettings& /*settings*/) { return {}; }
};

using MediaServerDriverMaker = std::function<std::unique_ptr<MediaServerDriver>()>;

/// Makes a driver known to every later MSControlFactory::Init of the process, from any thread. False when the name is
/// taken ("embedded" always is) or empty.
bool RegisterMediaServerDriver(const std::string& name, MediaServerDriverMaker make);
/// Takes a registration back; factories that run keep their drivers. False when there is none, and for "embedded".
bool UnregisterMediaServerDriver(const std::string& name);

}  // namespace kelvaro::jsr309
