#include <string>
#include <vector>

#include "module/channel_get_media_fixture.h"

namespace module_test {
namespace {

using kelvaro::jsr309::MediaCodec;
using kelvaro::jsr309::MediaConfig;
using testing::ElementsAre;

/// What a codec of the record says, in one line.
std::string text_of(const MediaCodec& codec) {
  return codec.name + "/" + std::to_string(codec.payload_type) + " " + std::to_string(codec.packet_time_ms) + "ms " +
         std::to_string(codec.sample_rate) + "Hz " + std::to_string(codec.bit_rate) + "bps";
}

std::vector<std::string> codecs_of(const MediaConfig& config) {
  std::vector<std::string> texts;
  for (const MediaCodec& codec : config.GetCodecs()) texts.push_back(text_of(codec));
  return texts;
}

TEST_F(ChannelGetMedia, OffersEveryCodecInOrderUnderItsOwnPayloadType) {
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  const auto amr = implementation("AMR", 98, 60, 8000, 12200);
  auto odd = implementation("PCMU", 0, 0, 8000, 64000);
  odd.microseconds_per_packet = 22500;
  switch_codec_t answer = negotiated(pcmu, 0);
  LocalMedia media;
  media.codecs = {&amr, &pcmu, &odd, &pcmu};
  media.answer_codec = &answer;  // plays no part in an offer
  const MediaConfig config = Offer(media);
  EXPECT_THAT(codecs_of(config), ElementsAre("AMR/98 60ms 8000Hz 12200bps", "PCMU/0 20ms 8000Hz 64000bps",
                                             "PCMU/0 22ms 8000Hz 64000bps", "PCMU/0 20ms 8000Hz 64000bps"));
  EXPECT_FALSE(config.GetAMROctetAlign());
  EXPECT_FALSE(config.GetAutoLocalPortRenew());
  for (const MediaCodec& codec : config.GetCodecs()) {
    EXPECT_FALSE(codec.video);
    EXPECT_EQ(codec.frame_width, 0);
    EXPECT_EQ(codec.frame_height, 0);
    EXPECT_EQ(codec.frame_rate, 0);
    EXPECT_FALSE(codec.format_parameters);
    EXPECT_EQ(codec.channels, 0);
    EXPECT_EQ(codec.pixel_aspect_ratio, 1.0);
  }
}

TEST_F(ChannelGetMedia, SetsAnnexBOfAnOfferBothWays) {
  LocalMedia media;
  EXPECT_EQ(Offer(media).GetG729AnnexBFlag(), false);
  media.support_g729_annexb = 2;
  media.enable_auto_local_port_renew = SWITCH_TRUE;
  const MediaConfig config = Offer(media);
  EXPECT_EQ(config.GetG729AnnexBFlag(), true);
  EXPECT_FALSE(config.GetAutoLocalPortRenew());
}

TEST_F(ChannelGetMedia, ListsTheAnswerCodecFirstAndOnce) {
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  const auto same_in_other_case = implementation("pcmu", 0, 20, 8000, 64000);
  const auto longer = implementation("PCMU", 0, 30, 8000, 64000);
  const auto faster = implementation("PCMU", 0, 20, 16000, 64000);
  const auto fatter = implementation("PCMU", 0, 20, 8000, 128000);
  const auto pcma = implementation("PCMA", 8, 20, 8000, 64000);
  switch_codec_t answer = negotiated(pcmu, 96);
  LocalMedia media;
  media.codecs = {&pcma, &pcmu, &longer, &same_in_other_case, &faster, &fatter};
  media.answer_codec = &answer;
  EXPECT_THAT(codecs_of(Answer(media)),
              ElementsAre("PCMU/96 20ms 8000Hz 64000bps", "PCMA/8 20ms 8000Hz 64000bps", "PCMU/0 30ms 8000Hz 64000bps",
                          "PCMU/0 20ms 16000Hz 64000bps", "PCMU/0 20ms 8000Hz 128000bps"));
}

TEST_F(ChannelGetMedia, TakesAMissingNameForAnEmptyOne) {
  const auto nameless = implementation(nullptr, 0, 20, 8000, 64000);
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  switch_codec_t answer = negotiated(nameless, 96, "annexa=no;annexb=no", "octet-align=1");
  LocalMedia media;
  media.codecs = {&nameless, &pcmu};
  media.answer_codec = &answer;
  const MediaConfig config = Answer(media);
  EXPECT_THAT(codecs_of(config), ElementsAre("/96 20ms 8000Hz 64000bps", "PCMU/0 20ms 8000Hz 64000bps"));
  EXPECT_FALSE(config.GetAMROctetAlign());
  EXPECT_FALSE(config.GetG729AnnexBFlag());
  EXPECT_FALSE(config.GetG723AnnexAFlag());
}

TEST_F(ChannelGetMedia, AnswersWithTheListAloneWithoutAnAnswerCodec) {
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  LocalMedia media;
  media.codecs = {&pcmu};
  EXPECT_THAT(codecs_of(Answer(media)), ElementsAre("PCMU/0 20ms 8000Hz 64000bps"));

  switch_codec_t bare = {};
  media.answer_codec = &bare;
  const MediaConfig config = Answer(media);
  EXPECT_THAT(codecs_of(config), ElementsAre("PCMU/0 20ms 8000Hz 64000bps"));
  EXPECT_FALSE(config.GetG729AnnexBFlag());
}

TEST_F(ChannelGetMedia, RenewsTheLocalPortOfAnAnswerOnRequest) {
  LocalMedia media;
  EXPECT_EQ(Answer(media).GetAutoLocalPortRenew(), false);
  media.enable_auto_local_port_renew = SWITCH_TRUE;
  EXPECT_EQ(Answer(media).GetAutoLocalPortRenew(), true);
}

TEST_F(ChannelGetMedia, ReadsOctetAlignOfAnAmrAnswerFromTheOutgoingFmtp) {
  for (const char* name : {"AMR", "amr-wb"}) {
    const auto amr = implementation(name, 98, 20, 8000, 12200);
    EXPECT_EQ(AnswerWith(negotiated(amr, 98, "octet-align=0", "mode-set=7; octet-align=1")).GetAMROctetAlign(), true);
    EXPECT_EQ(AnswerWith(negotiated(amr, 98, "octet-align=1", "mode-set=7; octet-align=0")).GetAMROctetAlign(), false);
    EXPECT_EQ(AnswerWith(negotiated(amr, 98, "octet-align=1", "mode-set=7")).GetAMROctetAlign(), false);
    EXPECT_EQ(AnswerWith(negotiated(amr, 98, "octet-align=1", nullptr)).GetAMROctetAlign(), false);
  }
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  EXPECT_FALSE(AnswerWith(negotiated(pcmu, 0, nullptr, "octet-align=1")).GetAMROctetAlign());
}

TEST_F(ChannelGetMedia, OnlyEverClearsAnnexBOfAnAnswer) {
  const auto g729 = implementation("g729", 18, 20, 8000, 8000);
  EXPECT_FALSE(AnswerWith(negotiated(g729, 18)).GetG729AnnexBFlag());
  EXPECT_FALSE(AnswerWith(negotiated(g729, 18, "annexb=yes")).GetG729AnnexBFlag());
  EXPECT_FALSE(AnswerWith(negotiated(g729, 18, "annexb=yes", "annexb=no")).GetG729AnnexBFlag());
  EXPECT_EQ(AnswerWith(negotiated(g729, 18, "x=1; ANNEXB=NO")).GetG729AnnexBFlag(), false);
  EXPECT_EQ(AnswerWith(negotiated(g729, 18, "annexb=yes"), 0).GetG729AnnexBFlag(), false);
  EXPECT_FALSE(AnswerWith(negotiated(g729, 18, "annexa=no")).GetG723AnnexAFlag());
}

TEST_F(ChannelGetMedia, OnlyEverClearsAnnexAOfAnAnswer) {
  const auto g723 = implementation("G723", 4, 30, 8000, 6300);
  EXPECT_FALSE(AnswerWith(negotiated(g723, 4), 0).GetG723AnnexAFlag());
  EXPECT_FALSE(AnswerWith(negotiated(g723, 4, "annexa=yes"), 0).GetG723AnnexAFlag());
  EXPECT_EQ(AnswerWith(negotiated(g723, 4, "AnnexA=No"), 1).GetG723AnnexAFlag(), false);
  EXPECT_FALSE(AnswerWith(negotiated(g723, 4, "annexb=no"), 0).GetG729AnnexBFlag());
}

TEST_F(ChannelGetMedia, TouchesNoAnnexOfOtherCodecs) {
  const auto pcmu = implementation("PCMU", 0, 20, 8000, 64000);
  const MediaConfig config = AnswerWith(negotiated(pcmu, 0, "annexa=no;annexb=no"), 0);
  EXPECT_FALSE(config.GetG729AnnexBFlag());
  EXPECT_FALSE(config.GetG723AnnexAFlag());
}

TEST(AmrSuite, IsAmrAndAmrWideBandInAnyCase) {
  EXPECT_EQ(codec_belongs_to_amr_suite("AMR"), 1);
  EXPECT_EQ(codec_belongs_to_amr_suite("amr-wb"), 1);
  EXPECT_EQ(codec_belongs_to_amr_suite("AMR-WB+"), 0);
  EXPECT_EQ(codec_belongs_to_amr_suite("PCMU"), 0);
  EXPECT_EQ(codec_belongs_to_amr_suite(""), 0);
  EXPECT_EQ(codec_belongs_to_amr_suite(nullptr), 0);
}

TEST(AmrOctetAlign, IsTheFirstValueOfThatName) {
  EXPECT_EQ(amr_codec_is_octet_align(nullptr), 0);
  EXPECT_EQ(amr_codec_is_octet_align(""), 0);
  EXPECT_EQ(amr_codec_is_octet_align("octet-align=1"), 1);
  EXPECT_EQ(amr_codec_is_octet_align("OCTET-ALIGN=2"), 1);
  EXPECT_EQ(amr_codec_is_octet_align("mode-set=7;   octet-align=1"), 1);
  EXPECT_EQ(amr_codec_is_octet_align("octet-align"), 0);
  EXPECT_EQ(amr_codec_is_octet_align("octet-align=yes"), 0);
  EXPECT_EQ(amr_codec_is_octet_align("octet-align=0;octet-align=1"), 0);
  EXPECT_EQ(amr_codec_is_octet_align("octet-align=1;octet-align=0"), 1);
  EXPECT_EQ(amr_codec_is_octet_align("not-octet-align=1"), 0);
  EXPECT_EQ(amr_codec_is_octet_align(";;octet-align=1"), 1);
}

TEST(AmrOctetAlign, LooksAtTenParameters) {
  EXPECT_EQ(amr_codec_is_octet_align("a=1;b=1;c=1;d=1;e=1;f=1;g=1;h=1;i=1;octet-align=1"), 1);
  EXPECT_EQ(amr_codec_is_octet_align("a=1;b=1;c=1;d=1;e=1;f=1;g=1;h=1;i=1;j=1;octet-align=1"), 0);
}

}  // namespace
}  // namespace module_test
