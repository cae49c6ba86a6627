#include "support/rtp_load.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace test_support {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr std::size_t kRtpHeader = 12;
constexpr std::uint32_t kPriming = 0xffffffff;
constexpr milliseconds kPrimingInterval{100};
constexpr milliseconds kGrain{1};  // of the waiting: what is due within it goes out at once

/// What stands at the head of each payload; the rest is filled with a pattern of the stream.
struct Label {
  std::uint32_t stream = 0;
  std::uint32_t number = 0;
  std::int64_t sent_at = 0;  // of the steady clock
};

std::uint8_t filler(const Label& label) {
  return static_cast<std::uint8_t>(label.stream * 31 + label.number * 7 + 1);
}

sockaddr_in socket_address(const UdpAddress& address) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(address.port);
  if (inet_pton(AF_INET, address.address.c_str(), &result.sin_addr) != 1) {
    throw std::invalid_argument("no IPv4 address: " + address.address);
  }
  return result;
}

bool is_same(const sockaddr_in& a, const sockaddr_in& b) {
  return a.sin_port == b.sin_port && a.sin_addr.s_addr == b.sin_addr.s_addr;
}

/// What one phone says, and what its partner hears of it.
struct Stream {
  RtpPhone* from = nullptr;
  RtpPhone* at = nullptr;
  RtpSeal* sealed_by = nullptr;
  RtpSeal* opened_by = nullptr;
  sockaddr_in to{};
  sockaddr_in heard_from{};  // the media server's address for who listens; ports of loopback have former owners
  std::uint32_t id = 0;
  std::uint16_t sequence = 0;
  std::uint32_t timestamp = 0;
  bool open = false;
  std::vector<bool> heard;  // by number
  RtpLoadCount count;
};

class Load {
 public:
  Load(const std::vector<RtpLoadCall>& calls, const RtpLoadSettings& settings);
  ~Load() { close(epoll_); }
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;

  RtpLoadResult Run();

 private:
  void Add(RtpPhone* from, RtpPhone* at, const UdpAddress& to, const UdpAddress& heard_from, RtpSeal* sealed_by,
           RtpSeal* opened_by);
  bool OpenPaths();
  void SendAll();
  void AwaitTheRest();
  void Send(Stream& stream, std::uint32_t number);
  void ListenUntil(Clock::time_point until);
  /// ours: it came from the call's media server. Of what others send only this load's own packets matter.
  void Heard(Stream& stream, const std::uint8_t* data, std::size_t size, bool ours);
  bool AllHeard() const;

  const RtpLoadSettings settings_;
  const std::size_t packets_;
  std::vector<Stream> streams_;  // to the callee, to the caller, call by call
  int epoll_ = -1;
  std::int64_t ways_ = 0;
  RtpLoadResult result_;
  microseconds all_ways_{0};
};

Load::Load(const std::vector<RtpLoadCall>& calls, const RtpLoadSettings& settings)
    : settings_(settings),
      packets_(static_cast<std::size_t>(settings.length / settings.ptime)),
      epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (epoll_ < 0) throw std::system_error(errno, std::generic_category(), "epoll_create1");
  if (settings.payload_octets < sizeof(Label) || packets_ == 0 || calls.empty()) {
    throw std::invalid_argument("no load: no calls, no packets, or payloads too short for their label");
  }
  streams_.reserve(2 * calls.size());
  for (const RtpLoadCall& call : calls) {
    Add(call.caller, call.callee, call.caller_to, call.callee_to, call.caller_seal, call.callee_seal);
    Add(call.callee, call.caller, call.callee_to, call.caller_to, call.callee_seal, call.caller_seal);
  }
}

void Load::Add(RtpPhone* from, RtpPhone* at, const UdpAddress& to, const UdpAddress& heard_from, RtpSeal* sealed_by,
               RtpSeal* opened_by) {
  Stream stream;
  stream.from = from;
  stream.at = at;
  stream.sealed_by = sealed_by;
  stream.opened_by = opened_by;
  stream.id = static_cast<std::uint32_t>(streams_.size());
  stream.sequence = static_cast<std::uint16_t>(stream.id * 977);
  stream.heard.resize(packets_);
  stream.to = socket_address(to);
  stream.heard_from = socket_address(heard_from);
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = stream.id;
  if (epoll_ctl(epoll_, EPOLL_CTL_ADD, at->Rtp().Descriptor(), &event) != 0) {
    throw std::system_error(errno, std::generic_category(), "epoll_ctl");
  }
  streams_.push_back(std::move(stream));
}

RtpLoadResult Load::Run() {
  result_.opened = OpenPaths();
  if (result_.opened) {
    SendAll();
    AwaitTheRest();
  }
  for (std::size_t i = 0; i < streams_.size(); i += 2) {
    result_.to_callee.push_back(streams_[i].count);
    result_.to_caller.push_back(streams_[i + 1].count);
  }
  if (ways_ > 0) result_.mean_way = all_ways_ / ways_;
  return result_;
}

bool Load::OpenPaths() {
  const auto limit = Clock::now() + settings_.patience;
  for (;;) {
    bool open = true;
    for (Stream& stream : streams_) {
      if (stream.open) continue;
      open = false;
      Send(stream, kPriming);
    }
    if (open) return true;
    if (Clock::now() >= limit) return false;
    ListenUntil(Clock::now() + kPrimingInterval);
  }
}

