#include "sip/codec_negotiation.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>

namespace kvx_switch {

namespace {

constexpr uint32_t kUsualPacketTime = 20;
constexpr const char* kTelephoneEvent = "telephone-event";

bool SameText(const std::string& a, const char* b) {
  return strcasecmp(a.c_str(), b) == 0;
}

uint32_t PacketTimeOf(const switch_codec_implementation_t& codec) {
  return static_cast<uint32_t>(codec.microseconds_per_packet / 1000);
}

/// The parameters that tell implementations of one name apart: "bitrate" (RFC 5577) has to be the same; "mode" (RFC
/// 3952) too, and a far end that gives none means 30.
bool SameVariant(const switch_codec_implementation_t& codec, const SdpPayload& payload) {
  std::string own = codec.fmtp ? codec.fmtp : "";
  std::string bitrate = FmtpParameter(own, "bitrate");
  if (!bitrate.empty() && bitrate != FmtpParameter(payload.fmtp, "bitrate")) return false;
  std::string mode = FmtpParameter(own, "mode");
  if (mode.empty()) return true;
  std::string wanted = FmtpParameter(payload.fmtp, "mode");
  return mode == (wanted.empty() ? "30" : wanted);
}

bool Serves(const switch_codec_implementation_t& codec, const SdpPayload& payload) {
  return codec.codec_type == SWITCH_CODEC_TYPE_AUDIO && SameText(payload.name, codec.iananame) &&
         codec.samples_per_second == payload.rate && codec.number_of_channels == payload.channels &&
         SameVariant(codec, payload);
}

/// Nearer to the packet time first; of two bit rates the higher, since the far end may send up to it.
bool Better(const switch_codec_implementation_t& a, const switch_codec_implementation_t& b, uint32_t packet_time) {
  auto distance = [packet_time](const switch_codec_implementation_t& codec) {
    return std::abs(static_cast<int>(PacketTimeOf(codec)) - static_cast<int>(packet_time));
  };
  if (distance(a) != distance(b)) return distance(a) < distance(b);
  if (a.microseconds_per_packet != b.microseconds_per_packet) {
    return a.microseconds_per_packet < b.microseconds_per_packet;
  }
  return a.bits_per_second > b.bits_per_second;
}

bool Named(const switch_codec_implementation_t& codec, const std::string& preference) {
  std::string copy = preference;
  uint32_t interval = 0, rate = 0, bit_rate = 0, channels = 0;
  char* module = nullptr;
  char* fmtp = nullptr;
  const char* name = switch_parse_codec_buf(copy.data(), &interval, &rate, &bit_rate, &channels, &module, &fmtp);
  return name && strcasecmp(name, codec.iananame) == 0 && (!interval || interval == PacketTimeOf(codec)) &&
         (!rate || rate == codec.samples_per_second) &&
         (!bit_rate || static_cast<int>(bit_rate) == codec.bits_per_second) &&
         (!module || (codec.modname && strcasecmp(module, codec.modname) == 0));
}

/// RFC 4856, 2.1.4 and 2.1.9.
const char* AnnexParameter(const SdpPayload& payload) {
  if (SameText(payload.name, "G729")) return "annexb";
  return SameText(payload.name, "G723") ? "annexa" : nullptr;
}

void AddName(std::string& names, const std::string& name, uint32_t rate) {
  std::string entry = name + "/" + std::to_string(rate);
  if ((", " + names + ",").find(", " + entry + ",") != std::string::npos) return;
  names += (names.empty() ? "" : ", ") + entry;
}

}  // namespace

CodecImplementations RegisteredCodecs() {
  CodecImplementations codecs(1024);
  int count = switch_loadable_module_get_codecs(codecs.data(), static_cast<int>(codecs.size()));
  codecs.resize(static_cast<size_t>(std::max(count, 0)));
  codecs.erase(std::remove_if(codecs.begin(), codecs.end(),
                              [](const switch_codec_implementation_t* codec) {
                                return codec->codec_type != SWITCH_CODEC_TYPE_AUDIO;
                              }),
               codecs.end());
  return codecs;
}

CodecImplementations PreferredCodecs(const CodecImplementations& codecs, const std::vector<std::string>& prefs) {
  if (prefs.empty()) return codecs;
  CodecImplementations preferred;
  for (const switch_codec_implementation_t* codec : codecs) {
    auto named = [codec](const std::string& preference) { return Named(*codec, preference); };
    if (std::any_of(prefs.begin(), prefs.end(), named)) preferred.push_back(codec);
  }
  return preferred;
}

std::vector<CodecMatch> CommonCodecs(const SdpMedia& stream, const CodecImplementations& codecs) {
  uint32_t packet_time = stream.packet_time ? stream.packet_time : kUsualPacketTime;
  std::vector<CodecMatch> common;
  for (const SdpPayload& payload : stream.payloads) {
    const switch_codec_implementation_t* best = nullptr;
    for (const switch_codec_implementation_t* codec : codecs) {
      if (Serves(*codec, payload) && (!best || Better(*codec, *best, packet_time))) best = codec;
    }
    if (best) common.push_back({best, payload});
  }
  return common;
}

std::vector<CodecMatch> EverythingToOffer(const CodecImplementations& codecs, bool g729_annex_b) {
  SdpMedia stream;
  for (const switch_codec_implementation_t* codec : codecs) {
    const auto same = [codec](const SdpPayload& payload) { return payload.type == codec->ianacode; };
    if (std::any_of(stream.payloads.begin(), stream.payloads.end(), same)) continue;
    stream.payloads.push_back(OfferedPayload({codec, {}}));
  }
  std::vector<CodecMatch> offered = CommonCodecs(stream, codecs);
  if (!g729_annex_b) RefuseAnnexB(offered);
  return offered;
}

const SdpPayload* FindTelephoneEvent(const SdpMedia& stream, uint32_t rate) {
  const SdpPayload* found = nullptr;
  for (const SdpPayload& payload : stream.payloads) {
    if (!SameText(payload.name, kTelephoneEvent)) continue;
    if (payload.rate == rate) return &payload;
    if (!found) found = &payload;
  }
  return found;
}

SdpPayload OfferedPayload(const CodecMatch& match) {
  const switch_codec_implementation_t& codec = *match.implementation;
  SdpPayload payload;
  payload.type = codec.ianacode;
  payload.name = codec.iananame;
  payload.rate = codec.samples_per_second;
  payload.channels = codec.number_of_channels;
  payload.fmtp = !match.remote.fmtp.empty() ? match.remote.fmtp : codec.fmtp ? codec.fmtp : "";
  return payload;
}

SdpPayload AnsweredPayload(const CodecMatch& match) {
  SdpPayload payload = OfferedPayload(match);
  payload.type = match.remote.type;
  payload.fmtp = match.remote.fmtp;
  // The mode is the receiver's to lower (RFC 3952, 4.2): what runs counts, not what was offered.
  const char* own = match.implementation->fmtp;
  if (own && !FmtpParameter(own, "mode").empty()) payload.fmtp = own;
  return payload;
}

uint8_t FreePayloadType(uint8_t wanted, const std::vector<SdpPayload>& taken) {
  auto is_taken = [&taken](uint8_t type) {
    return std::any_of(taken.begin(), taken.end(), [type](const SdpPayload& payload) { return payload.type == type; });
  };
  for (uint8_t type = wanted; type <= 127; ++type) {
    if (!is_taken(type)) return type;
  }
  uint8_t type = 96;
  while (is_taken(type) && type < 127) ++type;
  return type;
}

SdpPayload TelephoneEventPayload(uint8_t type, uint32_t rate) {
  SdpPayload payload;
  payload.type = type;
  payload.name = kTelephoneEvent;
  payload.rate = rate;
  payload.fmtp = "0-15";
  return payload;
}

std::string FmtpParameter(const std::string& fmtp, const std::string& key) {
  size_t position = 0;
  while (position < fmtp.size()) {
    size_t end = std::min(fmtp.find(';', position), fmtp.size());
    size_t start = std::min(fmtp.find_first_not_of(" \t", position), end);
    size_t equals = fmtp.find('=', start);
    if (equals < end && SameText(fmtp.substr(start, equals - start), key.c_str())) {
      std::string value = fmtp.substr(equals + 1, end - equals - 1);
      return value.substr(0, value.find_last_not_of(" \t") + 1);
    }
    position = end + 1;
  }
  return "";
}

bool RefusesSilenceFrames(const SdpPayload& payload) {
  const char* annex = AnnexParameter(payload);
  return annex && SameText(FmtpParameter(payload.fmtp, annex), "no");
}

void RefuseSilenceFrames(SdpPayload& payload) {
  const char* annex = AnnexParameter(payload);
  if (!annex || RefusesSilenceFrames(payload)) return;
  const size_t said = FmtpParameter(payload.fmtp, annex).empty() ? std::string::npos : payload.fmtp.find(annex);
  if (said != std::string::npos) payload.fmtp.erase(said, payload.fmtp.find(';', said) - said);
  if (!payload.fmtp.empty() && payload.fmtp.back() != ';') payload.fmtp += ';';
  payload.fmtp += std::string(annex) + "=no";
}

void RefuseAnnexB(std::vector<CodecMatch>& matches) {
  for (CodecMatch& match : matches) {
    if (SameText(match.remote.name, "G729")) RefuseSilenceFrames(match.remote);
  }
}

bool SameCodec(const switch_codec_implementation_t& a, const switch_codec_implementation_t& b) {
  return strcasecmp(a.iananame, b.iananame) == 0 && a.samples_per_second == b.samples_per_second &&
         a.number_of_channels == b.number_of_channels;
}

bool CodecsGoTogether(const CodecMatch& a, const CodecMatch& b) {
  const auto is_g711 = [](const CodecMatch& match) {
    const char* name = match.implementation->iananame;
    return strcasecmp(name, "PCMU") == 0 || strcasecmp(name, "PCMA") == 0;
  };
  if (is_g711(a) && is_g711(b)) return true;
  // AMR: the two ways of packing frames are not translated either (RFC 4867, 8.1); other codecs have no such parameter.
  const bool aligned_a = FmtpParameter(a.remote.fmtp, "octet-align") == "1";
  const bool aligned_b = FmtpParameter(b.remote.fmtp, "octet-align") == "1";
  return SameCodec(*a.implementation, *b.implementation) && aligned_a == aligned_b;
}

std::string CodecNames(const SdpMedia& stream) {
  std::string names;
  for (const SdpPayload& payload : stream.payloads) {
    if (payload.name.empty())
      AddName(names, "payload type " + std::to_string(payload.type), payload.rate);
    else
      AddName(names, payload.name, payload.rate);
  }
  return names;
}

std::string CodecNames(const CodecImplementations& codecs) {
  std::string names;
  for (const switch_codec_implementation_t* codec : codecs) AddName(names, codec->iananame, codec->samples_per_second);
  return names;
}

}  // namespace kvx_switch
