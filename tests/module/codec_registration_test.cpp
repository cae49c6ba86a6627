#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <set>
#include <sstream>

#include "codecs.h"
#include "module/codec_expected.h"
#include "module/module_fixture.h"

namespace module_test {

namespace {

using boost::property_tree::ptree;
using test_support::error_line;
using test_support::warning_line;
using testing::ElementsAre;
using testing::IsEmpty;

ptree parse(const std::string& xml) {
  std::istringstream text(xml);
  ptree tree;
  boost::property_tree::read_xml(text, tree);
  return tree;
}

ptree configuration_of(const std::vector<ConfiguredCodec>& codecs) {
  return parse(control_library_configuration(codec_list(codecs), ""));
}

ExpectedImplementation seen(const switch_codec_implementation_t& implementation) {
  return {implementation.ianacode,
          implementation.iananame,
          switch_str_nil(implementation.fmtp),
          implementation.samples_per_second,
          implementation.actual_samples_per_second,
          implementation.bits_per_second,
          implementation.microseconds_per_packet,
          implementation.samples_per_packet,
          implementation.decoded_bytes_per_packet,
          implementation.encoded_bytes_per_packet,
          implementation.codec_frames_per_packet};
}

}  // namespace

class CodecRegistration : public testing::Test {
 protected:
  CodecRegistration() { reset_codec_catalogue(); }
  ~CodecRegistration() override { reset_codec_catalogue(); }

  std::vector<const switch_codec_interface_t*> Register(const ptree& configuration) {
    EXPECT_TRUE(mscodec_intersectwith_morvanecodec(configuration));
    return Register();
  }
  std::vector<const switch_codec_interface_t*> Register() {
    auto* module_interface = switch_loadable_module_create_module_interface(pool_.Get(), "the_module");
    mod_media_server_load_codec(module_interface, pool_.Get(), nullptr, dummy_codec_init, dummy_codec_encode,
                                dummy_codec_decode, dummy_codec_destroy);
    std::vector<const switch_codec_interface_t*> found;
    for (const auto* codec = module_interface->codec_interface; codec != nullptr; codec = codec->next) {
      found.push_back(codec);
    }
    return found;
  }
  static std::vector<const switch_codec_implementation_t*> Implementations(const switch_codec_interface_t* codec) {
    std::vector<const switch_codec_implementation_t*> found;
    for (const auto* i = codec->implementations; i != nullptr; i = i->next) found.push_back(i);
    std::reverse(found.begin(), found.end());  // the list shows the last one first
    return found;
  }
  static std::vector<ExpectedCodec> Seen(const std::vector<const switch_codec_interface_t*>& codecs) {
    std::vector<ExpectedCodec> all;
    for (const switch_codec_interface_t* codec : codecs) {
      ExpectedCodec one{codec->interface_name, {}};
      for (const auto* implementation : Implementations(codec)) one.implementations.push_back(seen(*implementation));
      all.push_back(one);
    }
    return all;
  }
  std::vector<ExpectedCodec> RegisteredFor(const std::vector<ConfiguredCodec>& codecs) {
    reset_codec_catalogue();
    return Seen(Register(configuration_of(codecs)));
  }

