#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "mod_kelvaro_media_server.h"
#include "module/module_fixture.h"
#include "support/scripted_media_server.h"

namespace module_test {

/// The statistics filter that the command tests show: all seven items, with view names that tell the kinds apart.
std::string usual_statsconfig();

/// The module's configuration, a control-library configuration with scripted media servers, and the module when it is
/// loaded; nothing is written or loaded until a test says so.
class ModuleFrame : public testing::Test {
 protected:
  explicit ModuleFrame(const test_support::ScriptedOptions& options = {}) : servers_(options) {}

  /// Writes kelvaro_media_server.conf.
  void Configure(const Params& params);
  /// The usual one: control library and statistics filter.
  void Configure();
  void Load() { module_ = std::make_unique<LoadedModule>(); }
  void ConfigureAndLoad();

  /// A media session on the least loaded server with these legs in it, in both tables, as the callbacks leave it.
  static boost::uuids::uuid AddCall(const std::vector<const Leg*>& legs);

  test_support::ScriptedMediaServers servers_;
  std::unique_ptr<ConfigurationFile> configuration_;
  std::unique_ptr<ConfigurationFile> statsconfig_;
  test_support::LogCapture log_;
  std::unique_ptr<LoadedModule> module_;
};

/// The table's entries of a kind, in order.
std::vector<const switch_api_interface_t*> api_interfaces(const switch_loadable_module_interface_t* module);

}  // namespace module_test
