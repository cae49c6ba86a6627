#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/process_child.h"
#include "support/udp_socket.h"

namespace test_support {

struct BaresipSettings {
  std::string name;              // of its files, unique in the directory
  std::string user;              // user part of its address: what a call to it has to name
  std::string media_encryption;  // "srtp" (when the far end can), "srtp-mand"; empty: in the clear
  std::string codecs = "PCMU";   // as baresip names them, separated by commas
  int tone = 440;                // Hz, what it plays to the far end; see write_tone
  bool answers = true;           // at once; otherwise it rings
  std::filesystem::path directory;
};

/// A real softphone: baresip with a configuration directory of its own, on loopback ports of its own, without sound
/// hardware. It plays a tone, records what it hears, and is controlled over TCP; it says what happens as events.
/// Not for use from two threads.
class BaresipAgent {
 public:
  /// Starts it and waits until it takes commands; throws std::runtime_error with its own words when it does not come
  /// up. Ports that were taken in the meantime are replaced by others.
  explicit BaresipAgent(const BaresipSettings& settings);
  ~BaresipAgent();
  BaresipAgent(const BaresipAgent&) = delete;
  BaresipAgent& operator=(const BaresipAgent&) = delete;

  UdpAddress Address() const { return {"127.0.0.1", sip_port_}; }

  void Dial(const UdpAddress& to, const std::string& number);
  void Hold() { Command("hold"); }
  void Resume() { Command("resume"); }
  void HangUp() { Command("hangup"); }

  /// Until it has told `count` events of that type ("CALL_ESTABLISHED"), those before this call included.
  bool WaitForEvent(const std::string& type, std::size_t count, std::chrono::milliseconds limit);

  /// What it says of the media of its last call when that is over. Throws std::runtime_error when it has said nothing.
  struct MediaAccount {
    std::size_t sent = 0;      // RTP packets
    std::size_t received = 0;  // RTP packets
    std::size_t errors = 0;    // in either direction
    long lost = -1;            // in either direction, as the reports told; -1 when none came
  };
  MediaAccount Media() const;
  /// The audio of its calls so far, decoded, in order; complete once the call is over.
  std::vector<std::int16_t> Heard() const;

  /// Asks it to end, and kills it only when it does not. The destructor does the same.
  void Stop();
  /// For failure messages, and to look for its own words: everything it wrote, SIP messages included.
  std::string Log() const { return child_->Output(); }

 private:
  void WriteConfiguration() const;
  bool Start();
  bool Connect();
  void Command(const std::string& command, const std::string& parameters = "");
  void Listen();

  BaresipSettings settings_;
  std::filesystem::path home_;
  std::uint16_t sip_port_ = 0;
  std::uint16_t control_port_ = 0;
  std::unique_ptr<ChildProcess> child_;
  int control_ = -1;
  std::string received_;             // bytes that no event has used yet
  std::vector<std::string> events_;  // their types, in the order of arrival
};

}  // namespace test_support