  test_support::LogCapture log_;
  Pool pool_;
};

TEST_F(CodecRegistration, EveryConfiguredCodecIsRegisteredInCatalogueOrder) {
  const ptree configuration = parse(control_library_configuration(every_codec(), ""));
  EXPECT_THAT(Seen(Register(configuration)), ElementsAre(kPcmu, kPcma, kG726At16, kG726At24, kG726At32, kG726At40,
                                                         kG722, kGsm, kG723, kAmr, kAmrWb, kG7221, kIlbc, kG729));
  EXPECT_THAT(log_.Lines(), IsEmpty());
}

TEST_F(CodecRegistration, EveryCodecIsRegisteredWhenConfiguredAlone) {
  EXPECT_THAT(RegisteredFor({{"PCMU", "", ""}}), ElementsAre(kPcmu));
  EXPECT_THAT(RegisteredFor({{"PCMA", "", ""}}), ElementsAre(kPcma));
  EXPECT_THAT(RegisteredFor({{"G726-16", "", ""}}), ElementsAre(kG726At16));
  EXPECT_THAT(RegisteredFor({{"G726-24", "", ""}}), ElementsAre(kG726At24));
  EXPECT_THAT(RegisteredFor({{"G726-32", "", ""}}), ElementsAre(kG726At32));
  EXPECT_THAT(RegisteredFor({{"G726-40", "", ""}}), ElementsAre(kG726At40));
  EXPECT_THAT(RegisteredFor({{"G722", "", ""}}), ElementsAre(kG722));
  EXPECT_THAT(RegisteredFor({{"GSM", "", ""}}), ElementsAre(kGsm));
  EXPECT_THAT(RegisteredFor({{"G723", "", ""}}), ElementsAre(kG723));
  EXPECT_THAT(RegisteredFor({{"AMR-WB", "16000", "23850"}}), ElementsAre(kAmrWb));
  EXPECT_THAT(RegisteredFor({{"G729", "", ""}}), ElementsAre(kG729));
}

TEST_F(CodecRegistration, EitherMemberOfAPairRegistersBoth) {
  EXPECT_THAT(RegisteredFor({{"AMR", "8000", "4750"}}), ElementsAre(kAmr));
  EXPECT_THAT(RegisteredFor({{"AMR", "8000", "12200"}}), ElementsAre(kAmr));
  EXPECT_THAT(RegisteredFor({{"G7221", "16000", "24000"}}), ElementsAre(kG7221));
  EXPECT_THAT(RegisteredFor({{"G7221", "16000", "32000"}}), ElementsAre(kG7221));
  EXPECT_THAT(RegisteredFor({{"iLBC", "8000", "13330"}}), ElementsAre(kIlbc));
  EXPECT_THAT(RegisteredFor({{"iLBC", "8000", "15200"}}), ElementsAre(kIlbc));
}

TEST_F(CodecRegistration, OrderOfTheConfigurationDoesNotMatter) {
  EXPECT_THAT(RegisteredFor({{"G729", "", ""}, {"PCMU", "", ""}, {"PCMU", "", ""}}), ElementsAre(kPcmu, kG729));
}

TEST_F(CodecRegistration, WithoutCodecsNothingIsRegistered) {
  EXPECT_THAT(Register(configuration_of({})), IsEmpty());
  EXPECT_THAT(Register(parse("<jsr309/>")), IsEmpty());
  EXPECT_THAT(Register(ptree()), IsEmpty());
  EXPECT_THAT(log_.Lines(), IsEmpty());
}

TEST_F(CodecRegistration, NamesAreComparedExactlyAndUnknownOnesIgnored) {
  EXPECT_THAT(RegisteredFor({{"pcmu", "", ""}, {"Amr", "8000", "12200"}, {"OPUS", "48000", "64000"}}), IsEmpty());
  EXPECT_THAT(Register(parse("<jsr309><media><codec><audio><!-- PCMU -->text</audio></codec></media></jsr309>")),
              IsEmpty());
  EXPECT_THAT(log_.Lines(), IsEmpty());
}

TEST_F(CodecRegistration, CodecToldByNameTakesAnyRates) {
  EXPECT_THAT(RegisteredFor({{"PCMU", "48000", "1"}}), ElementsAre(kPcmu));
  EXPECT_THAT(RegisteredFor({{"PCMU", "fast", "none"}}), ElementsAre(kPcmu));
  EXPECT_THAT(log_.Lines(), IsEmpty());
}

TEST_F(CodecRegistration, CodecToldByRatesNeedsBothToMatch) {
  EXPECT_THAT(RegisteredFor({{"AMR", "16000", "12200"}, {"AMR", "8000", "12201"}, {"AMR-WB", "16000", "12200"}}),
              IsEmpty());
  EXPECT_THAT(log_.Lines(), IsEmpty());
}

TEST_F(CodecRegistration, CodecToldByRatesWithoutThemIsLeftOutWithOneWarningEach) {
  EXPECT_THAT(RegisteredFor({{"AMR", "", ""}, {"iLBC", "8000", ""}, {"G7221", "16000", "many"}, {"PCMA", "", ""}}),
              ElementsAre(kPcma));
  EXPECT_THAT(log_.Lines(),
              ElementsAre(warning_line("Codec AMR of the control library's configuration is left out: no numeric "
                                       "sampling_rate\n"),
                          warning_line("Codec iLBC of the control library's configuration is left out: no numeric "
                                       "bit_rate\n"),
                          warning_line("Codec G7221 of the control library's configuration is left out: no numeric "
                                       "bit_rate\n")));
}

TEST_F(CodecRegistration, InterfacesGetParserModuleNameAndIdsOfTheirOwn) {
  const auto codecs = Register(parse(control_library_configuration(every_codec(), "")));
  std::set<uint32_t> ids;
  for (const switch_codec_interface_t* codec : codecs) {
    EXPECT_EQ(codec->parse_fmtp, switch_fmtp_parse);
    EXPECT_STREQ(codec->modname, "the_module");
    EXPECT_NE(codec->codec_id, 0u);
    ids.insert(codec->codec_id);
  }
  EXPECT_EQ(ids.size(), codecs.size());
}

TEST_F(CodecRegistration, ImplementationsAreMonoAudioWithTheCallbacksPassedIn) {
  for (const auto* codec : Register(parse(control_library_configuration(every_codec(), "")))) {
    for (const auto* implementation : Implementations(codec)) {
      EXPECT_EQ(implementation->codec_type, SWITCH_CODEC_TYPE_AUDIO);
      EXPECT_EQ(implementation->number_of_channels, 1);
      EXPECT_EQ(implementation->init, dummy_codec_init);
      EXPECT_EQ(implementation->encode, dummy_codec_encode);
      EXPECT_EQ(implementation->decode, dummy_codec_decode);
      EXPECT_EQ(implementation->destroy, dummy_codec_destroy);
    }
  }
}

TEST_F(CodecRegistration, TextsAreCopiedIntoThePool) {
  const auto codecs = Register(configuration_of({{"PCMU", "", ""}}));
  ASSERT_EQ(codecs.size(), 1u);
  EXPECT_NE(codecs[0]->interface_name, get_codec_from_id(0)->fs_name);
}

TEST_F(CodecRegistration, SecondRegistrationAfterAResetKnowsNothingOfTheFirst) {
  EXPECT_THAT(RegisteredFor({{"PCMU", "", ""}, {"iLBC", "8000", "13330"}}), ElementsAre(kPcmu, kIlbc));
  EXPECT_THAT(RegisteredFor({{"PCMA", "", ""}}), ElementsAre(kPcma));
}

/// Changes an entry of the catalogue for a while. No configuration reaches what the entries as they stand do not ask
/// for: the missing member of a pair, the numbers that are never registered, more than twenty packet times.
class AlteredEntry {
 public:
  explicit AlteredEntry(int codec_id)
      : entry_(const_cast<media_server_codec*>(get_codec_from_id(codec_id))), former_(*entry_) {}
  ~AlteredEntry() { *entry_ = former_; }
  AlteredEntry(const AlteredEntry&) = delete;
  AlteredEntry& operator=(const AlteredEntry&) = delete;

