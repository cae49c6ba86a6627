#pragma once

#include <string>
#include <vector>

#include "kelvaro/jsr309/media_session.h"

namespace module_calls {

/// A connection that succeeds in everything, but for what it is told to refuse, and writes down what it was asked,
/// among the calls on the descriptions.
class RecordingConnection : public kelvaro::jsr309::NetworkConnection {
 public:
  explicit RecordingConnection(const std::string& name) : name_(name) {}

  bool GetLocalOffer(kelvaro::jsr309::MediaConfig& config) override {
    config.Fill(local);
    return Asked("GetLocalOffer");
  }
  bool GetLocalAnswer(kelvaro::jsr309::MediaConfig& config) override {
    config.Fill(local);
    return Asked("GetLocalAnswer");
  }
  bool SetRemoteOffer(const kelvaro::jsr309::MediaConfig&) override { return Asked("SetRemoteOffer"); }
  bool SetRemoteAnswer(const kelvaro::jsr309::MediaConfig&) override { return Asked("SetRemoteAnswer"); }
  bool SetRemoteAddressDetection() override { return Asked("SetRemoteAddressDetection"); }
  bool GetLocalImageConfig(kelvaro::jsr309::MediaConfig& config) override {
    config.Fill(local);
    return Asked("GetLocalImageConfig");
  }
  bool GetRemoteImageConfig(kelvaro::jsr309::MediaConfig& config) override {
    config.Fill(remote);
    return Asked("GetRemoteImageConfig");
  }
  bool GetRtcpStatsReport(std::vector<kelvaro::jsr309::RtcpStatsReport>&) override {
    return Asked("GetRtcpStatsReport");
  }
  bool Join(kelvaro::jsr309::Direction direction, const kelvaro::jsr309::JoinableWeakPtr& other) override {
    return Asked("Join", static_cast<int>(direction), NameOf(other));
  }
  bool Unjoin(const kelvaro::jsr309::JoinableWeakPtr& other) override { return Asked("Unjoin", NameOf(other)); }
  bool AddListener(const kelvaro::jsr309::RtpTimeoutListenerSharedPtr&) override { return Asked("AddListener", name_); }
  bool RemoveListener() override { return Asked("RemoveListener", name_); }
  void Close() override { Asked("Close", name_); }

  const std::string& Name() const { return name_; }

  kelvaro::jsr309::MediaConfig::Filled local, remote;
  std::string refuses;

 private:
  template <typename... Arguments>
  bool Asked(const char* what, const Arguments&... arguments) {
    record(what, arguments...);
    return refuses != what;
  }
  static std::string NameOf(const kelvaro::jsr309::JoinableWeakPtr& other) {
    const auto connection = boost::dynamic_pointer_cast<RecordingConnection>(other.lock());
    return connection ? connection->Name() : "nobody";
  }

  const std::string name_;
};

/// A media session that does likewise. The handle that an import gives is another than the connection's own.
class RecordingSession : public kelvaro::jsr309::MediaSession {
 public:
  kelvaro::jsr309::NetworkConnection* CreateNetworkConnection(const char* log_id) override {
    record("CreateNetworkConnection", text_of(log_id));
    return refuses == "CreateNetworkConnection" ? nullptr : new RecordingConnection("new");
  }
  kelvaro::jsr309::NetworkConnection* ImportNetworkConnection(
      kelvaro::jsr309::NetworkConnectionSharedPtr connection) override {
    const std::string name = boost::dynamic_pointer_cast<RecordingConnection>(connection)->Name();
    record("ImportNetworkConnection", name);
    return refuses == "ImportNetworkConnection" ? nullptr : new RecordingConnection(name + " imported");
  }
  bool AddListener(const kelvaro::jsr309::MediaServerLostListenerSharedPtr&) override {
    record("AddListener", "session");
    return true;
  }
  bool RemoveListener(const kelvaro::jsr309::MediaServerLostListenerSharedPtr&) override {
    record("RemoveListener", "session");
    return true;
  }

  std::string refuses;
};

}  // namespace module_calls
