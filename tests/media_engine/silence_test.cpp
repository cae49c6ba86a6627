// Comfort noise and silence descriptors: who gets them and who does not.
#include "engine_fixture.h"
#include "silence_frames.h"

namespace media_engine_test {
namespace {

class Silence : public EngineTest {
 protected:
  struct Wish {
    std::vector<Codec> extra;  // described beside the codec
    std::optional<bool> suppress_comfort_noise;
    std::optional<bool> g729_annex_b, g723_annex_a;
  };

  void SetUp() override {
    server_ = Open(Config());
    session_ = NewSession(*server_);
  }
  static SilenceSettings Settings(const Wish& wish) {
    return {wish.suppress_comfort_noise, wish.g729_annex_b, wish.g723_annex_a};
  }
  Leg NewSilenceLeg(const Codec& codec, const Wish& local, const Wish& remote) {
    Leg leg = NewLeg(*session_);
    LocalSettings settings = LocalFor(codec);
    settings.codecs.insert(settings.codecs.end(), local.extra.begin(), local.extra.end());
    settings.silence = Settings(local);
    RemoteDescription description = leg.far_end->Description(codec);
    description.codecs.insert(description.codecs.end(), remote.extra.begin(), remote.extra.end());
    description.silence = Settings(remote);
    EXPECT_TRUE(leg.endpoint->DescribeLocal(settings, leg.local, kLimit).ok);
    EXPECT_TRUE(leg.endpoint->DescribeRemote(description, kLimit).ok);
    return leg;
  }
  Leg NewSilenceLeg(const Codec& codec, const Wish& both) { return NewSilenceLeg(codec, both, both); }
  static void JoinThem(const Leg& a, const Leg& b) {
    const Outcome outcome = a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit);
    ASSERT_TRUE(outcome.ok) << outcome.reason;
  }
  /// What arrives of a packet; none when it was dropped.
  std::optional<Rtp> Through(const Leg& from, const Leg& to, uint8_t payload_type, const Bytes& payload) {
    ++number_;
    const uint64_t before = from.Statistics().rtp_packets_received;
    from.Send({payload_type, number_, 160u * number_, 1, false, payload});
    EXPECT_TRUE(Eventually([&] { return from.Statistics().rtp_packets_received > before; }));
    return to.far_end->ReceiveRtp(milliseconds{0});
  }
  bool Passes(const Leg& from, const Leg& to, uint8_t sent_as, uint8_t to_come_as) {
    const auto came = Through(from, to, sent_as, {0x3f});
    return came && came->payload_type == to_come_as && came->payload == Bytes{0x3f};
  }

