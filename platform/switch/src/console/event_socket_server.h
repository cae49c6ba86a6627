#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "console/background_jobs.h"
#include "console/event_outbox.h"
#include "console/event_socket_connection.h"
#include "console/event_socket_dialogue.h"
#include "console/file_descriptor.h"
#include "console/wake_event.h"

namespace kvx_switch {

struct EventSocketSettings {
  std::string source;                   ///< the file that the settings came from, for messages
  std::string listen_ip = "127.0.0.1";  ///< an IP address, or "localhost"
  uint16_t listen_port = 8021;          ///< 0: any free port
  std::string password;
  size_t max_connections = 64;  ///< clients beyond are turned away
  EventSocketPatience patience{};
  EventOutbox::Limits outbox{};  ///< of each client
};

/// Lets programs on this machine, or on others if its owner says so, command the switch: a TCP server for the event
/// socket's protocol, one thread for arrivals and one for each client.
///
/// A password that stands in every sample configuration is accepted on loopback addresses only.
class EventSocketServer {
 public:
  EventSocketServer(EventSocketSettings settings, ApiRunner run_api);
  ~EventSocketServer();
  EventSocketServer(const EventSocketServer&) = delete;
  EventSocketServer& operator=(const EventSocketServer&) = delete;

  /// Listens and begins to serve, or says in `error` what keeps it from that, with file, address and port.
  bool Start(std::string& error);
  /// Says goodbye to every client, waits for the commands and jobs that run, joins all threads. Not to be called by a
  /// command. What has stopped does not start again.
  void Stop();
  /// Where it listens, "127.0.0.1:8021" or "[::1]:8021", with the port that was really taken; empty when it does not.
  /// For the thread that starts and stops.
  std::string address() const;
  /// Clients that are being served, or have just gone.
  size_t connections() const;

 private:
  struct Client;

  bool Listen(std::string& error);
  void AcceptClients();
  void AcceptOne();
  void Serve(FileDescriptor socket, const std::string& peer);
  void ServeClient(Client& client);
  void ReapClients();

  const EventSocketSettings settings_;
  const ApiRunner run_api_;
  BackgroundJobs jobs_;
  WakeEvent stop_;
  WakeEvent client_gone_;
  FileDescriptor listener_;
  std::chrono::steady_clock::time_point next_complaint_{};  // used on the accepting thread only
  std::string address_;
  std::thread acceptor_;
  mutable std::mutex mutex_;
  std::list<std::unique_ptr<Client>> clients_;  // guarded by mutex_
};

}  // namespace kvx_switch
