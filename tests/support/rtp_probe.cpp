#include "support/rtp_probe.h"

#include <poll.h>

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>

namespace test_support {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// More often than phones do it, so that short calls have reports too.
constexpr milliseconds kReportInterval{400};
constexpr std::size_t kNeverLost = 5;  // packets at the end of a script

// One direction of a call, driven by the loop below: it is told the time and the packets that arrived.
class Direction {
 public:
  Direction(const RtpDirectionSettings& settings, RtpPhone& from, const RtpExchangeLimits& limits)
      : settings_(settings), from_(from), limits_(limits), talk_(settings.talk) {}

  void Start(Clock::time_point now) {
    started_ = now;
    next_ = now;
  }

  void Heard(const UdpDatagram& datagram, Clock::time_point now) {
    auto data =
        settings_.opened_by != nullptr ? settings_.opened_by->Open(datagram.data) : std::optional(datagram.data);
    auto packet = data ? parse_rtp(data->data(), data->size()) : std::nullopt;
    if (packet) {
      record_.received.push_back({std::move(*packet), datagram.from.ToString(), now});
    } else {
      ++record_.unreadable;
    }
  }

  // Sends what is due; returns when it wants to be called again.
  Clock::time_point Speak(Clock::time_point now) {
    while (!Done(now) && next_ <= now) Step(now);
    return Done(now) ? now + milliseconds(20) : std::max(next_, now);
  }

  bool Done(Clock::time_point now) {
    if (gave_up_) return true;
    if (!scripted_ || spoken_ < script_.size()) return false;
    if (!complete_ && record_.received.size() >= record_.sent.size() - missed_ - lost_) complete_ = now;
    return complete_ ? now >= *complete_ + limits_.afterwards : now >= last_sent_ + limits_.last_packet;
  }

  RtpComparison Compare() const { return compare_rtp(record_, settings_.expected); }
  const RtpRecord& Record() const { return record_; }
  std::size_t LostOnTheWay() const { return lost_; }

 private:
  bool IsToBeLost(std::size_t number) const {
    return settings_.lose_one_of != 0 && (number + 1) % settings_.lose_one_of == 0 &&
           number + kNeverLost < script_.size();
  }

  void Lose(SentPacket sent) {
    record_.sent.push_back(std::move(sent));
    ++lost_;
  }

  void Step(Clock::time_point now) {
    if (!scripted_) {
      if (!record_.received.empty()) {
        BeginScript();
      } else if (now - started_ > limits_.path_open) {
        gave_up_ = true;
      } else {
        Send({talk_.Prime(), RtpKind::kPriming}, now);
        next_ += settings_.talk.codec.ptime;
      }
      return;
    }
    if (spoken_ == script_.size()) {
      next_ = now + milliseconds(5);  // nothing left to say; look again whether all has arrived
      return;
    }
    if (IsToBeLost(spoken_)) {
      Lose({script_[spoken_].packet, script_[spoken_].kind});
    } else {
      Send({script_[spoken_].packet, script_[spoken_].kind}, now);
    }
    ++spoken_;
    next_ = spoken_ < script_.size() ? script_start_ + script_[spoken_].due : now + milliseconds(5);
  }

  void BeginScript() {
    scripted_ = true;
    script_ = talk_.Script();
    script_start_ = next_;
    const auto& first = record_.received.front().packet.payload;
    while (missed_ < record_.sent.size() && record_.sent[missed_].packet.payload != first) ++missed_;
    if (missed_ == record_.sent.size()) missed_ = 0;
  }

  void Send(SentPacket sent, Clock::time_point now) {
    // A packet that the system refuses to take counts as sent: the comparison then misses it.
    const auto data = serialise_rtp(sent.packet);
    from_.Rtp().SendTo(settings_.to, settings_.sealed_by != nullptr ? settings_.sealed_by->Seal(data) : data);
    record_.sent.push_back(std::move(sent));
    last_sent_ = now;
  }

  RtpDirectionSettings settings_;
  RtpPhone& from_;
  RtpExchangeLimits limits_;
  RtpTalk talk_;
  RtpRecord record_;
  std::vector<PlannedPacket> script_;
  std::size_t spoken_ = 0;
  std::size_t missed_ = 0;
  std::size_t lost_ = 0;
  bool scripted_ = false;
  bool gave_up_ = false;
  Clock::time_point started_;
  Clock::time_point script_start_;
  Clock::time_point next_;
  Clock::time_point last_sent_;
  std::optional<Clock::time_point> complete_;
};

// One phone's RTCP: reports on what the two directions have recorded since the last look.
class Reports {
 public:
  Reports(const RtpDirectionSettings& spoken, RtpPhone& phone)
      : phone_(phone),
        to_{spoken.to.address, static_cast<std::uint16_t>(spoken.to.port + 1)},
        reporter_(spoken.talk.ssrc, spoken.talk.codec.clock_rate) {}

  void Look(const RtpRecord& said, const RtpRecord& heard, Clock::time_point now) {
    for (; said_ < said.sent.size(); ++said_) reporter_.Sent(said.sent[said_].packet, now);
    for (; heard_ < heard.received.size(); ++heard_) {
      reporter_.Heard(heard.received[heard_].packet, heard.received[heard_].at);
    }
    if (now - last_ >= kReportInterval) Send(now);
  }

  void Send(Clock::time_point now) {
    phone_.Rtcp().SendTo(to_, reporter_.Report(now));
    last_ = now;
  }

  void Heard(const UdpDatagram& datagram, Clock::time_point now) { reporter_.HeardReport(datagram.data, now); }
  const RtcpAccount& Account() const { return reporter_.Account(); }

