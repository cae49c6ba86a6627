#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/process_child.h"
#include "support/sipp_messages.h"
#include "support/udp_socket.h"

namespace test_support {

/// What one call of a phone says about itself: a line of the file that sipp takes its fields from. The scenarios use
/// them as [field0] to [field10].
struct SippCallFields {
  std::string number;                       // [field0] the phone's own number, user part of its From
  std::uint16_t media_port = 0;             // [field1] where it wants RTP
  std::string payload_type = "0";           // [field2] of its audio codec
  std::string codec = "PCMU/8000";          // [field3] the codec as in rtpmap
  std::string event_payload_type = "101";   // [field4] of telephone-event
  std::string attribute = "ptime:20";       // [field5] one attribute more of the audio stream
  std::string transport = "RTP/AVP";        // [field6] of the audio stream
  std::string other_call;                   // [field7] Call-ID of the call that this one is about (Replaces), and its
  std::string other_to_tag;                 // [field8] tag at the switch
  std::string other_from_tag;               // [field9] tag at the phone
  std::string header = "User-Agent: sipp";  // [field10] one header more, in scenarios that have room for one
};

/// What a phone of the scenarios "..._on_order" is told to do in the middle of its call.
struct SippOrder {
  std::string what;  // "INVITE", "UPDATE", "REFRESH" (an UPDATE without a description), "BYE", "ANSWER"
  UdpAddress media;  // where it wants RTP from now on
  std::string direction = "sendrecv";
  std::string header = "User-Agent: sipp";  // one header more
};

/// What a phone speaks over, for signalling and media alike.
struct SippNetwork {
  bool tcp = false;  // signalling; media is UDP
  bool ipv6 = false;

  std::string Loopback() const { return ipv6 ? "::1" : "127.0.0.1"; }
};

struct SippSettings {
  std::string scenario;          // file of tests/end_to_end/sipp without its extension
  std::string dialled = "2000";  // the number called; [service] of the scenario
  std::uint16_t port = 0;        // where it waits; 0: any free port
  SippNetwork network;
  std::optional<UdpAddress> remote;  // whom to call; empty for a phone that is called
  std::vector<SippCallFields> calls;
  std::chrono::milliseconds hold{1000};  // length of the scenario's pauses without one of their own
  int calls_per_second = 10;
  std::size_t at_once = 0;          // calls, at most; 0: all of them
  std::chrono::seconds limit{60};   // sipp ends itself, in error, when it is not done by then
  std::filesystem::path directory;  // of its files; must exist
  std::string name;                 // of its files, unique in the directory
};

/// A real SIP phone: sipp (of Debian's sip-tester) with a scenario of ours, on a loopback port of its own. What it
/// says and hears is read from its message log, as it goes.
class SippAgent {
 public:
  /// Starts it and waits until its port is bound; throws std::runtime_error with sipp's own words when it does not
  /// come up. A port that was taken in the meantime is replaced by another one.
  explicit SippAgent(const SippSettings& settings);

  UdpAddress Address() const { return {settings_.network.Loopback(), port_}; }
  std::vector<SipDialogue> Dialogues() const;
  /// The dialogue of the call with that number in its From header, as far as it has come.
  std::optional<SipDialogue> Dialogue(const std::string& from_user) const;

  /// Orders the phone to do something in that call, under that number of its CSeq. Over UDP alone; the phone must be up
  /// to its orders, which its messages tell.
  void Order(const std::string& call_id, const SippOrder& order, int cseq);

  /// The exit code when all calls went as the scenario says (0) or did not; empty when it still runs.
  std::optional<ChildExit> WaitForExit(std::chrono::milliseconds limit);
  bool Running() { return child_->Running(); }
  /// Ends it in the orderly way: no new calls, the running ones are finished.
  void AskToFinish();
  /// For failure messages: its exit, its error file, the flow of each call.
  std::string Account();

 private:
  void Start();
  bool PortIsBound();
  std::filesystem::path File(const std::string& suffix) const;
  std::vector<std::string> CommandLine() const;

  SippSettings settings_;
  std::uint16_t port_ = 0;
  std::unique_ptr<ChildProcess> child_;
};

}  // namespace test_support
