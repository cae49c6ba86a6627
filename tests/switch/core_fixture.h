#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include <switch.h>

#include "sip_temporary_directory.h"
#include "support/log_capture.h"

namespace core_test {

/// The core alone, on a configuration directory of the test's own and with the test modules; started by Start, so that
/// a test may write files before.
class CoreSwitch : public testing::Test {
 protected:
  CoreSwitch();
  ~CoreSwitch() override;

  void Start();
  void Stop();

  std::string Write(const std::string& name, const std::string& text) { return directory_.Write(name, text); }
  /// Below the configuration directory.
  std::string PathOf(const std::string& name) const { return directory_.Path() + "/" + name; }

  /// What a command writes; `status` receives its result.
  static std::string Execute(const std::string& command, const std::string& argument = "",
                             switch_status_t* status = nullptr);

  test_support::LogCapture& log() { return *log_; }

 private:
  kvx_switch::TemporaryDirectory directory_;
  std::unique_ptr<test_support::LogCapture> log_;
  bool started_ = false;
};

/// The same, running from the start.
class RunningCore : public CoreSwitch {
 protected:
  void SetUp() override { Start(); }
};

}  // namespace core_test
