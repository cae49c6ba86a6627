/// One endpoint's RTCP (RFC 3550, section 6): what it tells its far end of the media, and what the far end tells.
///
/// It sends a sender report when it has sent media of late, else a receiver report, with a block on the far end's media
/// when some has come, and always with its CNAME; BYE goes out when its SSRC is given up. What comes in is believed as
/// far as it concerns the two streams of this session: sender information of the source that is heard, blocks on our
/// SSRC, round trips only from sender reports of ours.
///
/// A far end that changes its SSRC is another source. Its figures begin anew and those of the former one are kept, of
/// the last few sources each, of those before them in one.
///
/// Nothing here allocates, except what says so. Threads: none of its own; used by the thread that owns the endpoint.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "random_bits.h"
#include "reception.h"
#include "rtcp_packet.h"
#include "rtcp_schedule.h"
#include "stream_record.h"

namespace media_engine {

class RtcpSession {
 public:
  /// Sources whose figures are kept apart, besides the one that is heard.
  static constexpr std::size_t kFormerSources = 3;

  /// Draws a CNAME, to be used until one is given (RFC 7022, section 5).
  RtcpSession(const NtpTimeline& timeline, uint32_t ssrc, RandomSource random = RandomBits);

  /// Cut off at what a source description holds. Allocates.
  void SetCname(const std::string& cname);
  /// Of a session with that codec; null when none is agreed.
  void SetCodec(const Codec* codec, std::size_t ip_and_udp_headers);

  // Media.
  void CountSent(uint32_t ssrc, std::size_t payload_octets);
  /// The far end's media comes from another source from now on; `former` is what was measured on the one before.
  void BeginSource(const Reception& former);
  /// Whether our SSRC can be changed: only when the one before has got its BYE.
  bool MayRenew() const { return !abandoned_; }
  /// Our media goes on under another SSRC. known: the far end may have heard of the former one, which is to get its BYE
  /// then; the timestamp is the one that its media would have now.
  void Renew(uint32_t ssrc, bool known, uint32_t former_timestamp, TimePoint now);

  // Reports that come in. reception: of the far end's media.
  void Take(RtcpCompound compound, const Reception& reception, TimePoint now);

  // Reports that go out; each is written into room for RtcpWriter::kLongest octets. Who gets a packet sends it and then
  // tells whether it could.
  struct Report {
    std::size_t length = 0;
    std::optional<NtpTime> sender_report;
  };
  bool IsDue(const Reception& reception, TimePoint now);
  /// When to ask again.
  TimePoint NextDue(TimePoint now) const { return schedule_.started() ? schedule_.next() : now; }
  /// timestamp: of our media, now. last: with BYE.
  Report WriteReport(Reception& reception, uint32_t timestamp, bool last, TimePoint now, uint8_t* to);
  /// After every report that was due.
  void Reported(const Report& report, bool sent, const Reception& reception, TimePoint now);
  /// Whether the far end has heard of our SSRC, by media or by reports: if not, no BYE may be sent (section 6.3.7).
  bool IsKnown() const { return sender_.packets > 0 || sender_.reported; }
  bool HasAbandoned() const { return abandoned_.has_value(); }
  /// Only when it has.
  uint32_t abandoned_ssrc() const { return abandoned_->sender.ssrc; }
  /// The last report under the SSRC that was given up, with BYE; it is forgotten then. The length.
  std::size_t WriteFarewell(uint8_t* to);

  /// The sources that were heard, or sent to without being heard, in their order. Allocates.
  std::vector<StreamStatistics> Streams(const Reception& reception) const;
  /// All of them taken together.
  StreamRecord Total(const Reception& reception) const;

 private:
  /// What we were under one SSRC.
  struct Sender {
    uint32_t ssrc = 0;
    bool reported = false;
    uint64_t packets = 0;
    uint64_t octets = 0;
  };
  struct Abandoned {
    Sender sender;
    NtpTime ntp = 0;
    uint32_t timestamp = 0;
  };
  /// What the far end said of its own media.
  struct RemoteSender {
    uint32_t ssrc = 0;
    uint32_t last_report = 0;  // ShortNtp
    TimePoint arrived{};
    uint64_t packets = 0;
    uint64_t octets = 0;
    uint64_t reports = 0;  // 0: none has come
  };

  RtcpLoad Load(const Reception& reception) const;
  bool WeSent() const { return sender_.packets != packets_at_reports_.back(); }
  bool FarEndSent(const Reception& reception) const {
    return reception.HeardSinceReport() && reception.received() != received_at_goodbye_;
  }
  static SenderInfo InfoOf(const Sender& sender, NtpTime ntp, uint32_t timestamp);
  void AddTimes(ReportBlock& block, TimePoint now) const;
  void TakeSenderInfo(const RtcpPart& part, const Reception& reception, TimePoint now);
  void TakeBlock(const ReportBlock& block, TimePoint now);
  void MeasureRoundTrip(const ReportBlock& block, TimePoint now);
  void FarEndLeft(const Reception& reception, TimePoint now);
  StreamRecord Current(const Reception& reception) const;

  // What every packet touches.
  std::optional<Abandoned> abandoned_;
  Sender sender_;
  StreamRecord stream_;  // the present one, as far as it is not in the reception

  NtpTimeline timeline_;
  RtcpSchedule schedule_;
  std::string cname_;
  double bandwidth_;
  std::size_t headers_;  // of IP and UDP

  std::array<uint64_t, 2> packets_at_reports_{};  // the last one, and the one before it
  std::array<uint32_t, 4> our_reports_{};         // ShortNtp of sender reports that went out; 0: none

  RemoteSender remote_sender_;
  unsigned quiet_reports_;            // reports of ours in a row during which the far end was not heard
  bool remote_reported_ = false;      // since our last report
  bool remote_sent_before_ = false;   // media, between our last two reports
  uint64_t received_at_goodbye_ = 0;  // media received when the far end left, 0 when it did not
  uint64_t remote_lost_before_ = 0;   // of this stream, under former SSRCs of ours

  std::array<StreamRecord, kFormerSources> former_;
  std::size_t former_count_ = 0;
};

}  // namespace media_engine
