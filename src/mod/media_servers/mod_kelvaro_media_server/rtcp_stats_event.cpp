#include <cstdint>
#include <cstdio>
#include <ctime>

#include "mod_kelvaro_media_server.h"

using kelvaro::jsr309::RtcpStatsReport;

namespace {

/// Counters of one direction from here on are taken for garbage: a call does not send that many packets.
const uint64_t kImplausiblePacketCount = UINT64_C(1) << 32;

/// What both events of a report say of the leg.
struct LegFacts {
  const char* uuid;
  const char* local_ip;
  const char* remote_ip;
  const char* start_time;  ///< null: not known
  const char* codec;
  unsigned codec_rate;
};

/// One direction of a report: the sender's counts from whoever sent, losses and jitter from whoever received.
struct Stream {
  const char* name;  ///< as the log calls it
  const char* inflow_flag;
  uint64_t packets;
  uint64_t octets;
  unsigned long sender_reports;
  unsigned long lost;
  unsigned max_fraction_lost;
  uint32_t max_jitter;
  uint32_t avg_jitter;
  unsigned long max_round_trip;
  unsigned long avg_round_trip;
};

Stream inflow_of(const RtcpStatsReport& report) {
  return {"inflow",
          "1",
          report.rssRTPPacketsSent,
          report.rssBytesSent,
          report.rssSenderReportCnt,
          report.lrsTotalLostRTPPacketsCnt,
          report.lrsMaxFractionLost,
          report.lrsMaxInterArrivalJitter,
          report.lrsAvgInterArrivalJitter,
          report.maxroundtriptime,
          report.avgroundtriptime};
}

Stream outflow_of(const RtcpStatsReport& report) {
  return {"outflow",
          "0",
          report.lssRTPPacketsSent,
          report.lssBytesSent,
          report.lssSenderReportCnt,
          report.rrsTotalLostRTPPacketsCnt,
          report.rrsMaxFractionLost,
          report.rrsMaxInterArrivalJitter,
          report.rrsAvgInterArrivalJitter,
          report.maxroundtriptime,
          report.avgroundtriptime};
}

unsigned long long printable(uint64_t count) {
  return count;
}

void add_text(switch_event_t* event, const char* name, const char* value) {
  if (value) switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, name, value);
}

template <typename Number>
void add_number(switch_event_t* event, const char* name, const char* format, Number number) {
  char buffer[30];
  std::snprintf(buffer, sizeof(buffer), format, number);
  add_text(event, name, buffer);
}

void add_stop_time(switch_event_t* event) {
  char buffer[30];
  const time_t now = std::time(NULL);
  struct tm local = {};
  localtime_r(&now, &local);
  std::strftime(buffer, sizeof(buffer), "%Y-%m-%d %H:%M:%S", &local);
  add_text(event, "Session-Stop-Time", buffer);
}

/// A far end can report more losses than packets were sent (duplicates count against it); consumers must not see that.
void add_lost_packets(switch_event_t* event, const LegFacts& leg, const Stream& stream) {
  if (stream.lost <= stream.packets) {
    add_number(event, "Total-Lost-RTP-Packets", "%lu", stream.lost);
    return;
  }
  add_number(event, "Total-Lost-RTP-Packets", "%llu", printable(stream.packets));
  if (stream.packets != 0) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG,
                      "Packets lost count (%lu) is bigger than packets sent count (%llu) for %s stream uuid %s\n",
                      stream.lost, printable(stream.packets), stream.name, leg.uuid);
  }
}

void add_leg(switch_event_t* event, const LegFacts& leg, const Stream& stream) {
  add_text(event, "Unique-ID", leg.uuid);
  add_text(event, "Inflow-RTP-Flag", stream.inflow_flag);
  add_stop_time(event);
  add_text(event, "Session-Start-Time", leg.start_time);
  add_text(event, "Local-Member-IP", leg.local_ip);
  add_text(event, "Remote-Member-IP", leg.remote_ip);
}

void add_statistics(switch_event_t* event, const LegFacts& leg, const Stream& stream) {
  add_number(event, "Sender-Packet-Count", "%llu", printable(stream.packets));
  add_number(event, "Octect-Packet-Count", "%llu", printable(stream.octets));
  add_number(event, "SR-Sent-Count", "%lu", stream.sender_reports);
  add_lost_packets(event, leg, stream);
  add_number(event, "Maximum-Fraction-Lost", "%u", stream.max_fraction_lost);
  add_number(event, "Maximum-InterArrival-Jitter", "%u", stream.max_jitter);
  add_number(event, "Average-InterArrival-Jitter", "%u", stream.avg_jitter);
  add_number(event, "Maximum-Round-Trip-Time", "%lu", stream.max_round_trip);
  add_number(event, "Average-Round-Trip-Time", "%lu", stream.avg_round_trip);
  add_text(event, "Sip-Use-Codec", leg.codec);
  add_number(event, "Sip-Use-Codec-Rate", "%u", leg.codec_rate);
  add_number(event, "Capture-Time", "%ld", static_cast<long>(switch_time_now()));
}

/// False when the stream's packet count cannot be true; its event is then not sent. An event that cannot be made is
/// passed over without a word.
bool publish(const LegFacts& leg, const Stream& stream) {
  switch_event_t* event = NULL;
  if (switch_event_create(&event, SWITCH_EVENT_RECV_RTCP_MESSAGE) != SWITCH_STATUS_SUCCESS) return true;

  add_leg(event, leg, stream);
  if (stream.packets >= kImplausiblePacketCount) {
    switch_log_printf(
        SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING,
        "Abort firing rtcp stats for uuid %s %s stream, because packet count is abnormaly too big(%llu)\n", leg.uuid,
        stream.name, printable(stream.packets));
    switch_event_destroy(&event);
    return false;
  }
  add_statistics(event, leg, stream);
  if (switch_event_fire(&event) != SWITCH_STATUS_SUCCESS) switch_event_destroy(&event);
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG10, "Dispatched RTCP event for %s RTP\n", stream.name);
  return true;
}

}  // namespace

void distribute_rtcpstats_event(const char* uuid, const RtcpStatsReport* rtcpstats, const char* localrtpip,
                                const char* remotertpip, const char* time_start, const char* mycodec,
                                unsigned mycodecrate) {
  const LegFacts leg = {uuid, localrtpip, remotertpip, time_start, mycodec, mycodecrate};
  // A far end that counts nonsense is not believed about what we sent either.
  if (publish(leg, inflow_of(*rtcpstats))) publish(leg, outflow_of(*rtcpstats));
}
