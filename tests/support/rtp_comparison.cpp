#include "support/rtp_comparison.h"

#include <algorithm>
#include <optional>
#include <sstream>

namespace test_support {
namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

std::string hex32(std::uint32_t value) {
  std::ostringstream out;
  out << "0x" << std::hex << value;
  return out.str();
}

// Walks over what arrived and compares each packet with the one that its sequence number says it is.
class Comparer {
 public:
  Comparer(const RtpRecord& record, const RtpExpectation& expected) : record_(record), expected_(expected) {
    for (const SentPacket& sent : record.sent) (sent.kind == RtpKind::kPriming ? priming_ : script_)++;
  }

  RtpComparison Run() {
    result_.sent = script_;
    result_.priming_sent = priming_;
    if (script_ == 0) Reason("nothing was said, there is nothing to compare");
    if (record_.unreadable > 0) Reason(std::to_string(record_.unreadable) + " datagrams arrived that are no RTP");
    if (record_.received.empty()) {
      result_.lost = script_;
      Reason("nothing arrived (" + std::to_string(priming_) + " priming packets and " + std::to_string(script_) +
             " of the script were sent)");
      return result_;
    }
    CheckStream();
    if (FindAnchor()) {
      for (const ReceivedPacket& received : record_.received) Place(received);
      CountUnseen();
    }
    CheckDigits();
    return result_;
  }

 private:
  void Reason(const std::string& text) { result_.reasons.push_back(text); }

  // The first of each kind of fault is told, the rest counted.
  void Fault(std::size_t& counter, const std::string& text) {
    if (counter++ == 0) Reason(text);
  }

  void CheckStream() {
    auto last = record_.received.front().at;
    for (const ReceivedPacket& received : record_.received) {
      const std::uint32_t ssrc = received.packet.ssrc;
      if (std::find(result_.ssrcs.begin(), result_.ssrcs.end(), ssrc) == result_.ssrcs.end()) {
        result_.ssrcs.push_back(ssrc);
      }
      if (received.from != expected_.from) {
        Fault(result_.wrong_sources, "a packet came from " + received.from + " instead of " + expected_.from);
      }
      const auto gap = std::chrono::duration_cast<std::chrono::milliseconds>(received.at - last);
      result_.longest_gap = std::max(result_.longest_gap, gap);
      last = received.at;
    }
    if (result_.ssrcs.size() > 1) {
      Reason(std::to_string(result_.ssrcs.size()) + " SSRCs heard instead of one: " + hex32(result_.ssrcs[0]) + ", " +
             hex32(result_.ssrcs[1]));
    }
    if (!record_.sent.empty() && !expected_.relays_source) {
      const std::uint32_t sender = record_.sent.front().packet.ssrc;
      if (std::count(result_.ssrcs.begin(), result_.ssrcs.end(), sender) > 0) {
        Reason("the sender's SSRC " + hex32(sender) + " came through: the media server has none of its own");
      }
    }
  }

  // Which packet sent is the first that arrived? Known by its payload, since everything else may be rewritten.
  bool FindAnchor() {
    const RtpPacket& first = record_.received.front().packet;
    for (std::size_t i = 0; i < record_.sent.size() && anchor_ == kNone; ++i) {
      if (record_.sent[i].packet.payload == first.payload) anchor_ = i;
    }
    if (anchor_ == kNone) {
      result_.foreign = record_.received.size();
      result_.lost = script_;
      Reason("the first packet that arrived (sequence number " + std::to_string(first.sequence) + ", " +
             std::to_string(first.payload.size()) + " bytes of payload) is none that was sent");
      return false;
    }
    result_.priming_missed = std::min(anchor_, priming_);
    seen_.assign(record_.sent.size(), false);
    return true;
  }

  void Place(const ReceivedPacket& received) {
    const RtpPacket& first = record_.received.front().packet;
    const RtpPacket& packet = received.packet;
    const long index = static_cast<long>(anchor_) + sequence_distance(first.sequence, packet.sequence);
    if (index < 0 || index >= static_cast<long>(record_.sent.size())) {
      Fault(result_.foreign, "a packet with sequence number " + std::to_string(packet.sequence) +
                                 " arrived that nobody sent (first one: " + std::to_string(first.sequence) + ")");
      return;
    }
    const auto place = static_cast<std::size_t>(index);
    const std::string name = Name(place, packet);
    if (seen_[place]) {
      Fault(result_.duplicated, name + " arrived twice");
      return;
    }
    seen_[place] = true;
    if (furthest_ && place < *furthest_) Fault(result_.reordered, name + " arrived after a later one");
    furthest_ = std::max(furthest_.value_or(0), place);
    const SentPacket& sent = record_.sent[place];
    if (sent.kind != RtpKind::kPriming) ++result_.received;
    CompareFields(sent, packet, name);
  }

