/// The way into the control library: one object that knows all media servers.
///
/// An application wants sessions, not servers. The factory reads which servers there are, watches them, puts every new
/// session on the one with the most room and sums up how all of them are used.
///
/// Life: construct, Init, use, Stop, destroy. Init works once. The destructor stops. Sessions and connections may
/// outlive the factory; they then return false from everything.
///
/// Ownership: the caller's. Threads: all operations but construction and destruction may be called from any thread at
/// the same time. A listener may call everything; a Stop that a listener calls cannot wait for the event thread that it
/// runs on, the destructor, which a listener must not run, does that later.
///
/// Configuration file (XML, root element `jsr309`):
///
///     media                          not read here; the application lists its codecs below it
///     media_servers                  required
///       request_timeout_ms           how long a request waits for its server: 1 to 60000, default 2000
///       lost_events_per_second       how fast sessions are told of a lost server: 1 to 1000000, default 100
///       media_server                 one or more
///         driver                     what kind of server: "embedded" (default) or a registered name
///         mac                        required, unique: six bytes in hexadecimal with ":" or "-"
///         address                    one or more numeric IP addresses, unique; the first is advertised
///         public_address             numeric; where far ends reach the first address, behind a NAT
///         rtp_port_min, rtp_port_max 1024 to 65535, at least two ports; default 16384 to 32767
///         capacity                   sessions: 1 to 1000000, default 1000
///         threads                    1 to 256; default: the driver chooses
///         request_timeout_ms         this server's own
///         anything else              the driver's; one that it does not know is an error
///
/// A bad value makes Init fail with an ERROR that names the file, the element, the value and the reason.
#pragma once

#include "kelvaro/jsr309/clock.h"
#include "kelvaro/jsr309/jsr309_stats.h"
#include "kelvaro/jsr309/media_session.h"
#include "kelvaro/logger.h"

#include <boost/noncopyable.hpp>

#include <memory>

namespace kelvaro::jsr309 {

class MSControlFactory : private boost::noncopyable {
 public:
  MSControlFactory();
  /// With a clock of the caller's, for pacing of lost events and session durations.
  explicit MSControlFactory(std::shared_ptr<Clock> clock);
  ~MSControlFactory();

  /// Reads the file, opens every server in it and starts the event thread. The logger stays the caller's, may be null,
  /// and must live until Stop returns. On false nothing has been left behind, no thread and no use of the logger, and
  /// Init may be tried again.
  bool Init(const char* path, LoggingIdLogger* logger);

  /// Ends all sessions and endpoints, shuts the servers down and joins the threads: within the longest
  /// request_timeout_ms and one second, provided that listeners return. Stopping again does nothing.
  void Stop();

  /// A new session on the alive server in service with the lowest load below its capacity; the caller deletes it. Null
  /// when there is none, or when the servers asked refuse or do not answer within request_timeout_ms in all.
  MediaSession* CreateMediaSession();
  /// Whether there is a server on which CreateMediaSession would place a session.
  bool IsMediaServerAvailable() const;

  /// Puts the server with that IP address, any of its addresses, into or out of service. Out of service it keeps its
  /// sessions and gets no new ones. False when there is no such server.
  bool SetMediaServerStatus(const char* ip, bool in_service);

  /// Fills in the sum and every configured server, alive or not. False, and stats as they were, before a successful
  /// Init and after Stop.
  bool GetStats(JSR309Stats& stats) const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kelvaro::jsr309
