#include "cli/completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kvx_cli {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(CliCompletion, ReadsCandidatesAndWhatToType) {
  const Completion completion = parse_completion("show\nshutdown\nwrite=1:sh\n");
  EXPECT_THAT(completion.candidates, ElementsAre("show", "shutdown"));
  EXPECT_EQ(completion.remove, 1u);
  EXPECT_EQ(completion.insert, "sh");
}

TEST(CliCompletion, ReadsCandidatesAlone) {
  const Completion completion = parse_completion("calls\nchannels\ncodecs\n");
  EXPECT_THAT(completion.candidates, ElementsAre("calls", "channels", "codecs"));
  EXPECT_EQ(completion.insert, "");
}

TEST(CliCompletion, KeepsColonsAndBlanksOfWhatToType) {
  const Completion completion = parse_completion("a:b\nwrite=0:a:b \n");
  EXPECT_EQ(completion.insert, "a:b ");
}

TEST(CliCompletion, HasNothingWhenTheSwitchHasNothing) {
  for (const char* output : {"", "-ERR no reply\n", "-ERR console_complete Command not found!\n"}) {
    const Completion completion = parse_completion(output);
    EXPECT_THAT(completion.candidates, IsEmpty());
    EXPECT_EQ(completion.insert, "");
  }
}

}  // namespace
}  // namespace kvx_cli
