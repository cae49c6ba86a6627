// The load generator has to notice what goes wrong with a single packet, or its counts prove nothing.

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "support/process_child.h"
#include "support/rtp_g711.h"
#include "support/rtp_load.h"
#include "support/rtp_relay.h"
#include "support/rtp_tone.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::RelayFault;
using test_support::RtpLoadCall;
using test_support::RtpLoadCount;
using test_support::RtpLoadResult;
using test_support::RtpLoadSettings;
using test_support::RtpPhone;
using test_support::RtpRelay;
using test_support::UdpAddress;

constexpr std::size_t kSent = 50;

UdpAddress address_of(const RtpPhone& phone) {
  return {"127.0.0.1", phone.Port()};
}

RtpLoadSettings short_load() {
  RtpLoadSettings settings;
  settings.ptime = milliseconds(5);
  settings.length = kSent * settings.ptime;
  settings.patience = milliseconds(500);
  return settings;
}

/// Of a call whose caller's packets pass a relay with that fault, in the middle of what is counted.
RtpLoadResult load_with(RelayFault fault) {
  RtpPhone caller;
  RtpPhone callee;
  RtpRelay forth(address_of(callee), fault, 20);
  RtpRelay back(address_of(caller), RelayFault::kNone, 0);
  RtpLoadCall call;
  call.caller = &caller;
  call.callee = &callee;
  call.caller_to = forth.Address();
  call.callee_to = back.Address();
  const auto result = run_rtp_load({call}, short_load());
  EXPECT_TRUE(result.opened);
  EXPECT_TRUE(result.to_caller.at(0).Complete());
  EXPECT_EQ(result.to_caller.at(0).received, kSent);
  return result;
}

TEST(SupportRtpLoad, CountsEveryPacketOfAPathWithoutFault) {
  const RtpLoadCount count = load_with(RelayFault::kNone).to_callee.at(0);
  EXPECT_TRUE(count.Complete());
  EXPECT_EQ(count.sent, kSent);
  EXPECT_EQ(count.received, kSent);
}

TEST(SupportRtpLoad, MissesAPacketThatIsLost) {
  const RtpLoadCount count = load_with(RelayFault::kDrop).to_callee.at(0);
  EXPECT_FALSE(count.Complete());
  EXPECT_EQ(count.received, kSent - 1);
}

TEST(SupportRtpLoad, NoticesAPacketThatComesTwice) {
  const RtpLoadCount count = load_with(RelayFault::kDuplicate).to_callee.at(0);
  EXPECT_FALSE(count.Complete());
  EXPECT_EQ(count.received, kSent);
  EXPECT_EQ(count.duplicated, 1u);
}

TEST(SupportRtpLoad, DoesNotTakeAnAlteredPacketForItsOwn) {
  for (RelayFault fault : {RelayFault::kAlterPayload, RelayFault::kShortenPayload, RelayFault::kChangePayloadType}) {
    const RtpLoadCount count = load_with(fault).to_callee.at(0);
    EXPECT_FALSE(count.Complete());
    EXPECT_EQ(count.received, kSent - 1);
    EXPECT_EQ(count.foreign, 1u);
  }
}

TEST(SupportRtpLoad, CountsWhatIsNoRtp) {
  const RtpLoadCount count = load_with(RelayFault::kTruncateHeader).to_callee.at(0);
  EXPECT_FALSE(count.Complete());
  EXPECT_EQ(count.unreadable, 1u);
}

TEST(SupportRtpLoad, SendsNothingOverPathsThatDoNotOpen) {
  std::vector<RtpPhone> phones(4);
  std::vector<RtpLoadCall> calls(2);
  for (std::size_t i = 0; i < 2; ++i) {
    calls[i].caller = &phones[2 * i];
    calls[i].callee = &phones[2 * i + 1];
    // Each call's caller is heard by the other call's callee.
    calls[i].caller_to = address_of(phones[3 - 2 * i]);
    calls[i].callee_to = address_of(phones[2 * i]);
  }
  const auto result = run_rtp_load(calls, short_load());
  EXPECT_FALSE(result.opened);
  for (const RtpLoadCount& count : result.to_callee) {
    EXPECT_EQ(count.sent, 0u);
    EXPECT_GT(count.foreign, 0u);
    EXPECT_FALSE(count.Complete());
  }
}

TEST(SupportRtpTone, IsHeardForAsLongAsItIsThereAndNoOtherIs) {
  const test_support::TemporaryDirectory directory;
  const auto file = directory.Path() / "tone.wav";
  test_support::write_tone(file, 440, seconds(2));
  auto samples = test_support::read_recording(file);
  EXPECT_EQ(samples.size(), 16000u);
  samples.resize(24000);  // silence
  const auto own = test_support::listen_for_tone(samples, 440);
  EXPECT_EQ(own.tone, seconds(2));
  EXPECT_EQ(own.other, seconds(0));
  const auto other = test_support::listen_for_tone(samples, 1000);
  EXPECT_EQ(other.tone, seconds(0));
  EXPECT_EQ(other.other, seconds(2));
}

// What a sealed packet sounds like.
TEST(SupportRtpTone, IsNotHeardInNoise) {
  std::mt19937 random(1);
  std::vector<std::int16_t> samples;
  for (int i = 0; i < 16000; ++i) {
    samples.push_back(test_support::decode_mulaw(static_cast<std::uint8_t>(random() & 0xff)));
  }
  EXPECT_EQ(test_support::listen_for_tone(samples, 440).tone, seconds(0));
}

}  // namespace
}  // namespace end_to_end
