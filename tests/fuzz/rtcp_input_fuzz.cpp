// Whatever comes as RTCP: no look beyond a packet, nothing that lies is believed, and strangers change nothing.
//
// Input: for each packet an octet of instructions (1: to the first leg; 2: from another host; 4: from another port of
// the far end's host; 8: media goes both ways before; 16: our timers run before; the rest: half seconds that pass
// before), two octets of length, the packet. Words of the packet that no input could guess stand for what they are
// replaced with: 0xaaaaaaaa our SSRC, 0xbbbbbbbb the far end's, 0xcccccccc the stamp of our sender report.
#include <algorithm>
#include <memory>

#include "fuzz_call.h"
#include "fuzz_input.h"
#include "rtcp_packet.h"

namespace {

using fuzz::Bytes;
using fuzz::Require;
using fuzz::RtcpFrom;
using namespace media_engine;

/// Of everything read, so that it is read.
volatile uint32_t checksum = 0;

/// Alone, with nothing behind its end: reads whatever its parts say there is.
bool ReadAlone(const Bytes& packet) {
  const std::unique_ptr<uint8_t[]> exact(new uint8_t[packet.size()]);
  std::copy(packet.begin(), packet.end(), exact.get());
  std::optional<RtcpCompound> compound = RtcpCompound::Parse(exact.get(), packet.size());
  if (!compound) return false;
  Require(compound->length() == packet.size(), "a compound is the whole packet");
  uint32_t sum = compound->reporter();
  std::size_t parts = 0;
  for (RtcpPart part; compound->Next(part); ++parts) {
    const bool is_report = part.type() == kSenderReport || part.type() == kReceiverReport;
    Require(parts > 0 || is_report, "a compound begins with a report");
    Require(part.count() <= 31, "a count has five bits");
    if (part.type() == kSenderReport) sum += part.sender().octets;
    for (unsigned i = 0; i < part.count(); ++i) {
      if (is_report) sum += part.block(i).since_sender_report;
      if (part.type() == kGoodbye) sum += part.leaver(i);
    }
  }
  Require(parts > 0 && parts <= packet.size() / 4, "every part has a header of its own");
  checksum = checksum + sum;
  return true;
}

bool SameFigures(const EndpointStatistics& a, const EndpointStatistics& b) {
  if (a.streams.size() != b.streams.size() || a.rtp_packets_sent != b.rtp_packets_sent) return false;
  return std::equal(a.streams.begin(), a.streams.end(), b.streams.begin(), [](const auto& one, const auto& other) {
    return one.sender_reports_received == other.sender_reports_received &&
           one.remote_packets_sent == other.remote_packets_sent &&
           one.remote_packets_lost == other.remote_packets_lost &&
           one.remote_jitter_maximum == other.remote_jitter_maximum &&
           one.round_trip_maximum_us == other.round_trip_maximum_us;
  });
}

/// exact: the far end's address is still the described one.
void CheckEffect(const EndpointStatistics& before, const EndpointStatistics& after, bool valid, bool stranger,
                 bool exact) {
  const uint64_t strangers = after.rtcp_strangers - before.rtcp_strangers;
  const uint64_t damaged = after.rtcp_malformed - before.rtcp_malformed;
  const uint64_t taken = after.rtcp_packets_received - before.rtcp_packets_received;
  Require(strangers + damaged + taken == 1, "every packet is counted once");
  Require(!stranger || strangers == 1, "another host is a stranger");
  Require(valid || taken == 0, "what is damaged is not taken");
  Require(stranger || !exact || (valid ? taken : damaged) == 1, "the far end is listened to");
  Require(taken == 1 || SameFigures(before, after), "what is not taken says nothing");
  for (const StreamStatistics& stream : after.streams) {
    Require(stream.round_trip_average_us <= stream.round_trip_maximum_us, "an average is at most the maximum");
    Require(stream.remote_jitter_average <= stream.remote_jitter_maximum, "an average is at most the maximum");
    Require(stream.round_trip_maximum_us < 0x80000000ull * 1000000 / 65536, "a round trip is no negative time");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  fuzz::Call call;
  call.Describe();
  bool exact = true;
  for (int packets = 0; !input.done() && packets < 64; ++packets) {
    const uint8_t instructions = input.Octet();
    Bytes packet = input.Packet();
    if (packet.size() > fuzz::Call::kLongest) continue;
    const bool first_leg = (instructions & 1) != 0, stranger = (instructions & 2) != 0;
    const bool other_port = !stranger && (instructions & 4) != 0;
    exact = exact && !other_port;
    const auto from = stranger ? RtcpFrom::kStranger : other_port ? RtcpFrom::kOtherPort : RtcpFrom::kFarEnd;
    call.Wait(milliseconds{500} * (instructions >> 5));
    if ((instructions & 8) != 0) call.Talk();
    if ((instructions & 16) != 0) call.RunTimers();
    call.FillIn(first_leg, packet);
    const EndpointStatistics before = call.Statistics(first_leg);
    call.TakeRtcp(first_leg, from, packet.data(), packet.size());
    CheckEffect(before, call.Statistics(first_leg), ReadAlone(packet), stranger, exact);
  }
  return 0;
}
