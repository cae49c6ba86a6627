#include "rtpengine/call_picture.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using namespace kelvaro::jsr309::rtpengine;

CallPicture Plain() {
  CallPicture picture;
  picture.leg = {"192.0.2.7", 4000, 4001};
  picture.bus = {"192.0.2.8", 5000, 5001};
  picture.leg_codecs = picture.bus_codecs = {{0, "PCMU", 8000, 0, ""}};
  picture.packet_time_ms = 20;
  return picture;
}

PictureChange After(const std::function<void(CallPicture&)>& change) {
  CallPicture picture = Plain();
  change(picture);
  // Which way it goes does not matter.
  EXPECT_EQ(ChangeOf(picture, Plain()), ChangeOf(Plain(), picture));
  return ChangeOf(Plain(), picture);
}

TEST(CallPicture, OneSideIsDescribedAloneWhenNothingButItsPlaceHasChanged) {
  EXPECT_EQ(After([](CallPicture&) {}), PictureChange::kNothing);
  EXPECT_EQ(After([](CallPicture& one) { one.block = true; }), PictureChange::kNothing);
  EXPECT_EQ(After([](CallPicture& one) { one.bus.rtp_port = 5002; }), PictureChange::kBus);
  EXPECT_EQ(After([](CallPicture& one) { one.leg.rtcp_port = 4003; }), PictureChange::kLeg);
  EXPECT_EQ(After([](CallPicture& one) { one.leg = one.bus; }), PictureChange::kLeg);
}

TEST(CallPicture, BothSidesAreDescribedWhenMoreHasChangedOrTheOrderMatters) {
  const auto moved = [](CallPicture& one) { one.bus.rtp_port = 5002; };
  EXPECT_EQ(After([&](CallPicture& one) {
              moved(one);
              one.leg.rtp_port = 4002;
            }),
            PictureChange::kBoth);
  EXPECT_EQ(After([](CallPicture& one) { one.leg_codecs[0].payload_type = 96; }), PictureChange::kBoth);
  EXPECT_EQ(After([](CallPicture& one) { one.bus_codecs[0].format_parameters = "mode=20"; }), PictureChange::kBoth);
  EXPECT_EQ(After([](CallPicture& one) { one.packet_time_ms = 30; }), PictureChange::kBoth);
  EXPECT_EQ(After([](CallPicture& one) { one.tos = 184; }), PictureChange::kBoth);
  EXPECT_EQ(After([](CallPicture& one) { one.image = true; }), PictureChange::kBoth);
  EXPECT_EQ(After([](CallPicture& one) { one.learn = true; }), PictureChange::kBoth);
  EXPECT_EQ(After([](CallPicture& one) { one.keys = LegCrypto::Keys(); }), PictureChange::kBoth);
  for (const auto& always : {std::function<void(CallPicture&)>([](CallPicture& one) { one.image = true; }),
                             std::function<void(CallPicture&)>([](CallPicture& one) { one.learn = true; }),
                             std::function<void(CallPicture&)>([](CallPicture& one) { one.keys.emplace(); }),
                             std::function<void(CallPicture&)>([](CallPicture& one) {
                               one.bus_codecs = {{8, "PCMA", 8000, 0, ""}};  // translated
                             })}) {
    CallPicture told = Plain(), next = Plain();
    always(told);
    always(next);
    moved(next);
    EXPECT_EQ(ChangeOf(told, next), PictureChange::kBoth);
  }
}

}  // namespace
