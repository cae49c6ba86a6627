#pragma once

#include <switch.h>

#include <string>
#include <vector>

#include "sip/sdp.h"

/// Which registered codecs fit what a far end offers, by name, clock rate, channels, packet time and the parameters
/// that choose a bit rate or a mode. Implementations are borrowed from the modules that registered them.
namespace kvx_switch {

using CodecImplementations = std::vector<const switch_codec_implementation_t*>;

/// A payload type of the far end together with the implementation that serves it.
struct CodecMatch {
  const switch_codec_implementation_t* implementation = nullptr;
  SdpPayload remote;

  uint32_t PacketTime() const { return static_cast<uint32_t>(implementation->microseconds_per_packet / 1000); }
};

/// Every audio codec that loaded modules registered.
CodecImplementations RegisteredCodecs();

/// Those that `prefs` (NAME, NAME@20i, NAME@8000h, NAME@20i@8000h) name; all of them when there are no preferences.
CodecImplementations PreferredCodecs(const CodecImplementations& codecs, const std::vector<std::string>& prefs);

/// The same encoding, whatever the packet time.
bool SameCodec(const switch_codec_implementation_t& a, const switch_codec_implementation_t& b);
/// Two legs with these can be joined: the encoding is the same, or the media server converts (G.711).
bool CodecsGoTogether(const CodecMatch& a, const CodecMatch& b);

/// What of the stream we can take, in the stream's order of preference, each payload type with the implementation whose
/// packet time is nearest to the stream's (20 ms when it names none).
std::vector<CodecMatch> CommonCodecs(const SdpMedia& stream, const CodecImplementations& codecs);

/// What we offer of our own accord: each codec once, as a far end could offer it, at the packet time that phones
/// expect.
std::vector<CodecMatch> EverythingToOffer(const CodecImplementations& codecs, bool g729_annex_b);

/// The RFC 4733 payload type of the stream for a codec of `rate`, another rate's if there is none; null when the stream
/// has none at all.
const SdpPayload* FindTelephoneEvent(const SdpMedia& stream, uint32_t rate);

/// The payload that offers `match` to another far end: our payload type, the parameters as its caller has them.
SdpPayload OfferedPayload(const CodecMatch& match);
/// The payload that accepts `match`: the offerer's payload type and parameters.
SdpPayload AnsweredPayload(const CodecMatch& match);
/// `wanted`, or another dynamic payload type when one of `taken` has it.
uint8_t FreePayloadType(uint8_t wanted, const std::vector<SdpPayload>& taken);
SdpPayload TelephoneEventPayload(uint8_t type, uint32_t rate);

/// The value of `key` in "key=value;key=value"; "" when it is not there.
std::string FmtpParameter(const std::string& fmtp, const std::string& key);

/// Silence frames (Annex B of G.729, Annex A of G.723.1) are sent unless somebody says no, and then by nobody: whether
/// the parameters say so ("annexb=no"), and making them say so. Other codecs have no such parameter.
bool RefusesSilenceFrames(const SdpPayload& payload);
void RefuseSilenceFrames(SdpPayload& payload);
/// The same for every G.729 of the list.
void RefuseAnnexB(std::vector<CodecMatch>& matches);

/// "PCMU/8000, G729/8000", each name once: for log lines.
std::string CodecNames(const SdpMedia& stream);
std::string CodecNames(const CodecImplementations& codecs);

}  // namespace kvx_switch