  void CompareFields(const SentPacket& sent, const RtpPacket& packet, const std::string& name) {
    if (packet.payload != sent.packet.payload) Fault(result_.altered_payloads, name + ": payload differs");
    const std::uint8_t wanted =
        sent.kind == RtpKind::kEvent ? expected_.event_payload_type : expected_.audio_payload_type;
    if (packet.payload_type != wanted) {
      Fault(result_.wrong_payload_types,
            name + ": payload type " + std::to_string(packet.payload_type) + " instead of " + std::to_string(wanted));
    }
    // Where the media server starts a stream of its own, a talk spurt starts for the receiver.
    const bool starts_stream = packet.sequence == record_.received.front().packet.sequence;
    if (packet.marker != sent.packet.marker && !(starts_stream && packet.marker)) {
      Fault(result_.wrong_markers, name + (packet.marker ? ": marker set" : ": marker lost"));
    }
    const std::uint32_t heard = packet.timestamp - record_.received.front().packet.timestamp;
    const std::uint32_t said = sent.packet.timestamp - record_.sent[anchor_].packet.timestamp;
    if (heard != said) {
      Fault(result_.wrong_timestamps, name + ": timestamp " + std::to_string(static_cast<std::int32_t>(heard)) +
                                          " after the first one's, sent as " +
                                          std::to_string(static_cast<std::int32_t>(said)));
    }
  }

  void CountUnseen() {
    for (std::size_t place = anchor_; place < seen_.size(); ++place) {
      if (!seen_[place]) {
        Fault(result_.lost, "packet " + std::to_string(place) + " (sent with sequence number " +
                                std::to_string(record_.sent[place].packet.sequence) + ") never arrived");
      }
    }
    if (anchor_ >= priming_ && priming_ < record_.sent.size()) {
      result_.lost += anchor_ - priming_;
      Reason("none of the " + std::to_string(priming_) + " priming packets arrived, the first to arrive was number " +
             std::to_string(anchor_));
    }
  }

  void CheckDigits() {
    result_.digits = read_digits(record_.received, expected_.event_payload_type);
    if (result_.digits != expected_.digits) {
      Reason("digits \"" + result_.digits + "\" heard instead of \"" + expected_.digits + "\"");
    }
  }

  static std::string Name(std::size_t place, const RtpPacket& packet) {
    return "packet " + std::to_string(place) + " (sequence number " + std::to_string(packet.sequence) + ")";
  }

  const RtpRecord& record_;
  const RtpExpectation& expected_;
  RtpComparison result_;
  std::size_t priming_ = 0;
  std::size_t script_ = 0;
  std::size_t anchor_ = kNone;  // index in `sent` of the first packet that arrived
  std::vector<bool> seen_;
  std::optional<std::size_t> furthest_;
};

}  // namespace

RtpComparison compare_rtp(const RtpRecord& record, const RtpExpectation& expected) {
  return Comparer(record, expected).Run();
}

std::string read_digits(const std::vector<ReceivedPacket>& received, std::uint8_t payload_type) {
  std::string digits;
  std::vector<std::uint32_t> ended;
  for (const ReceivedPacket& arrival : received) {
    if (arrival.packet.payload_type != payload_type) continue;
    const auto event = parse_telephone_event(arrival.packet.payload);
    if (!event || !event->end) continue;
    if (std::find(ended.begin(), ended.end(), arrival.packet.timestamp) != ended.end()) continue;
    ended.push_back(arrival.packet.timestamp);
    digits.push_back(telephone_event_digit(event->event));
  }
  return digits;
}

std::string RtpComparison::Account() const {
  std::ostringstream out;
  out << received << " of " << sent << " packets";
  if (Passed()) out << ", every payload byte as sent, in order, none lost, none twice";
  out << "; lost " << lost << ", altered " << altered_payloads << ", twice " << duplicated << ", out of order "
      << reordered << ", foreign " << foreign;
  if (ssrcs.size() == 1) out << "; SSRC " << hex32(ssrcs.front());
  if (!digits.empty()) out << "; digits " << digits;
  out << "; longest gap " << longest_gap.count() << " ms";
  return out.str();
}

std::string RtpComparison::Reasons() const {
  std::string text;
  for (const std::string& reason : reasons) text += (text.empty() ? "" : "; ") + reason;
  if (text.empty() && !Passed()) text = "nothing was heard";
  return text;
}

}  // namespace test_support
