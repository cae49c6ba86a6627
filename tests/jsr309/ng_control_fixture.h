/// A control channel towards a scripted ng server, or towards nobody.
#pragma once

#include "kelvaro/jsr309/guarded_logger.h"
#include "rtpengine/ng_control.h"
#include "support/jsr309_recording_logger.h"
#include "support/ng_server.h"
#include "support/process_child.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace test_support {

constexpr std::chrono::seconds kLongEnough{20};

class NgControlTest : public testing::Test {
 protected:
  using Dictionary = kelvaro::jsr309::rtpengine::Dictionary;
  using NgControl = kelvaro::jsr309::rtpengine::NgControl;
  using NgControlSettings = kelvaro::jsr309::rtpengine::NgControlSettings;

  ~NgControlTest() override {
    if (control_) control_->Stop();
  }

  void Serve(NgServer::Script script) { server_ = std::make_unique<NgServer>(std::move(script)); }

  NgControl& Control(kelvaro::jsr309::rtpengine::NgListener* listener = nullptr) {
    if (!control_) control_ = Open(server_->Port(), "127.0.0.1", listener);
    return *control_;
  }

  std::unique_ptr<NgControl> Open(std::uint16_t port, const std::string& address = "127.0.0.1",
                                  kelvaro::jsr309::rtpengine::NgListener* listener = nullptr) {
    auto control = std::make_unique<NgControl>(NgControlSettings{address, port, "02:00:00:00:00:01"}, guarded_);
    std::string error;
    EXPECT_TRUE(control->Start(listener, error)) << error;
    return control;
  }

  /// The text under that key of the reply, or the error.
  std::string Ask(const Dictionary& request, const std::string& key = "result",
                  std::chrono::milliseconds limit = kLongEnough) {
    std::string error;
    const auto reply = Control().Ask(request, limit, error);
    return reply ? kelvaro::jsr309::rtpengine::TextOf(*reply, key) : error;
  }

  /// "rtpengine 127.0.0.1:4711 (02:00:00:00:00:01)"
  std::string Name() { return Control().Name(); }

  RecordingLogger logger_;
  const std::shared_ptr<kelvaro::jsr309::GuardedLogger> guarded_ =
      std::make_shared<kelvaro::jsr309::GuardedLogger>(&logger_);
  std::unique_ptr<NgServer> server_;
  std::unique_ptr<NgControl> control_;
};

}  // namespace test_support