 private:
  RtpPhone& phone_;
  const UdpAddress to_;
  RtcpReporter reporter_;
  std::size_t said_ = 0;
  std::size_t heard_ = 0;
  Clock::time_point last_ = Clock::now();
};

struct Call {
  Call(const RtpCallSettings& settings, const RtpExchangeLimits& limits)
      : caller(*settings.caller),
        callee(*settings.callee),
        to_callee(settings.to_callee, caller, limits),
        to_caller(settings.to_caller, callee, limits) {
    if (!settings.reports) return;
    caller_reports.emplace(settings.to_callee, caller);
    callee_reports.emplace(settings.to_caller, callee);
  }

  RtpPhone& caller;
  RtpPhone& callee;
  Direction to_callee;
  Direction to_caller;
  std::size_t rtcp_at_caller = 0;
  std::size_t rtcp_at_callee = 0;
  std::optional<Reports> caller_reports;
  std::optional<Reports> callee_reports;
};

void listen(UdpSocket& socket, Direction& direction) {
  while (auto datagram = socket.Receive()) direction.Heard(*datagram, Clock::now());
}

std::size_t count(UdpSocket& socket, std::optional<Reports>& reports) {
  std::size_t datagrams = 0;
  while (auto datagram = socket.Receive()) {
    if (reports) reports->Heard(*datagram, Clock::now());
    ++datagrams;
  }
  return datagrams;
}

void report(Call& call) {
  if (!call.caller_reports) return;
  call.caller_reports->Look(call.to_callee.Record(), call.to_caller.Record(), Clock::now());
  call.callee_reports->Look(call.to_caller.Record(), call.to_callee.Record(), Clock::now());
}

/// What is said last is the whole of it.
void report_at_the_end(Call& call) {
  if (!call.caller_reports) return;
  report(call);
  call.caller_reports->Send(Clock::now());
  call.callee_reports->Send(Clock::now());
}

void listen(Call& call) {
  listen(call.callee.Rtp(), call.to_callee);
  listen(call.caller.Rtp(), call.to_caller);
  call.rtcp_at_caller += count(call.caller.Rtcp(), call.caller_reports);
  call.rtcp_at_callee += count(call.callee.Rtcp(), call.callee_reports);
  report(call);
}

void wait_for_packets(const std::vector<std::unique_ptr<Call>>& calls, Clock::time_point until) {
  std::vector<pollfd> polled;
  for (const auto& call : calls) {
    for (int descriptor : {call->caller.Rtp().Descriptor(), call->callee.Rtp().Descriptor()}) {
      polled.push_back({descriptor, POLLIN, 0});
    }
  }
  const auto rest = std::chrono::duration_cast<milliseconds>(until - Clock::now()).count();
  poll(polled.data(), polled.size(), static_cast<int>(std::clamp<long>(rest, 0, 20)));
}

}  // namespace

RtpPhone::RtpPhone(const std::string& address) {
  for (int attempt = 0; attempt < 200; ++attempt) {
    UdpSocket rtp(UdpAddress{address, 0});
    if (rtp.Port() % 2 != 0) continue;
    try {
      rtcp_ = UdpSocket(UdpAddress{address, static_cast<std::uint16_t>(rtp.Port() + 1)});
      rtp_ = std::move(rtp);
      return;
    } catch (const std::exception&) {  // the port after it is somebody else's: try another pair
    }
  }
  throw std::runtime_error("no pair of free UDP ports on loopback");
}

std::vector<RtpCallResult> exchange_rtp(const std::vector<RtpCallSettings>& settings, const RtpExchangeLimits& limits) {
  std::vector<std::unique_ptr<Call>> calls;
  for (const RtpCallSettings& one : settings) calls.push_back(std::make_unique<Call>(one, limits));
  for (auto& call : calls) {
    call->to_callee.Start(Clock::now());
    call->to_caller.Start(Clock::now());
  }
  for (bool running = true; running;) {
    running = false;
    auto wake = Clock::now() + milliseconds(20);
    for (auto& call : calls) {
      listen(*call);
      wake = std::min({wake, call->to_callee.Speak(Clock::now()), call->to_caller.Speak(Clock::now())});
      running = running || !call->to_callee.Done(Clock::now()) || !call->to_caller.Done(Clock::now());
    }
    if (running) wait_for_packets(calls, wake);
  }
  std::vector<RtpCallResult> results;
  for (auto& call : calls) {
    listen(*call);
    report_at_the_end(*call);
    RtpCallResult result;
    result.to_callee = call->to_callee.Compare();
    result.to_caller = call->to_caller.Compare();
    result.rtcp_at_caller = call->rtcp_at_caller;
    result.rtcp_at_callee = call->rtcp_at_callee;
    result.lost_to_callee = call->to_callee.LostOnTheWay();
    result.lost_to_caller = call->to_caller.LostOnTheWay();
    if (call->caller_reports) result.caller_reports = call->caller_reports->Account();
    if (call->callee_reports) result.callee_reports = call->callee_reports->Account();
    results.push_back(std::move(result));
  }
  return results;
}

RtpComparison say_rtp(RtpPhone& from, RtpPhone& to, const RtpDirectionSettings& settings,
                      const RtpExchangeLimits& limits) {
  Direction direction(settings, from, limits);
  direction.Start(Clock::now());
  while (!direction.Done(Clock::now())) {
    listen(to.Rtp(), direction);
    const auto wake = direction.Speak(Clock::now());
    const auto rest = std::chrono::duration_cast<milliseconds>(wake - Clock::now()).count();
    pollfd polled{to.Rtp().Descriptor(), POLLIN, 0};
    poll(&polled, 1, static_cast<int>(std::clamp<long>(rest, 0, 20)));
  }
  listen(to.Rtp(), direction);
  return direction.Compare();
}

}  // namespace test_support
