/// An ng server on loopback that answers each request with what a test says: nothing, something else, twice, or later.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "rtpengine/ng_frame.h"
#include "support/udp_socket.h"

namespace test_support {

/// Threads: all operations from any thread. The script runs on the server's own.
class NgServer {
 public:
  using Frame = kelvaro::jsr309::rtpengine::NgFrame;
  using Dictionary = kelvaro::jsr309::rtpengine::Dictionary;
  /// The datagrams that answer the request; the number is 1 for the first that came.
  using Answers = std::vector<std::string>;
  using Script = std::function<Answers(const Frame& request, int number)>;

  /// Port 0 lets the system choose.
  explicit NgServer(Script script, std::uint16_t port = 0, bool ipv6 = false);
  /// Answers no more.
  ~NgServer();
  NgServer(const NgServer&) = delete;
  NgServer& operator=(const NgServer&) = delete;

  std::uint16_t Port() const { return socket_.Port(); }
  /// What came so far, repetitions included, in the order in which it came.
  std::vector<Frame> Requests() const;
  /// Waits until so many came; whether they did.
  bool Await(std::size_t requests, std::chrono::milliseconds limit = std::chrono::seconds(20)) const;
  /// Sends a datagram to whoever asked last.
  void Send(const std::string& datagram);

  /// One datagram: a reply to that request.
  static Answers Reply(const Frame& request, const Dictionary& message);
  static Answers Ok(const Frame& request) { return Reply(request, {{"result", "ok"}}); }

 private:
  void Run();
  void Take(const UdpDatagram& datagram);

  const Script script_;
  std::atomic<bool> stopping_{false};
  mutable std::mutex mutex_;
  UdpSocket socket_;             // guarded by mutex_, its descriptor and port aside
  UdpAddress asker_;             // guarded by mutex_
  std::vector<Frame> requests_;  // guarded by mutex_
  std::thread thread_;
};

}  // namespace test_support
