#pragma once

#include <vector>

#include "kelvaro/jsr309/network_connection.h"

namespace module_calls {

/// A connection that succeeds in everything and writes down what it was asked, among the calls on the descriptions.
class RecordingConnection : public kelvaro::jsr309::NetworkConnection {
 public:
  bool GetLocalOffer(kelvaro::jsr309::MediaConfig& config) override {
    record("GetLocalOffer");
    config.Fill(local);
    return true;
  }
  bool GetLocalAnswer(kelvaro::jsr309::MediaConfig& config) override {
    record("GetLocalAnswer");
    config.Fill(local);
    return true;
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
  bool Join(kelvaro::jsr309::Direction, const kelvaro::jsr309::JoinableWeakPtr&) override { return Asked("Join"); }
  bool Unjoin(const kelvaro::jsr309::JoinableWeakPtr&) override { return Asked("Unjoin"); }
  bool AddListener(const kelvaro::jsr309::RtpTimeoutListenerSharedPtr&) override { return Asked("AddListener"); }
  bool RemoveListener() override { return Asked("RemoveListener"); }
  void Close() override { record("Close"); }

  kelvaro::jsr309::MediaConfig::Filled local, remote;

 private:
  static bool Asked(const char* what) {
    record(what);
    return true;
  }
};

}  // namespace module_calls
