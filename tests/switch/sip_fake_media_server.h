#pragma once

#include <switch.h>
#include <switch_media_server.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kvx_switch {

struct Module;

/// A media server module inside the test: registers PCMU, PCMA and G729 and writes down what it is asked. Legs are
/// named after their direction, "A" calls and "B" is called. One at a time, with the core running.
class FakeMediaServer {
 public:
  /// What a leg was told with get_media or set_media.
  struct Arguments {
    std::string codecs;  ///< get_media: "PCMU/20 PCMA/20"; set_media: the one codec
    int payload_type = -1;
    int event_type = 0;
    std::string fmtp;
    std::string address;  ///< set_media: "127.0.0.1:40000/40001", RTCP as given
    std::string session_name;
    int state = -1;
    int hop_limit = -1;
    uint32_t rtp_timeout = 0;
    bool has_answer_codec = false;
    bool pass_through = false;
    int direction = -1;  ///< bridge
    /// The rest of what the profile says, in the order of the callback's arguments; get_media: conversion of inband
    /// DTMF, silence suppression, type of service, traffic class, Annex B, comfort noise, SID, port renewal, asymmetric
    /// payloads; set_media: silence suppression, address detection, comfort noise, SID.
    std::vector<int> settings;
    std::string crypto = "-";  ///< "80 <key, base64> mandatory", "clear", "clear mandatory"; "-" when nothing was said
  };

  FakeMediaServer();
  ~FakeMediaServer();
  FakeMediaServer(const FakeMediaServer&) = delete;
  FakeMediaServer& operator=(const FakeMediaServer&) = delete;

  /// "A create", "B get_media", ... in order.
  std::vector<std::string> Calls() const;
  size_t Count(const std::string& call) const;
  /// Until there have been `count` such calls; false when they do not come.
  bool WaitFor(const std::string& call, size_t count);
  /// Of the last such call.
  Arguments Of(const std::string& call) const;
  /// Something that must not happen, such as a call on a foreign thread; "" when all is well.
  std::string Offence() const;

  /// That call fails from now on.
  void Refuse(const std::string& call);
  /// Runs `action` in that call, on the leg's thread.
  void OnCall(const std::string& call, std::function<void()> action);
  void SetAvailable(bool available);
  /// What get_media writes as address: "127.0.0.1" unless set. For that leg, or for both.
  void SetAddress(const std::string& address, const std::string& leg = "");

 private:
  struct Leg {
    std::thread::id thread;
    bool destroyed = false;
  };

  static switch_status_t Create(switch_media_connection_t* connection, switch_core_session_t* session);
  static switch_status_t Destroy(switch_media_connection_t* connection);
  static switch_status_t GetMedia(switch_media_connection_t*, const switch_codec_implementation_t**, int,
                                  switch_codec_t*, switch_bool_t, int, switch_payload_t, int, char*, int,
                                  switch_port_t*, switch_core_crypto_setting*, switch_bool_t,
                                  switch_sdp_negotiation_state_t, uint8_t, uint8_t, uint8_t, int, switch_bool_t,
                                  switch_bool_t, uint32_t, switch_bool_t, int);
  static switch_status_t Bridge(switch_media_connection_t* connection, RTPDirection direction);
  static switch_status_t Unbridge(switch_media_connection_t* connection);
  static switch_status_t SetMedia(switch_media_connection_t*, const char*, switch_port_t, switch_port_t, const char*,
                                  switch_codec_t*, int, switch_payload_t, int, switch_core_crypto_setting*,
                                  switch_bool_t, switch_sdp_negotiation_state_t, switch_bool_t, switch_bool_t,
                                  switch_bool_t);
  static switch_bool_t IsAvailable();

  void Register();
  void AddCodec(const char* name, switch_payload_t type, const char* fmtp);
  switch_status_t Record(switch_media_connection_t* connection, const std::string& what, const Arguments& arguments);

  std::shared_ptr<Module> module_;

  mutable std::mutex mutex_;
  std::condition_variable recorded_;
  std::vector<std::string> calls_;                        // guarded by mutex_
  std::map<std::string, Arguments> arguments_;            // guarded by mutex_
  std::map<switch_media_connection_t*, Leg> legs_;        // guarded by mutex_
  std::string offence_;                                   // guarded by mutex_
  std::map<std::string, std::function<void()>> actions_;  // guarded by mutex_
  std::vector<std::string> refused_;                      // guarded by mutex_
  bool available_ = true;                                 // guarded by mutex_
  std::string address_ = "127.0.0.1";                     // guarded by mutex_
  std::map<std::string, std::string> leg_addresses_;      // guarded by mutex_; those that differ
  switch_port_t next_port_ = 20000;                       // guarded by mutex_
};

}  // namespace kvx_switch
