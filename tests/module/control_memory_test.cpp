// A command line that cannot be copied. The linker sends every strdup of this program through here.

#include <atomic>

#include "module/commands_fixture.h"

namespace {

std::atomic<bool> out_of_memory{false};

}  // namespace

extern "C" {
char* __real_strdup(const char* text);
char* __wrap_strdup(const char* text) {
  return out_of_memory ? nullptr : __real_strdup(text);
}
}

namespace module_test {

class ControlMemory : public CommandFrame {};

TEST_F(ControlMemory, LineThatCannotBeCopiedIsAnErrorWithoutOutput) {
  CommandOutput output;
  for (switch_api_function_t function : {kvrms_control_function, kvrms_control_xml_function}) {
    out_of_memory = true;
    const switch_status_t status = function("service down all", nullptr, output.Stream());
    out_of_memory = false;
    EXPECT_EQ(status, SWITCH_STATUS_MEMERR);
  }
  EXPECT_EQ(output.Text(), "");
  EXPECT_EQ(media_server_is_available(), SWITCH_TRUE);
}

}  // namespace module_test