void Load::SendAll() {
  const auto start = Clock::now();
  const std::size_t count = streams_.size();
  for (std::uint32_t number = 0; number < packets_; ++number) {
    for (std::size_t i = 0; i < count; ++i) {
      const auto due = start + number * settings_.ptime + i * microseconds(settings_.ptime) / count;
      if (due > Clock::now() + kGrain) ListenUntil(due);
      Send(streams_[i], number);
      ++streams_[i].count.sent;
    }
    // However late it is, what has come is taken: nothing may overflow on this side.
    ListenUntil(Clock::now());
  }
  result_.sending = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

void Load::AwaitTheRest() {
  const auto limit = Clock::now() + settings_.patience;
  while (!AllHeard() && Clock::now() < limit) ListenUntil(Clock::now() + milliseconds(20));
  ListenUntil(Clock::now() + milliseconds(100));  // for what should not come
}

bool Load::AllHeard() const {
  return std::all_of(streams_.begin(), streams_.end(),
                     [](const Stream& stream) { return stream.count.received == stream.count.sent; });
}

void Load::Send(Stream& stream, std::uint32_t number) {
  const Label label{stream.id, number, Clock::now().time_since_epoch().count()};
  RtpPacket packet;
  packet.payload_type = settings_.payload_type;
  packet.sequence = stream.sequence++;
  packet.timestamp = stream.timestamp;
  packet.ssrc = 0x10ad0000u + stream.id;
  packet.payload.assign(settings_.payload_octets, filler(label));
  std::memcpy(packet.payload.data(), &label, sizeof(label));
  stream.timestamp += static_cast<std::uint32_t>(settings_.ptime.count() * 8);
  auto data = serialise_rtp(packet);
  if (stream.sealed_by != nullptr) data = stream.sealed_by->Seal(std::move(data));
  // What the system refuses counts as sent, and will be missing.
  const ssize_t ignored = sendto(stream.from->Rtp().Descriptor(), data.data(), data.size(), 0,
                                 reinterpret_cast<const sockaddr*>(&stream.to), sizeof(stream.to));
  (void)ignored;
}

void Load::ListenUntil(Clock::time_point until) {
  std::array<epoll_event, 256> ready{};
  std::array<std::uint8_t, 2048> buffer{};
  for (;;) {
    const auto rest = until - Clock::now();
    const int wait = rest > Clock::duration::zero() ? static_cast<int>(rest / kGrain) : 0;
    const int count = epoll_wait(epoll_, ready.data(), static_cast<int>(ready.size()), wait);
    for (int i = 0; i < count; ++i) {
      Stream& stream = streams_[ready[static_cast<std::size_t>(i)].data.u64];
      sockaddr_in from{};
      socklen_t length = sizeof(from);
      const ssize_t size = recvfrom(stream.at->Rtp().Descriptor(), buffer.data(), buffer.size(), MSG_DONTWAIT,
                                    reinterpret_cast<sockaddr*>(&from), &length);
      // A relay of one direction sends from where it receives.
      const bool ours = is_same(from, stream.heard_from) || is_same(from, stream.to);
      if (size >= 0) Heard(stream, buffer.data(), static_cast<std::size_t>(size), ours);
    }
    if (count < static_cast<int>(ready.size()) && Clock::now() + kGrain >= until) return;
  }
}

void Load::Heard(Stream& stream, const std::uint8_t* data, std::size_t size, bool ours) {
  std::optional<std::vector<std::uint8_t>> opened;
  if (stream.opened_by != nullptr) {
    opened = stream.opened_by->Open({data, data + size});
    if (opened) {
      data = opened->data();
      size = opened->size();
    }
  }
  const bool readable = (stream.opened_by == nullptr || opened) && size >= kRtpHeader && data[0] == 0x80;
  if (!readable) {
    if (ours) ++stream.count.unreadable;
    return;
  }
  Label label;
  const bool fits = size == kRtpHeader + settings_.payload_octets && (data[1] & 0x7f) == settings_.payload_type;
  if (fits) std::memcpy(&label, data + kRtpHeader, sizeof(label));
  const std::uint8_t* rest = data + kRtpHeader + sizeof(label);
  const bool whole = fits && std::all_of(rest, data + size, [&](std::uint8_t octet) { return octet == filler(label); });
  if (!whole || label.stream != stream.id || (label.number >= packets_ && label.number != kPriming)) {
    if (ours || (whole && label.stream < streams_.size())) ++stream.count.foreign;
    return;
  }
  stream.open = true;
  if (label.number == kPriming) return;
  if (stream.heard[label.number]) {
    ++stream.count.duplicated;
    return;
  }
  stream.heard[label.number] = true;
  ++stream.count.received;
  const auto way =
      std::chrono::duration_cast<microseconds>(Clock::now().time_since_epoch() - Clock::duration(label.sent_at));
  all_ways_ += way;
  ++ways_;
  result_.longest_way = std::max(result_.longest_way, way);
}

}  // namespace

RtpLoadResult run_rtp_load(const std::vector<RtpLoadCall>& calls, const RtpLoadSettings& settings) {
  return Load(calls, settings).Run();
}

}  // namespace test_support
