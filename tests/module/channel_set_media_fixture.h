#pragma once

#include <vector>

#include "module/media_callbacks_fixture.h"

namespace module_test {

class ChannelSetMedia : public MediaCallbacks {
 protected:
  ChannelSetMedia() {
    leg_.Create();
    log_.Clear();
    servers_.ForgetCalls();
  }

  kelvaro::jsr309::MediaConfig Offer(const RemoteMedia& media = {}) {
    EXPECT_EQ(leg_.SetMedia(media), SWITCH_STATUS_SUCCESS);
    return LastConfig(test_support::ScriptedOperation::kSetRemoteOffer);
  }
  kelvaro::jsr309::MediaConfig Answer(RemoteMedia media = {}) {
    media.state = SWITCH_SDP_ANSWER_RECEIVED;
    EXPECT_EQ(leg_.SetMedia(media), SWITCH_STATUS_SUCCESS);
    return LastConfig(test_support::ScriptedOperation::kSetRemoteAnswer);
  }
  kelvaro::jsr309::MediaConfig OfferWith(switch_codec_t codec) {
    RemoteMedia media;
    media.codec = &codec;
    return Offer(media);
  }
  std::vector<test_support::LogLine> SetMediaLines() const { return LinesOf({"channel_set_media.cpp"}); }
  std::vector<test_support::LogLine> LookupLines() const { return LinesOf({"leg_lookup.cpp"}); }

  void ExpectInPlace() const {
    EXPECT_TRUE(leg_.Known());
    EXPECT_TRUE(leg_.Node());
    EXPECT_THAT(LinesOf({"channel_destroy.cpp"}), testing::IsEmpty());
  }
  void ExpectReleased() const {
    EXPECT_FALSE(leg_.Known());
    EXPECT_THAT(servers_.OpenEndpoints(), testing::IsEmpty());
  }

  MediaLeg leg_;
};

}  // namespace module_test
