#pragma once

#include <vector>

#include "module/media_callbacks_fixture.h"

namespace module_test {

class ChannelGetMedia : public MediaCallbacks {
 protected:
  explicit ChannelGetMedia(const test_support::ScriptedOptions& options = {}) : MediaCallbacks(options) {
    leg_.Create();
    log_.Clear();
    servers_.ForgetCalls();
  }

  /// The record that an offer for this leg carries to the media server.
  kelvaro::jsr309::MediaConfig Offer(LocalMedia media = {}) {
    EXPECT_EQ(leg_.GetMedia(media), SWITCH_STATUS_SUCCESS);
    return LastConfig(test_support::ScriptedOperation::kGetLocalOffer);
  }
  kelvaro::jsr309::MediaConfig Answer(LocalMedia media) {
    media.state = SWITCH_SDP_OFFER_RECEIVED;
    EXPECT_EQ(leg_.GetMedia(media), SWITCH_STATUS_SUCCESS);
    return LastConfig(test_support::ScriptedOperation::kGetLocalAnswer);
  }
  kelvaro::jsr309::MediaConfig AnswerWith(switch_codec_t codec, int support_g729_annexb = 1) {
    LocalMedia media;
    media.answer_codec = &codec;
    media.support_g729_annexb = support_g729_annexb;
    return Answer(media);
  }
  std::vector<test_support::LogLine> GetMediaLines() const { return LinesOf({"channel_get_media.cpp"}); }
  std::vector<test_support::LogLine> LookupLines() const { return LinesOf({"leg_lookup.cpp"}); }

  static void ExpectUntouched(const LocalMedia& media) {
    EXPECT_EQ(media.out_port, 0);
    EXPECT_STREQ(media.ip_addr, "untouched");
  }

  MediaLeg leg_;
};

}  // namespace module_test
