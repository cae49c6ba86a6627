/// An RTP endpoint as the library keeps it; connections are handles on it.
#pragma once

#include "kelvaro/jsr309/driver.h"
#include "kelvaro/jsr309/network_connection.h"
#include "library.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kelvaro::jsr309 {

class Session;

/// Threads: all operations from any thread. Life: from CreateEndpoint until Close, the last handle's end or the
/// session's. The session holds it until then, and it holds its session; the end breaks the ring.
class Endpoint : public RtpTimeoutSink, public std::enable_shared_from_this<Endpoint> {
 public:
  Endpoint(std::shared_ptr<Library> library, Server& server, uint64_t server_epoch, const char* log_id);

  using ConfigRequest = bool (ServerEndpoint::*)(MediaConfig&);
  using ConstConfigRequest = bool (ServerEndpoint::*)(const MediaConfig&);

  /// Requests to the server; false when the endpoint has ended or is lost, or the server says so. what is for the log.
  bool Fill(const char* what, ConfigRequest request, MediaConfig& config);
  bool Apply(const char* what, ConstConfigRequest request, const MediaConfig& config);
  bool DetectRemoteAddress();
  bool GetReports(std::vector<RtcpStatsReport>& reports);
  bool Join(Direction direction, const std::shared_ptr<Endpoint>& other);
  bool Unjoin(const std::shared_ptr<Endpoint>& other);

  bool AddListener(const RtpTimeoutListenerSharedPtr& listener_in);
  bool RemoveListener();
  void OnRtpTimeout(bool had_media) override;

  /// Ends the endpoint, waiting for the server. Closing again does nothing.
  void Close() { End(true); }
  /// Ends the endpoint without waiting.
  void Abandon() { End(false); }
  /// One handle more; false when the endpoint has ended.
  bool AddHandle();
  /// One handle less; the last one ends the endpoint without waiting. An endpoint enters its session with one handle.
  void DropHandle();

  /// Whether its server has been lost since it was made.
  bool IsLost() const { return server.epoch != server_epoch; }

  const std::shared_ptr<Library> library;
  Server& server;
  const uint64_t server_epoch;
  const uint32_t number;
  const std::string log_id;
  std::shared_ptr<ServerEndpoint> peer;  ///< set before the endpoint enters its session, then constant

  /// Whether `session` is set; written with it under Library::mutex_. Every request asks, and asking takes no lock.
  std::atomic<bool> open{false};
  /// The last one to go cannot meet one that is added: who adds one holds another.
  std::atomic<unsigned> handles{0};

  // All guarded by Library::mutex_.
  std::shared_ptr<Session> session;  ///< null once the endpoint has ended
  RtpTimeoutListenerSharedPtr listener;
  bool importing = false;  ///< a thread is moving it into another session

 private:
  bool Ask(const char* what, const std::function<bool(ServerEndpoint&)>& request);
  bool AskPair(const char* what, const std::shared_ptr<Endpoint>& other, const std::function<bool()>& request);
  bool Usable() const { return open && !IsLost(); }
  void End(bool wait);
  void DeliverTimeout(bool had_media);
  void LogRefusal(const char* what);
};

}  // namespace kelvaro::jsr309
