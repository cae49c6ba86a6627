#include "stream_record.h"

#include <algorithm>

namespace media_engine {
namespace {

uint64_t Microseconds(uint32_t short_ntp) {
  return (uint64_t{short_ntp} * 1000000 + 0x8000) >> 16;
}

}  // namespace

void StreamRecord::Add(const StreamRecord& later) {
  remote_ssrc = later.remote_ssrc;
  packets_sent += later.packets_sent;
  octets_sent += later.octets_sent;
  sender_reports_sent += later.sender_reports_sent;
  packets_received += later.packets_received;
  packets_lost += later.packets_lost;
  fraction_lost_maximum = std::max(fraction_lost_maximum, later.fraction_lost_maximum);
  jitter.Add(later.jitter);
  remote_packets_sent += later.remote_packets_sent;
  remote_octets_sent += later.remote_octets_sent;
  sender_reports_received += later.sender_reports_received;
  remote_packets_lost += later.remote_packets_lost;
  remote_fraction_lost_maximum = std::max(remote_fraction_lost_maximum, later.remote_fraction_lost_maximum);
  remote_jitter.Add(later.remote_jitter);
  round_trip.Add(later.round_trip);
}

StreamStatistics StreamRecord::Read() const {
  StreamStatistics read;
  read.remote_ssrc = remote_ssrc;
  read.packets_sent = packets_sent;
  read.octets_sent = octets_sent;
  read.sender_reports_sent = sender_reports_sent;
  read.packets_received = packets_received;
  read.packets_lost = packets_lost;
  read.fraction_lost_maximum = fraction_lost_maximum;
  read.jitter_maximum = jitter.maximum();
  read.jitter_average = jitter.average();
  read.remote_packets_sent = remote_packets_sent;
  read.remote_octets_sent = remote_octets_sent;
  read.sender_reports_received = sender_reports_received;
  read.remote_packets_lost = remote_packets_lost;
  read.remote_fraction_lost_maximum = remote_fraction_lost_maximum;
  read.remote_jitter_maximum = remote_jitter.maximum();
  read.remote_jitter_average = remote_jitter.average();
  read.round_trip_maximum_us = Microseconds(round_trip.maximum());
  read.round_trip_average_us = Microseconds(round_trip.average());
  return read;
}

}  // namespace media_engine
