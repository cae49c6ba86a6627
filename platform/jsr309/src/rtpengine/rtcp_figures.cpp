#include "rtpengine/rtcp_figures.h"

#include <algorithm>
#include <string>

namespace kelvaro::jsr309::rtpengine {
namespace {

constexpr uint64_t kRtpHeader = 12;  // RFC 3550, section 5.1

/// An entry of a list that stands under that key; null when there is none.
const Dictionary* ItemOf(const Dictionary& dictionary, const char* key, std::size_t index) {
  const auto found = dictionary.find(key);
  const Bencode::List* const items = found == dictionary.end() ? nullptr : found->second.Items();
  return items == nullptr || index >= items->size() ? nullptr : (*items)[index].Entries();
}

const Dictionary* MediaOf(const Dictionary& query, const char* tag) {
  const Dictionary* const tags = EntriesOf(query, "tags");
  const Dictionary* const side = tags == nullptr ? nullptr : EntriesOf(*tags, tag);
  return side == nullptr ? nullptr : ItemOf(*side, "medias", 0);
}

/// index: 0 for RTP, 1 for RTCP.
const Dictionary* StreamOf(const Dictionary& query, const char* tag, std::size_t index) {
  const Dictionary* const media = MediaOf(query, tag);
  return media == nullptr ? nullptr : ItemOf(*media, "streams", index);
}

uint64_t CountOf(const Dictionary& dictionary, const char* key) {
  return static_cast<uint64_t>(std::max<int64_t>(0, NumberOf(dictionary, key).value_or(0)));
}

bool HasFlag(const Dictionary& dictionary, const std::string& flag) {
  const auto found = dictionary.find("flags");
  const Bencode::List* const flags = found == dictionary.end() ? nullptr : found->second.Items();
  return flags != nullptr && std::any_of(flags->begin(), flags->end(), [&flag](const Bencode& one) {
           return one.Text() != nullptr && *one.Text() == flag;
         });
}

const Dictionary* SourceOf(const Dictionary& query, uint32_t ssrc) {
  const Dictionary* const sources = EntriesOf(query, "SSRC");
  return sources == nullptr ? nullptr : EntriesOf(*sources, std::to_string(ssrc));
}

/// Daemons keep milliseconds; reports are in timestamp units.
uint32_t JitterOf(const Dictionary& source, const char* sample, uint32_t clock_rate) {
  const Dictionary* const figures = EntriesOf(source, sample);
  return figures == nullptr ? 0 : static_cast<uint32_t>(CountOf(*figures, "jitter") * clock_rate / 1000);
}

/// The worst of what was sampled; the samples that are kept are those of the best and the worst quality.
uint32_t WorstJitter(const Dictionary& source, uint32_t clock_rate) {
  uint32_t worst = 0;
  for (const char* sample : {"highest MOS", "lowest MOS", "average MOS"}) {
    worst = std::max(worst, JitterOf(source, sample, clock_rate));
  }
  return worst;
}

/// Between the daemon and the far end, in microseconds.
uint64_t RoundTripOf(const Dictionary& source, const char* sample) {
  const Dictionary* const figures = EntriesOf(source, sample);
  if (figures == nullptr) return 0;
  const uint64_t of_leg = CountOf(*figures, "round-trip time leg");
  return of_leg != 0 ? of_leg : CountOf(*figures, "round-trip time");
}

unsigned long Milliseconds(uint64_t microseconds) {
  return static_cast<unsigned long>((microseconds + 500) / 1000);
}

/// Loss is told in percent.
uint8_t WorstFraction(const Dictionary& source) {
  uint64_t percent = 0;
  for (const char* sample : {"highest MOS", "lowest MOS", "average MOS"}) {
    if (const Dictionary* const figures = EntriesOf(source, sample)) {
      percent = std::max(percent, CountOf(*figures, "packet loss"));
    }
  }
  return static_cast<uint8_t>(std::min<uint64_t>(255, percent * 256 / 100));
}

/// What the far end reports of what it gets.
void FillRemoteReceiver(const Dictionary& source, uint32_t clock_rate, RtcpStatsReport& report) {
  report.rrsTotalLostRTPPacketsCnt = static_cast<unsigned long>(CountOf(source, "cumulative loss"));
  report.rrsMaxFractionLost = WorstFraction(source);
  report.rrsMaxInterArrivalJitter = WorstJitter(source, clock_rate);
  report.rrsAvgInterArrivalJitter = JitterOf(source, "average MOS", clock_rate);
  report.avgroundtriptime = Milliseconds(RoundTripOf(source, "average MOS"));
  report.maxroundtriptime = std::max({report.avgroundtriptime, Milliseconds(RoundTripOf(source, "highest MOS")),
                                      Milliseconds(RoundTripOf(source, "lowest MOS"))});
}

/// What is known of the far end's stream, as whoever gets it at the other end of the call reports it.
void FillLocalReceiver(const Dictionary& source, uint32_t clock_rate, RtcpStatsReport& report) {
  report.lrsTotalLostRTPPacketsCnt = static_cast<unsigned long>(CountOf(source, "cumulative loss"));
  report.lrsMaxFractionLost = WorstFraction(source);
  report.lrsMaxInterArrivalJitter = WorstJitter(source, clock_rate);
  report.lrsAvgInterArrivalJitter = JitterOf(source, "average MOS", clock_rate);
}

}  // namespace

StreamFigures ReadFigures(const Dictionary& query, const char* tag) {
  StreamFigures figures;
  const Dictionary* const stream = StreamOf(query, tag, 0);
  const Dictionary* const counts = stream == nullptr ? nullptr : EntriesOf(*stream, "stats");
  if (counts == nullptr) return figures;
  const uint64_t came = CountOf(*counts, "packets"), bad = CountOf(*counts, "errors");
  figures.packets = came - std::min(came, bad);
  const uint64_t octets = CountOf(*counts, "bytes"), headers = kRtpHeader * figures.packets;
  figures.octets = octets - std::min(octets, headers);
  figures.ssrc = static_cast<uint32_t>(CountOf(*stream, "SSRC"));
  return figures;
}

NgPlace ReadFoundPlace(const Dictionary& query) {
  const Dictionary *const media = MediaOf(query, "leg"), *const rtp = StreamOf(query, "leg", 0);
  if (media == nullptr || rtp == nullptr || HasFlag(*media, "asymmetric") || !HasFlag(*rtp, "confirmed")) return {};
  const Dictionary* const endpoint = EntriesOf(*rtp, "endpoint");
  if (endpoint == nullptr) return {};
  NgPlace place{TextOf(*endpoint, "address"), static_cast<uint16_t>(CountOf(*endpoint, "port")), 0};
  const Dictionary* const rtcp = StreamOf(query, "leg", 1);
  const Dictionary* const reports = rtcp == nullptr ? nullptr : EntriesOf(*rtcp, "endpoint");
  if (reports != nullptr) place.rtcp_port = static_cast<uint16_t>(CountOf(*reports, "port"));
  return place;
}

std::vector<RtcpStatsReport> ReadReports(const Dictionary& query, uint32_t clock_rate) {
  const StreamFigures in = ReadFigures(query, "leg"), out = ReadFigures(query, "bus");
  if (in.packets == 0 && out.packets == 0) return {};
  RtcpStatsReport report;
  report.lssRTPPacketsSent = out.packets;
  report.lssBytesSent = out.octets;
  // What the far end's sender reports say is not told; losses of no packets at all would mean nothing to anybody.
  report.rssRTPPacketsSent = in.packets;
  report.rssBytesSent = in.octets;
  // Under a source stands what it has reported of what it gets.
  if (const Dictionary* const source = SourceOf(query, in.ssrc)) FillRemoteReceiver(*source, clock_rate, report);
  if (const Dictionary* const source = SourceOf(query, out.ssrc)) FillLocalReceiver(*source, clock_rate, report);
  return {report};
}

}  // namespace kelvaro::jsr309::rtpengine
