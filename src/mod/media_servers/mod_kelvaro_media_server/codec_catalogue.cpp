#include <boost/optional.hpp>
#include <boost/property_tree/ptree.hpp>
#include <optional>
#include <string>

#include "codecs.h"

// clang-format off
media_server_codec g_codec_map[] = {
  // id iana  iana_name  fs_name                 maxms   bps    mpf  spf bpfd bpfc   rate actual auto name to_load
  {   0,   0, "PCMU",    "Kelvaro PCMU",            60, 64000, 10000,  80, 160,  80,  8000,  8000, 1, 1, 0},
  {   8,   8, "PCMA",    "Kelvaro PCMA",            60, 64000, 10000,  80, 160,  80,  8000,  8000, 1, 1, 0},
  { 124, 124, "G726-16", "Kelvaro G.726 16k",       30, 16000, 10000,  80, 160,  40,  8000,  8000, 1, 1, 0},
  { 123, 123, "G726-24", "Kelvaro G.726 24k",       30, 24000, 10000,  80, 160,  40,  8000,  8000, 1, 1, 0},
  { 122, 122, "G726-32", "Kelvaro G.726 32k",       30, 32000, 10000,  80, 160,  40,  8000,  8000, 1, 1, 0},
  { 121, 121, "G726-40", "Kelvaro G.726 40k",       30, 40000, 10000,  80, 160,  40,  8000,  8000, 1, 1, 0},
  {   9,   9, "G722",    "Kelvaro G722",            40, 64000, 10000,  80, 160,  80,  8000,  8000, 1, 1, 0},
  {   3,   3, "GSM",     "Kelvaro GSM",             20, 13200, 20000, 160, 320,  33,  8000,  8000, 0, 1, 0},
  {   4,   4, "G723",    "Kelvaro G723",            30,  6300, 30000, 240, 480,  24,  8000,  8000, 1, 1, 0},
  {  90,  96, "AMR",     "Kelvaro AMR",             40,  4750, 10000,  80, 160,   0,  8000,  8000, 0, 0, 0},
  {  96,  96, "AMR",     "Kelvaro AMR",             40, 12200, 10000,  80, 160,   0,  8000,  8000, 0, 0, 0},
  { 103, 100, "AMR-WB",  "Kelvaro AMR-WB 23.85k",  100, 23850, 10000, 160, 320,   0, 16000, 16000, 1, 0, 0},
  { 101, 107, "G7221",   "Kelvaro G722.1",          20, 24000, 20000, 320, 640,  80, 16000, 16000, 0, 0, 0},
  { 102, 108, "G7221",   "Kelvaro G722.1",          20, 32000, 20000, 320, 640,  80, 16000, 16000, 0, 0, 0},
  {  97,  97, "iLBC",    "Kelvaro iLBC",            30, 13330, 30000, 240, 480,  50,  8000,  8000, 0, 0, 0},
  {  98,  98, "iLBC",    "Kelvaro iLBC",            20, 15200, 20000, 160, 320,  38,  8000,  8000, 0, 0, 0},
  {  18,  18, "G729",    "Kelvaro G729",           120,  8000, 10000,  80, 160,  10,  8000,  8000, 1, 1, 0},
  {  -1,  -1, "",        "",                         0,     0,     0,   0,   0,   0,     0,     0, 0, 0, 0},
};
// clang-format on

namespace {

using boost::property_tree::ptree;

struct Rates {
  unsigned sampling_rate;
  unsigned bit_rate;
};

std::optional<Rates> read_rates(const std::string& name, const ptree& codec) {
  const boost::optional<unsigned> sampling_rate = codec.get_optional<unsigned>("sampling_rate");
  const boost::optional<unsigned> bit_rate = codec.get_optional<unsigned>("bit_rate");
  if (sampling_rate && bit_rate) return Rates{*sampling_rate, *bit_rate};
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING,
                    "Codec %s of the control library's configuration is left out: no numeric %s\n", name.c_str(),
                    sampling_rate ? "bit_rate" : "sampling_rate");
  return std::nullopt;
}

void mark_configured(const std::string& name, const ptree& codec) {
  std::optional<Rates> rates;
  for (media_server_codec* entry = g_codec_map; entry->codec_id != -1; ++entry) {
    if (name != entry->iana_name) continue;
    if (entry->iananame_check_only == 0) {
      if (!rates) rates = read_rates(name, codec);
      if (!rates) return;
      const bool same = rates->sampling_rate == static_cast<unsigned>(entry->sampling_rate) &&
                        rates->bit_rate == static_cast<unsigned>(entry->bps);
      if (!same) continue;
    }
    entry->to_load = 1;
    return;
  }
}

}  // namespace

void reset_codec_catalogue() {
  for (media_server_codec* entry = g_codec_map; entry->codec_id != -1; ++entry) entry->to_load = 0;
}

const media_server_codec* get_codec_from_id(int id) {
  for (const media_server_codec* entry = g_codec_map; entry->codec_id != -1; ++entry) {
    if (entry->codec_id == id) return entry;
  }
  return nullptr;
}

bool mscodec_intersectwith_morvanecodec(const ptree& tree) {
  const boost::optional<const ptree&> codecs = tree.get_child_optional("jsr309.media.codec.audio");
  if (!codecs) return true;
  for (const ptree::value_type& codec : *codecs) mark_configured(codec.first, codec.second);
  return true;
}
