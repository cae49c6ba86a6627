#include "rtpengine/leg_codecs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace kelvaro::jsr309;
using namespace kelvaro::jsr309::rtpengine;
using testing::ElementsAre;
using Way = BusPlan::Way;

MediaConfig Config(const char* name, int type, std::optional<uint8_t> events = {}, int rate = 8000, int bit_rate = 0) {
  MediaConfig config;
  config.AddCodec(name, type, 20, rate, bit_rate, false, 0, 0, 0, nullptr, 0, 1.0);
  config.SetRfc2833Flag(events.has_value());
  if (events) config.SetRfc2833Payload(*events);
  return config;
}
/// One number for both directions.
LegCodecs Leg(const MediaConfig& config) {
  LegCodecs leg;
  leg.SetLocal(config);
  leg.SetRemote(config);
  return leg;
}
std::vector<std::string> Texts(const std::vector<NgCodec>& lines) {
  std::vector<std::string> texts;
  for (const NgCodec& line : lines) texts.push_back(std::to_string(line.payload_type) + " " + line.name);
  return texts;
}

TEST(LegCodecs, AreToldUnderTheTypesOfBothSidesOnceEach) {
  LegCodecs leg;
  EXPECT_THAT(Texts(LegLines(leg)), ElementsAre("0 PCMU"));
  leg.SetLocal(Config("AMR", 96, 101));
  EXPECT_THAT(Texts(LegLines(leg)), ElementsAre("96 AMR", "101 telephone-event"));
  leg.SetRemote(Config("AMR", 104, 97));
  EXPECT_THAT(Texts(LegLines(leg)), ElementsAre("104 AMR", "97 telephone-event", "96 AMR", "101 telephone-event"));
  EXPECT_EQ(leg.outgoing_type(), 104);
  EXPECT_EQ(leg.incoming_type(), 96);
}

TEST(LegCodecs, WhatTheFarEndPutsFirstIsAgreedAndComfortNoiseIsNoCodec) {
  MediaConfig remote = Config("CN", 13);
  remote.AddCodec("PCMA", 8, 20, 8000, 64000, false, 0, 0, 0, nullptr, 0, 1.0);
  remote.AddCodec("PCMU", 0, 20, 8000, 64000, false, 0, 0, 0, nullptr, 0, 1.0);
  LegCodecs leg;
  leg.SetLocal(Config("PCMU", 0));
  leg.SetRemote(remote);
  EXPECT_EQ(leg.AgreedText(), "PCMA/8000");
}

TEST(BusPlans, LegsOfOneMindAreJoinedAsTheyAre) {
  EXPECT_EQ(PlanBus(Leg(Config("AMR", 96, 101)), Leg(Config("AMR", 96, 101))).way, Way::kAsItIs);
  EXPECT_EQ(PlanBus(Leg(Config("PCMU", 0, 101)), Leg(Config("PCMU", 0))).way, Way::kAsItIs);
  EXPECT_EQ(PlanBus(LegCodecs(), Leg(Config("PCMU", 0))).way, Way::kAsItIs);
}

TEST(BusPlans, TypesThatDifferAreTranslatedThroughTypesThatNeitherLegUses) {
  const BusPlan plan = PlanBus(Leg(Config("PCMU", 0, 127)), Leg(Config("PCMU", 0, 126)));
  EXPECT_EQ(plan.way, Way::kTranslated);
  EXPECT_THAT(Texts(plan.translated), ElementsAre("125 PCMU", "124 telephone-event"));
  const BusPlan law = PlanBus(Leg(Config("PCMU", 0, 101)), Leg(Config("PCMA", 8)));
  EXPECT_EQ(law.way, Way::kTranslated);
  EXPECT_THAT(Texts(law.translated), ElementsAre("127 PCMU"));
}

TEST(BusPlans, WhatADaemonDoesNotEncodeKeepsItsTypesOrIsRefused) {
  const BusPlan refused = PlanBus(Leg(Config("AMR", 96)), Leg(Config("AMR", 97)));
  EXPECT_EQ(refused.way, Way::kImpossible);
  EXPECT_EQ(refused.reason,
            "AMR/8000 octet-align=0 under payload types 96 and 97 cannot be carried: rtpengine gives no other payload "
            "type to a codec that it does not encode");
  const BusPlan events = PlanBus(Leg(Config("AMR", 96, 101)), Leg(Config("AMR", 96, 100)));
  EXPECT_EQ(events.way, Way::kAsItIs);
  EXPECT_EQ(events.loss, "telephone-events under payload types that differ, beside AMR/8000 octet-align=0");
}

TEST(BusPlans, UnlikeCodecsAreRefusedByName) {
  EXPECT_EQ(PlanBus(Leg(Config("PCMU", 0)), Leg(Config("GSM", 3))).reason,
            "codecs PCMU/8000 and GSM/8000 cannot be carried into each other");
  EXPECT_EQ(PlanBus(Leg(Config("iLBC", 98, {}, 8000, 13330)), Leg(Config("iLBC", 98, {}, 8000, 15200))).reason,
            "codecs iLBC/8000 bitrate=13330 and iLBC/8000 bitrate=15200 cannot be carried into each other");
  MediaConfig aligned = Config("AMR", 96);
  aligned.SetAMROctetAlign(true);
  EXPECT_EQ(PlanBus(Leg(aligned), Leg(Config("AMR", 96))).reason,
            "codecs AMR/8000 octet-align=1 and AMR/8000 octet-align=0 cannot be carried into each other");
}

}  // namespace
