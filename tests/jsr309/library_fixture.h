/// A factory over scripted media servers, for tests of the control library.
#pragma once

#include "kelvaro/jsr309/jsr309.h"
#include "support/jsr309_manual_clock.h"
#include "support/jsr309_recording_listeners.h"
#include "support/jsr309_recording_logger.h"
#include "support/scripted_media_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <memory>
#include <stdexcept>

namespace test_support {

class LibraryTest : public ::testing::Test {
 protected:
  using MediaConfig = kelvaro::jsr309::MediaConfig;
  using Operation = ScriptedOperation;

  /// Before anything else in a test.
  void Start(const ScriptedOptions& options = {}) {
    servers_storage_ = std::make_unique<ScriptedMediaServers>(options);
    factory_storage_ = std::make_unique<kelvaro::jsr309::MSControlFactory>(clock_);
    if (!factory_storage_->Init(servers().config_path().c_str(), &logger_)) {
      throw std::runtime_error("the factory does not start");
    }
  }

  void Start(size_t server_count, size_t capacity = 100) {
    ScriptedOptions options;
    options.servers = server_count;
    options.capacity = capacity;
    Start(options);
  }

  ScriptedMediaServers& servers() { return *servers_storage_; }
  kelvaro::jsr309::MSControlFactory& factory() { return *factory_storage_; }
  ManualClock& clock() { return *clock_; }
  RecordingLogger& logger() { return logger_; }
  void DestroyFactory() { factory_storage_.reset(); }

  /// Empty when the library gives none.
  kelvaro::jsr309::MediaSessionSharedPtr NewSession() {
    return kelvaro::jsr309::MediaSessionSharedPtr(factory().CreateMediaSession());
  }

  static kelvaro::jsr309::NetworkConnectionSharedPtr NewConnection(
      const kelvaro::jsr309::MediaSessionSharedPtr& session) {
    return kelvaro::jsr309::NetworkConnectionSharedPtr(session->CreateNetworkConnection(nullptr));
  }

  static kelvaro::jsr309::NetworkConnectionSharedPtr Import(
      const kelvaro::jsr309::MediaSessionSharedPtr& session,
      const kelvaro::jsr309::NetworkConnectionSharedPtr& connection) {
    return kelvaro::jsr309::NetworkConnectionSharedPtr(session->ImportNetworkConnection(connection));
  }

  /// The server, by number, on which the session that was made last lives.
  size_t LastPlace() { return servers().Calls(Operation::kCreateSession).back().server; }

  kelvaro::jsr309::JSR309Stats Stats() {
    kelvaro::jsr309::JSR309Stats stats;
    EXPECT_TRUE(factory().GetStats(stats));
    return stats;
  }

 private:
  std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
  RecordingLogger logger_;
  std::unique_ptr<ScriptedMediaServers> servers_storage_;
  std::unique_ptr<kelvaro::jsr309::MSControlFactory> factory_storage_;
};

}  // namespace test_support
