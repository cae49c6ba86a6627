#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include <switch.h>

#include "support/process_child.h"

namespace console_test {

/// A switch without signalling: the core, running on a configuration directory of the test's own, with the built-in
/// commands.
class ConsoleSwitch : public testing::Test {
 protected:
  ConsoleSwitch();
  ~ConsoleSwitch() override;

  void SetUp() override;
  void TearDown() override;

  /// autoload_configs/<name>.xml.
  void WriteConfiguration(const std::string& name, const std::string& text);
  void WriteEventSocketConfiguration(const std::map<std::string, std::string>& parameters);
  std::string ConfigurationPath(const std::string& name) const;

  /// What a command writes.
  static std::string Run(const std::string& command, const std::string& arguments = "");

  /// A leg that is up until it is hung up; its uuid.
  static std::string AddLeg(switch_call_direction_t direction = SWITCH_CALL_DIRECTION_INBOUND,
                            const std::string& name = "test/leg", const std::string& partner = "");
  /// The cause with which the last leg of the test that ended was hung up, once it has ended.
  static std::string CauseOfEndedLeg();
  static bool WaitForNoLegs();

  test_support::TemporaryDirectory directory_;
};

}  // namespace console_test