  media_server_codec* operator->() const { return entry_; }

 private:
  media_server_codec* const entry_;
  const media_server_codec former_;
};

TEST_F(CodecRegistration, MissingMemberOfAPairIsLoggedAndTheOtherRegistered) {
  const struct {
    int missing;
    ConfiguredCodec configured;
    const char* message;
    ExpectedCodec left;
  } cases[] = {
      {98, {"iLBC", "8000", "13330"}, "Failed to get iLBC 15.2kbps\n", {"Kelvaro iLBC", {kIlbc.implementations[1]}}},
      {97, {"iLBC", "8000", "15200"}, "Failed to get iLBC 13.3kbps\n", {"Kelvaro iLBC", {kIlbc.implementations[0]}}},
      {90,
       {"AMR", "8000", "12200"},
       "Failed to get AMR 4.75kbps\n",
       {"Kelvaro AMR", {kAmr.implementations[2], kAmr.implementations[3]}}},
      {96,
       {"AMR", "8000", "4750"},
       "Failed to get AMR 12.2kbps\n",
       {"Kelvaro AMR", {kAmr.implementations[0], kAmr.implementations[1]}}},
      {101,
       {"G7221", "16000", "32000"},
       "Failed to get SIREN7 G7221 24kbps\n",
       {"Kelvaro G722.1", {kG7221.implementations[1]}}},
      {102,
       {"G7221", "16000", "24000"},
       "Failed to get SIREN7 G7221 32kbps\n",
       {"Kelvaro G722.1", {kG7221.implementations[0]}}},
  };
  for (const auto& one : cases) {
    log_.Clear();
    const AlteredEntry missing(one.missing);
    missing->codec_id = 1000;
    EXPECT_THAT(RegisteredFor({one.configured}), ElementsAre(one.left));
    EXPECT_THAT(log_.Lines(), ElementsAre(error_line(one.message)));
  }
}

TEST_F(CodecRegistration, TwoNumbersAreNeverRegistered) {
  for (const int never : {10, 118}) {
    const AlteredEntry entry(0);
    entry->codec_id = never;
    EXPECT_THAT(RegisteredFor({{"PCMU", "", ""}, {"PCMA", "", ""}}), ElementsAre(kPcma)) << never;
    EXPECT_EQ(entry->to_load, 1);
  }
}

TEST_F(CodecRegistration, ConfiguredCodecMarksTheFirstEntryThatMatchesAlone) {
  const AlteredEntry second(8);
  second->iana_name = "PCMU";
  EXPECT_THAT(RegisteredFor({{"PCMU", "", ""}}), ElementsAre(kPcmu));
  EXPECT_EQ(second->to_load, 0);
}

TEST_F(CodecRegistration, NoEntryGetsMoreThanTwentyMultiples) {
  const AlteredEntry entry(0);
  entry->maxms = 300;
  entry->mpf = 2000;  // the switch takes even packet times up to 120 ms
  const std::vector<ExpectedCodec> registered = RegisteredFor({{"PCMU", "", ""}});
  ASSERT_EQ(registered.size(), 1u);
  ASSERT_EQ(registered[0].implementations.size(), 20u);
  EXPECT_EQ(registered[0].implementations.back().microseconds, 40000);
}

TEST_F(CodecRegistration, WideBandRuleGoesByTheIanaCode) {
  const AlteredEntry narrow(0), wide(103);
  narrow->iana = 100;
  wide->iana = 99;
  const std::vector<ExpectedCodec> registered = RegisteredFor({{"PCMU", "", ""}, {"AMR-WB", "16000", "23850"}});
  ASSERT_EQ(registered.size(), 2u);
  EXPECT_EQ(registered[0].implementations.size(), 3u);
  for (const ExpectedImplementation& implementation : registered[0].implementations) {
    EXPECT_EQ(implementation.fmtp, "mode-set=0,1,2,3,4,5,6,7,8");
    EXPECT_EQ(implementation.microseconds % 20000, 0);
  }
  EXPECT_EQ(registered[1].implementations.size(), 10u);
  for (const ExpectedImplementation& implementation : registered[1].implementations) {
    EXPECT_EQ(implementation.fmtp, "");
  }
}

TEST(CodecCatalogue, EntriesAreFoundByTheirId) {
  ASSERT_NE(get_codec_from_id(103), nullptr);
  EXPECT_STREQ(get_codec_from_id(103)->iana_name, "AMR-WB");
  EXPECT_EQ(get_codec_from_id(103)->iana, 100);
  EXPECT_EQ(get_codec_from_id(1), nullptr);
  EXPECT_EQ(get_codec_from_id(-1), nullptr);
}

TEST(CodecCatalogue, MarksNothingUntilConfigured) {
  reset_codec_catalogue();
  int entries = 0;
  for (const media_server_codec* entry = g_codec_map; entry->codec_id != -1; ++entry, ++entries) {
    EXPECT_EQ(entry->to_load, 0);
  }
  EXPECT_EQ(entries, 17);
}

TEST_F(CodecRegistration, IntersectionMarksTheEntryConfiguredAndNotItsSister) {
  mscodec_intersectwith_morvanecodec(configuration_of({{"AMR", "8000", "12200"}, {"G7221", "16000", "24000"}}));
  EXPECT_EQ(get_codec_from_id(96)->to_load, 1);
  EXPECT_EQ(get_codec_from_id(90)->to_load, 0);
  EXPECT_EQ(get_codec_from_id(101)->to_load, 1);
  EXPECT_EQ(get_codec_from_id(102)->to_load, 0);
}

}  // namespace module_test
