#include "participant.h"

#include <algorithm>
#include <utility>

#include "endpoint_account.h"
#include "endpoint_route.h"
#include "g711.h"
#include "server_context.h"

namespace media_engine {

// There are thousands of them; what few need, or what is large, belongs behind a pointer.
static_assert(sizeof(Participant) <= 2304);

Participant::Participant(std::shared_ptr<EndpointRoute> route, std::shared_ptr<ServerContext> server,
                         std::shared_ptr<EndpointEvents> events, const SessionRoute* session)
    : outgoing_(OutgoingStream::MakeRandom()),
      crypto_([this](const std::string& what) { server_->Log(LogLevel::kWarning, route_->name() + ": " + what); }),
      rtcp_(server->ntp(), outgoing_.ssrc()),
      route_(std::move(route)),
      server_(std::move(server)),
      events_(std::move(events)),
      session_(session) {}

Participant::~Participant() {
  TakeLeave(server_->Now());
  GiveAccount();
  route_->MarkClosed();
}

bool Participant::AcceptSource(const SocketAddress& from, bool understood, TimePoint now) {
  if (remote_.IsExpected(from)) return true;
  if (!understood || !remote_.MayLearn(now)) return false;
  server_->Log(LogLevel::kInfo,
               route_->name() + ": the far end is at " + from.Text() + " instead of " + remote_.rtp().Text());
  remote_.Learn(from, now);
  return true;
}

Handover Participant::TakeRtp(uint8_t* packet, std::size_t length, const SocketAddress& from, TimePoint now) {
  if (image_.in_use()) return Relay(packet, length, from);
  const bool may_be_far_end = remote_.IsExpected(from) || remote_.MayLearn(now);
  if (may_be_far_end && !crypto_.UnprotectRtp(packet, length, now)) return {};
  const std::optional<RtpHeader> header = may_be_far_end ? ParseRtp(packet, length) : std::nullopt;
  if (!may_be_far_end || (header && !AcceptSource(from, payload_types_.Understands(header->payload_type), now))) {
    ++StrangersNow(counters_.strangers);
    return {};
  }
  if (!header) {
    ++counters_.malformed;
    return {};
  }
  ++counters_.rtp_packets_received;
  counters_.rtp_octets_received += header->payload_length;
  NoteSource(header->ssrc, now);
  reception_.Count(*header, MeaningOf(header->payload_type).clock_rate, now);
  silence_.Received(now);
  if (playout_ == nullptr || peer_ == nullptr || !carries_) return Carry(packet, *header, now);
  Hold(packet, *header, now);
  return {};
}

void Participant::LookUp(uint8_t payload_type) {
  const std::size_t place = payload_types_.MeaningOf(payload_type);
  meaning_.payload_type = payload_type;
  meaning_.clock_rate = payload_types_.ClockRateOf(payload_type);
  meaning_.route = place < routes_.size() ? routes_[place] : PayloadRoute();
}

SourcePosition Participant::PositionOf(const RtpHeader& header) const {
  return {peer_->feed_, header.ssrc, header.sequence_number, header.timestamp};
}

void Participant::DropFor(uint64_t& counter, const RtpHeader& header) {
  ++counter;
  peer_->outgoing_.Skip(PositionOf(header));
}

bool Participant::PassesOn(const PayloadRoute& route, uint8_t* packet, RtpHeader& header) {
  if (route.way == PayloadRoute::Way::kUnknown) {
    DropFor(counters_.unknown_payload_types, header);
    return false;
  }
  if (route.way == PayloadRoute::Way::kNoCounterpart) {
    DropFor(counters_.untranslatable, header);
    return false;
  }
  const bool was_empty = header.payload_length == 0;
  header.payload_length = RemoveSid(route.remove_sid, packet + header.payload_offset, header.payload_length);
  if (route.way == PayloadRoute::Way::kUnwantedSilence || (header.payload_length == 0 && !was_empty)) {
    DropFor(counters_.silence_dropped, header);
    return false;
  }
  return true;
}

Handover Participant::Carry(uint8_t* packet, RtpHeader header, TimePoint now) {
  if (peer_ == nullptr || !carries_) {
    ++counters_.not_joined;
    return {};
  }
  const PayloadRoute& route = MeaningOf(header.payload_type).route;
  if (!PassesOn(route, packet, header)) return {};
  if (peer_->image_.in_use()) {
    DropFor(counters_.untranslatable, header);
    return {};
  }
  if (!peer_->remote_.CanSend() || peer_->ports_ == nullptr) {
    DropFor(counters_.on_hold, header);
    return {};
  }
  if (peer_->crypto_.blocked()) {
    DropFor(peer_->crypto_.missing(), header);
    return {};
  }
  const std::optional<OutgoingPosition> position =
      peer_->outgoing_.Place(PositionOf(header), peer_->outgoing_clock_rate_, now);
  if (!position) {
    ++counters_.late;
    return {};
  }
  uint8_t* payload = packet + header.payload_offset;
  if (route.way == PayloadRoute::Way::kMuLawToALaw) ConvertMuLawToALaw(payload, header.payload_length);
  if (route.way == PayloadRoute::Way::kALawToMuLaw) ConvertALawToMuLaw(payload, header.payload_length);

  RtpHeader out;
  // An event's marker says that the event begins here (RFC 4733, section 2.5.1.1); a change of source does not.
  out.marker = header.marker || (position->first && !route.telephone_event);
  out.payload_type = route.payload_type;
  out.sequence_number = position->sequence_number;
  out.timestamp = position->timestamp;
  out.ssrc = peer_->outgoing_.ssrc();
  uint8_t* const sent = payload - kRtpHeaderLength;
  std::size_t sent_length = kRtpHeaderLength + header.payload_length;
  WriteRtpHeader(out, sent);
  if (!peer_->crypto_.ProtectRtp(sent, sent_length)) return {};
  return {peer_, sent, sent_length, header.payload_length, true};
}

void Participant::CountSent(const Handover& packet) {
  if (!packet.rtp) return;
  ++counters_.rtp_packets_sent;
  counters_.rtp_octets_sent += packet.payload_length;
  rtcp_.CountSent(SsrcOf(packet.data), packet.payload_length);
}

void Participant::Check(TimePoint now) {
  crypto_.DropFormerKeys(now);
  CheckSilence(now);
  RunRtcp(now);
  check_.Set(NextCheck(now));
}

void Participant::CheckSoon() {
  check_.Advance(server_->Now() + kCheckInterval);
}

TimePoint Participant::NextCheck(TimePoint now) const {
  TimePoint next = silence_.NextVerdict(now);
  if (HasRtcp()) next = std::min(next, rtcp_.NextDue(now));
  const TimePoint soon = now + kCheckInterval;
  return crypto_.KeepsFormerKeys() ? soon : std::max(next, soon);
}

void Participant::CheckSilence(TimePoint now) {
  const bool expected = !image_.in_use() && (peer_ == nullptr || carries_);
  const SilenceWatch::Verdict verdict = silence_.Check(now, expected);
  if (verdict == SilenceWatch::Verdict::kQuiet || !events_) return;
  if (server_->shut_down.load()) return;  // its worker was left to itself
  events_->OnRtpTimeout(verdict == SilenceWatch::Verdict::kInactive);
}

void Participant::GiveAccount() const {
  const EndpointStatistics statistics = Statistics();
  std::string who = route_->name();
  if (ports_) who += " at " + ports_->address().Text();
  if (!remote_rtp().empty()) who += ", far end at " + remote_rtp().Text();
  if (had_jitter_buffer_) server_->Log(LogLevel::kNotice, who + ": " + JitterBufferAccount(statistics));
  const std::string dropped = DroppedAccount(statistics);
  if (!dropped.empty()) server_->Log(LogLevel::kNotice, who + ": " + dropped);
}

EndpointStatistics Participant::Statistics() const {
  EndpointStatistics statistics = counters_;
  const StreamRecord total = rtcp_.Total(reception_);
  statistics.rtp_packets_lost = total.packets_lost;
  statistics.rtp_duplicates = reception_.duplicates();
  statistics.rtp_reordered = reception_.reordered();
  statistics.source_changes = reception_.source_changes();
  statistics.jitter = reception_.jitter();
  statistics.jitter_maximum = total.jitter.maximum();
  statistics.jitter_average = total.jitter.average();
  statistics.local_ssrc = outgoing_.ssrc();
  statistics.remote_ssrc = reception_.ssrc();
  crypto_.AddTo(statistics);
  if (playout_) playout_->buffer.AddTo(statistics);
  statistics.streams = rtcp_.Streams(reception_);
  return statistics;
}

}  // namespace media_engine
