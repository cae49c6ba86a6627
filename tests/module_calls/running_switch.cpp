#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "mod_kelvaro_media_server.h"
#include "support/process_child.h"

kvx_media_server::ModGlobal* mod_globals = nullptr;

namespace module_calls {
namespace {

/// The switch's core, for the whole program; no configuration is needed.
class RunningSwitch : public testing::Environment {
 public:
  void SetUp() override {
    SWITCH_GLOBAL_dirs.conf_dir = strdup(directory_.Path().c_str());
    SWITCH_GLOBAL_dirs.log_dir = strdup(directory_.Path().c_str());
    SWITCH_GLOBAL_dirs.mod_dir = strdup(directory_.Path().c_str());
    const char* error = "unknown";
    if (switch_core_init(SCF_NONE, SWITCH_FALSE, &error) != SWITCH_STATUS_SUCCESS) {
      throw std::runtime_error(std::string("switch_core_init: ") + error);
    }
    mod_globals = kvx_media_server::ModGlobal::Instance(false);
  }
  void TearDown() override {
    kvx_media_server::ModGlobal::Destroy();
    switch_core_destroy();
  }

 private:
  test_support::TemporaryDirectory directory_;
};

const testing::Environment* const registered = testing::AddGlobalTestEnvironment(new RunningSwitch);

}  // namespace
}  // namespace module_calls
