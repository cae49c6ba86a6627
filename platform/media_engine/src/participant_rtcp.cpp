// The reports of a participant, and its changes of source.
#include <sys/socket.h>

#include <array>

#include "participant.h"
#include "rtcp_packet.h"
#include "server_context.h"

namespace media_engine {

/// Aligned, and with room behind the packet, for whatever protects it on its way out.
struct Participant::RtcpRoom {
  alignas(16) std::array<uint8_t, 1024> octets;
  static_assert(RtcpWriter::kLongest + kSrtpTrailerRoom <= 1024);
};

void Participant::ApplySource(const SourceSettings& settings) {
  if (settings.rtcp) sends_rtcp_ = *settings.rtcp;
  if (!settings.cname.empty()) rtcp_.SetCname(settings.cname);
  if (settings.renew_with_remote) renew_with_remote_ = *settings.renew_with_remote;
  const bool ipv6 = server_->address().family() == AF_INET6;
  rtcp_.SetCodec(payload_types_.agreed(), ipv6 ? kIpv6AndUdpHeaders : kIpv4AndUdpHeaders);
}

void Participant::NoteSource(uint32_t ssrc, TimePoint now) {
  if (reception_.IsNewSource(ssrc)) {
    rtcp_.BeginSource(reception_);
    if (renew_with_remote_ && peer_ != nullptr && carries_) peer_->RenewOutgoing(now);
  }
  // RFC 3550, section 8.2. The second time our packets are coming back to us, and another SSRC would not help.
  if (ssrc == outgoing_.ssrc() && !collided_) {
    collided_ = true;
    RenewOutgoing(now);
  }
}

/// Once between two checks at most: a far end that changes its SSRC with every packet must not keep the
/// other busy with goodbyes.
void Participant::RenewOutgoing(TimePoint now) {
  if (!rtcp_.MayRenew()) return;
  const bool known = outgoing_.started() || rtcp_.IsKnown();
  const uint32_t timestamp = outgoing_.TimestampAt(now, outgoing_clock_rate_);
  outgoing_ = OutgoingStream::MakeRandom();
  rtcp_.Renew(outgoing_.ssrc(), known, timestamp, now);
  check_.Advance(now + kCheckInterval);
}

void Participant::TakeRtcp(uint8_t* packet, std::size_t length, const SocketAddress& from, TimePoint now) {
  const bool expected = remote_.IsRtcpExpected(from);
  if (!expected && !remote_.MayLearnRtcp(from, now)) {
    ++StrangersNow(counters_.rtcp_strangers);
    return;
  }
  if (!crypto_.UnprotectRtcp(packet, length, now)) return;
  const std::optional<RtcpCompound> compound = RtcpCompound::Parse(packet, length);
  const bool of_heard_source = compound && reception_.started() && compound->reporter() == reception_.ssrc();
  if (!expected && !of_heard_source) {
    ++counters_.rtcp_strangers;
    return;
  }
  if (!compound) {
    ++counters_.rtcp_malformed;
    return;
  }
  if (of_heard_source) remote_.LearnRtcp(from);
  ++counters_.rtcp_packets_received;
  rtcp_.Take(*compound, reception_, now);
  check_.Advance(rtcp_.NextDue(now));
}

void Participant::RunRtcp(TimePoint now) {
  if (!HasRtcp()) return;
  RtcpRoom room;
  SendFarewell(room);
  if (rtcp_.IsDue(reception_, now)) Report(room, false, now);
}

void Participant::Report(RtcpRoom& room, bool last, TimePoint now) {
  const uint32_t timestamp = outgoing_.TimestampAt(now, outgoing_clock_rate_);
  const RtcpSession::Report report = rtcp_.WriteReport(reception_, timestamp, last, now, room.octets.data());
  rtcp_.Reported(report, SendRtcp(room, report.length), reception_, now);
}

void Participant::TakeLeave(TimePoint now) {
  if (image_.in_use() || ports_ == nullptr) return;
  RtcpRoom room;
  SendFarewell(room);
  if (rtcp_.IsKnown()) Report(room, true, now);
}

void Participant::SendFarewell(RtcpRoom& room) {
  if (!rtcp_.HasAbandoned()) return;
  const uint32_t ssrc = rtcp_.abandoned_ssrc();
  SendRtcp(room, rtcp_.WriteFarewell(room.octets.data()));
  crypto_.ForgetSource(ssrc);
}

/// Every RTCP packet leaves here.
bool Participant::SendRtcp(RtcpRoom& room, std::size_t length) {
  if (!sends_rtcp_ || !remote_.CanSendRtcp() || !crypto_.ProtectRtcp(room.octets.data(), length)) return false;
  const SocketAddress& to = remote_.rtcp();
  const ssize_t sent =
      sendto(ports_->rtcp().fd(), room.octets.data(), length, MSG_DONTWAIT | MSG_NOSIGNAL, to.native(), to.length());
  ++(sent < 0 ? counters_.send_errors : counters_.rtcp_packets_sent);
  return sent >= 0;
}

}  // namespace media_engine
