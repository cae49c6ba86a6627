#include "support/rtp_relay.h"

#include <poll.h>

#include <utility>

namespace test_support {
namespace {

constexpr std::uint32_t kOwnSsrc = 0x0ddba11;
constexpr std::uint32_t kTimestampShift = 123456789;

}  // namespace

RtpRelay::RtpRelay(UdpAddress receiver, RelayFault fault, std::size_t at, std::size_t deaf_for)
    : receiver_(std::move(receiver)), fault_(fault), at_(at), deaf_for_(deaf_for), thread_([this] { Run(); }) {}

RtpRelay::~RtpRelay() {
  stop_ = true;
  thread_.join();
}

void RtpRelay::Run() {
  while (!stop_) {
    pollfd polled{socket_.Descriptor(), POLLIN, 0};
    poll(&polled, 1, 20);
    while (auto datagram = socket_.Receive()) {
      if (auto packet = parse_rtp(datagram->data.data(), datagram->data.size())) Forward(std::move(*packet));
    }
  }
}

void RtpRelay::Send(const RtpPacket& packet) {
  socket_.SendTo(receiver_, serialise_rtp(packet));
}

void RtpRelay::Forward(RtpPacket packet) {
  const std::size_t number = count_++;
  if (number < deaf_for_) return;
  if (!pass_ssrc_) packet.ssrc = kOwnSsrc;
  packet.sequence = static_cast<std::uint16_t>(packet.sequence + sequence_shift_);
  packet.timestamp += kTimestampShift;
  packet.payload_type = static_cast<std::uint8_t>(packet.payload_type + payload_type_shift_);
  if (held_) {
    Send(packet);
    Send(*held_);
    held_.reset();
    return;
  }
  const bool due = !done_ && number >= at_ && (fault_ != RelayFault::kClearMarker || packet.marker);
  if (!due) return Send(packet);
  done_ = true;
  switch (fault_) {
    case RelayFault::kNone:
      break;
    case RelayFault::kDrop:
      return;
    case RelayFault::kDropAndRenumber:
      --sequence_shift_;
      return;
    case RelayFault::kDuplicate:
      Send(packet);
      break;
    case RelayFault::kSwap:
      held_ = std::move(packet);
      return;
    case RelayFault::kAlterPayload:
      packet.payload.back() ^= 1;
      break;
    case RelayFault::kShortenPayload:
      packet.payload.pop_back();
      break;
    case RelayFault::kClearMarker:
      packet.marker = false;
      break;
    case RelayFault::kShiftTimestamp:
      packet.timestamp += 1;
      break;
    case RelayFault::kChangeSsrc:
      packet.ssrc ^= 1;
      break;
    case RelayFault::kChangePayloadType:
      packet.payload_type ^= 1;
      break;
    case RelayFault::kOtherSocket:
      other_socket_.SendTo(receiver_, serialise_rtp(packet));
      return;
    case RelayFault::kInvent: {
      RtpPacket invented = packet;
      invented.sequence = static_cast<std::uint16_t>(invented.sequence + 5000);
      Send(invented);
      break;
    }
    case RelayFault::kTruncateHeader:
      socket_.SendTo(receiver_, {0x80, 0x00, 0x01});
      break;
  }
  Send(packet);
}

}  // namespace test_support