  std::unique_ptr<Server> server_;
  std::shared_ptr<Session> session_;
  uint16_t number_ = 0;
};

const Codec kNoise = MakeCodec("CN", 13);

TEST_F(Silence, ComfortNoisePassesBetweenLegsThatDescribeItUnderEachLegsType) {
  const Leg a = NewSilenceLeg(Pcmu(), {{kNoise}, {}, {}, {}});
  const Leg b = NewSilenceLeg(Pcma(), {{MakeCodec("cn", 98)}, {}, {}, {}});
  JoinThem(a, b);
  EXPECT_TRUE(Passes(a, b, 13, 98));
  EXPECT_TRUE(Passes(b, a, 98, 13));
  EXPECT_EQ(a.Statistics().silence_dropped, 0u);
}

TEST_F(Silence, ComfortNoiseIsNoCodecToAgreeOn) {
  // Described first: the codec is still the one behind it.
  Leg a = NewLeg(*session_);
  LocalSettings settings = LocalFor(Pcmu());
  settings.codecs.insert(settings.codecs.begin(), kNoise);
  RemoteDescription remote = a.far_end->Description(Pcmu());
  remote.codecs.insert(remote.codecs.begin(), kNoise);
  ASSERT_TRUE(a.endpoint->DescribeLocal(settings, a.local, kLimit).ok);
  ASSERT_TRUE(a.endpoint->DescribeRemote(remote, kLimit).ok);
  const Leg b = NewSilenceLeg(Pcma(), {{kNoise}, {}, {}, {}});
  JoinThem(a, b);
  const auto came = Through(a, b, 0, {0x80});
  ASSERT_TRUE(came);
  EXPECT_EQ(came->payload_type, 8);
  EXPECT_TRUE(Passes(a, b, 13, 13));
}

TEST_F(Silence, ComfortNoiseIsDroppedWithoutAGapWhereTheOtherLegHasNone) {
  const Leg a = NewSilenceLeg(Pcmu(), {{kNoise}, {}, {}, {}}), b = NewSilenceLeg(Pcmu(), {});
  JoinThem(a, b);
  const auto before = Through(a, b, 0, {1});
  EXPECT_FALSE(Passes(a, b, 13, 13));
  const auto after = Through(a, b, 0, {2});
  ASSERT_TRUE(before && after);
  EXPECT_EQ(static_cast<uint16_t>(after->sequence_number - before->sequence_number), 1);
  EXPECT_EQ(after->timestamp - before->timestamp, 320u);
  EXPECT_EQ(a.Statistics().silence_dropped, 1u);
}

TEST_F(Silence, ComfortNoiseThatNobodySpeaksOfIsAnUnknownType) {
  const Leg a = NewSilenceLeg(Pcmu(), {}), b = NewSilenceLeg(Pcmu(), {});
  JoinThem(a, b);
  EXPECT_FALSE(Passes(a, b, 13, 13));
  EXPECT_EQ(a.Statistics().unknown_payload_types, 1u);
}

TEST_F(Silence, ComfortNoiseInUseNeedsNoDescriptionOfItsStaticType) {
  const Wish in_use{{}, false, {}, {}};
  const Leg a = NewSilenceLeg(Pcmu(), in_use), b = NewSilenceLeg(Pcma(), in_use);
  JoinThem(a, b);
  EXPECT_TRUE(Passes(a, b, 13, 13));
  EXPECT_TRUE(Passes(b, a, 13, 13));
  // The static type is that of 8000 Hz.
  const Leg c = NewSilenceLeg(MakeCodec("L16", 97, 16000), in_use),
            d = NewSilenceLeg(MakeCodec("L16", 97, 16000), in_use);
  JoinThem(c, d);
  EXPECT_FALSE(Passes(c, d, 13, 13));
}

TEST_F(Silence, ComfortNoiseIsSuppressedFromAndToALegOfWhichEitherSideAsksForIt) {
  const Wish in_use{{kNoise}, false, {}, {}}, suppressed{{kNoise}, true, {}, {}};
  const Leg plain = NewSilenceLeg(Pcmu(), in_use);
  const Leg legs[] = {NewSilenceLeg(Pcmu(), suppressed, in_use), NewSilenceLeg(Pcmu(), in_use, suppressed),
                      NewSilenceLeg(Pcmu(), suppressed)};
  for (const Leg& leg : legs) {
    JoinThem(plain, leg);
    EXPECT_FALSE(Passes(plain, leg, 13, 13));
    EXPECT_FALSE(Passes(leg, plain, 13, 13));
    EXPECT_EQ(leg.Statistics().silence_dropped, 1u);
  }
  EXPECT_EQ(plain.Statistics().silence_dropped, 3u);
}

TEST_F(Silence, ANewDescriptionChangesWhatIsSuppressed) {
  const Wish in_use{{kNoise}, false, {}, {}};
  Leg a = NewSilenceLeg(Pcmu(), in_use);
  const Leg b = NewSilenceLeg(Pcmu(), in_use);
  JoinThem(a, b);
  EXPECT_TRUE(Passes(a, b, 13, 13));
  LocalSettings settings;
  settings.silence.suppress_comfort_noise = true;
  ASSERT_TRUE(a.endpoint->DescribeLocal(settings, a.local, kLimit).ok);
  EXPECT_FALSE(Passes(a, b, 13, 13));
  ASSERT_TRUE(a.endpoint->DescribeLocal({}, a.local, kLimit).ok);  // says nothing of it
  EXPECT_FALSE(Passes(a, b, 13, 13));
  settings.silence.suppress_comfort_noise = false;
  ASSERT_TRUE(a.endpoint->DescribeLocal(settings, a.local, kLimit).ok);
  EXPECT_TRUE(Passes(a, b, 13, 13));
}

Bytes Frames(std::initializer_list<std::pair<std::size_t, uint8_t>> lengths_and_first_octets) {
  Bytes payload;
  for (const auto& [length, first] : lengths_and_first_octets) {
    Bytes frame(length, 0x5a);
    frame[0] = first;
    payload.insert(payload.end(), frame.begin(), frame.end());
  }
  return payload;
}

TEST_F(Silence, SidFramesOfG729ReachOnlyLegsWithAnnexB) {
  const Codec g729 = MakeCodec("G729", 18);
  const Wish with{{}, {}, true, {}}, without{{}, {}, false, {}};
  const Leg source = NewSilenceLeg(g729, {}), taking = NewSilenceLeg(g729, with);
  const Leg declining[] = {NewSilenceLeg(g729, without, with), NewSilenceLeg(g729, with, without)};
  const Bytes speech = Frames({{10, 1}, {10, 2}}), sid = Frames({{2, 9}}), both = Frames({{10, 1}, {2, 9}});
  JoinThem(source, taking);
  for (const Bytes& payload : {speech, sid, both}) {
    const auto came = Through(source, taking, 18, payload);
    ASSERT_TRUE(came);
    EXPECT_EQ(came->payload, payload);
  }
  for (const Leg& leg : declining) {
    JoinThem(source, leg);
    EXPECT_EQ(Through(source, leg, 18, speech).value().payload, speech);
    EXPECT_FALSE(Through(source, leg, 18, sid));
    EXPECT_EQ(Through(source, leg, 18, both).value().payload, Frames({{10, 1}}));
    // What it sends itself is the other's to decide on.
    EXPECT_EQ(Through(leg, source, 18, sid).value().payload, sid);
  }
  EXPECT_EQ(source.Statistics().silence_dropped, 2u);
}

TEST_F(Silence, SidFramesOfG723ReachOnlyLegsWithAnnexA) {
  const Codec g723 = MakeCodec("G723", 4);
  const Leg source = NewSilenceLeg(g723, {}), declining = NewSilenceLeg(g723, {{}, {}, {}, false});
  JoinThem(source, declining);
  const Bytes sid = Frames({{4, 2}}), speech = Frames({{24, 0}, {20, 1}});
  EXPECT_FALSE(Through(source, declining, 4, sid));
  EXPECT_EQ(Through(source, declining, 4, speech).value().payload, speech);
  EXPECT_EQ(Through(declining, source, 4, sid).value().payload, sid);
  EXPECT_EQ(source.Statistics().silence_dropped, 1u);
}

TEST_F(Silence, AnnexesOfOtherCodecsMeanNothing) {
  const Wish neither{{}, {}, false, false};
  const Leg a = NewSilenceLeg(Pcmu(), neither), b = NewSilenceLeg(Pcmu(), neither);
  JoinThem(a, b);
  for (std::size_t length : {2u, 4u, 12u}) {
    EXPECT_EQ(Through(a, b, 0, PayloadOf(1, length)).value().payload.size(), length);
  }
}

TEST(SilenceFrames, AreTakenOutOfG723WhereverTheyStand) {
  struct Case {
    Bytes payload, left;
  };
  const Bytes damaged = Frames({{24, 0}, {19, 1}}), unused = Frames({{20, 1}, {7, 3}});
  const Case cases[] = {{Frames({{24, 0}, {4, 2}}), Frames({{24, 0}})},
                        {Frames({{4, 2}, {20, 1}, {4, 2}, {24, 0}}), Frames({{20, 1}, {24, 0}})},
                        {Frames({{4, 2}, {4, 6}}), {}},
                        {{}, {}},
                        {damaged, damaged},
                        {unused, unused},
                        {Frames({{4, 2}, {3, 2}}), Frames({{3, 2}})}};
  for (const Case& one : cases) {
    Bytes payload = one.payload;
    payload.resize(media_engine::RemoveSid(media_engine::SidFormat::kG723, payload.data(), payload.size()));
    EXPECT_EQ(payload, one.left);
  }
}

TEST(SilenceFrames, OfG729StandAtTheEnd) {
  for (const auto& [length, left] : std::vector<std::pair<std::size_t, std::size_t>>{
           {0, 0}, {2, 0}, {10, 10}, {12, 10}, {22, 20}, {11, 11}, {3, 3}}) {
    Bytes payload(length, 1);
    EXPECT_EQ(media_engine::RemoveSid(media_engine::SidFormat::kG729, payload.data(), length), left);
  }
}

}  // namespace
}  // namespace media_engine_test
