// A phone that wants its media elsewhere in the middle of a call: UPDATE with a description (RFC 3311), or a further
// INVITE.

#include <gtest/gtest.h>

#include "ordered_call.h"

namespace end_to_end {
namespace {

using test_support::RtpPhone;
using test_support::SippAgent;

class MovedMedia : public OnEachDriver<OrderedCall> {
 protected:
  /// The phone moves to another port, then to another address too: it is heard and hears there, and nowhere else.
  void MovesTwice(SippAgent& phone, const Party& before, const Party& other, const std::string& method) {
    RtpPhone next_port;
    RtpPhone next_address = RtpPhone::At("127.0.0.3");
    Party now = before;
    for (const auto& [media, address] : {std::pair{&next_port, "127.0.0.1"}, std::pair{&next_address, "127.0.0.3"}}) {
      SCOPED_TRACE(address);
      const auto answer = Order(phone, {method, {address, media->Port()}});
      EXPECT_EQ(answer.Status(), 200);
      const auto far = test_support::parse_sdp_audio(answer.body);
      ASSERT_TRUE(far) << answer.body;
      EXPECT_EQ(far->address + ":" + std::to_string(far->port),
                before.far.address + ":" + std::to_string(before.far.port));
      const Party former = now;
      now = {media, *far};
      ExpectNothingReaches(former, [&] { ExpectTheyTalk(now, other, std::chrono::milliseconds(800)); });
      ExpectUnheard(former, other);  // who does not send from where he said is a stranger
    }
  }
};

TEST_P(MovedMedia, FollowsTheCallersUpdate) {
  StartCall();
  MovesTwice(CallerAgent(), Caller(), Callee(), "UPDATE");
  HangUp();
  ExpectEndedWell();
}

TEST_P(MovedMedia, FollowsTheCalleesFurtherInvite) {
  StartCall();
  MovesTwice(CalleeAgent(), Callee(), Caller(), "INVITE");
  HangUp();
  ExpectEndedWell();
}

INSTANTIATE_TEST_SUITE_P(Over, MovedMedia, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
