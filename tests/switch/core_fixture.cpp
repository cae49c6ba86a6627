#include "core_fixture.h"

#include "build_paths.h"

#include <cstdlib>
#include <cstring>

#include "core/log.h"

namespace core_test {

CoreSwitch::CoreSwitch() = default;

CoreSwitch::~CoreSwitch() {
  Stop();
}

void CoreSwitch::Start() {
  SWITCH_GLOBAL_dirs.conf_dir = strdup(directory_.Path().c_str());
  SWITCH_GLOBAL_dirs.mod_dir = strdup(KVX_BUILD_DIR "/tests/switch/mod");
  // The log runs and is listened to before the start, so that what the start logs is there to be asked for.
  kvx_switch::StartLog();
  log_ = std::make_unique<test_support::LogCapture>();
  const char* error = nullptr;
  ASSERT_EQ(switch_core_init(SCF_NONE, SWITCH_FALSE, &error), SWITCH_STATUS_SUCCESS) << error;
  started_ = true;
}

void CoreSwitch::Stop() {
  if (!started_) return;
  started_ = false;
  log_.reset();
  EXPECT_EQ(switch_core_destroy(), SWITCH_STATUS_SUCCESS);
}

std::string CoreSwitch::Execute(const std::string& command, const std::string& argument, switch_status_t* status) {
  switch_stream_handle_t stream;
  SWITCH_STANDARD_STREAM(stream);
  const switch_status_t result =
      switch_api_execute(command.c_str(), argument.empty() ? nullptr : argument.c_str(), nullptr, &stream);
  if (status) *status = result;
  std::string text = static_cast<const char*>(stream.data);
  free(stream.data);
  return text;
}

}  // namespace core_test
