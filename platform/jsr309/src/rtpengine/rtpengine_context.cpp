#include "rtpengine/rtpengine_context.h"

#include "address_text.h"
#include "rtpengine/call_picture.h"
#include "rtpengine/rtpengine_endpoint.h"

#include <algorithm>
#include <random>
#include <thread>
#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

/// Between attempts to end calls that the daemon did not confirm as ended.
constexpr milliseconds kCondemnedInterval{5000};
/// Between looks at endpoints, however many there are: those that are due in the meantime are looked at together.
constexpr milliseconds kShortestRest{50};
/// Whatever else happens, the control thread looks around then.
constexpr milliseconds kLongestRest{1000};
/// For what nobody waits for. A reply may take that long on a busy host.
constexpr milliseconds kPostedLimit{5000};
/// Of the time that a stop may take, what the control channel's own end takes at most.
constexpr milliseconds kForTheChannel{100};

/// Two libraries with one daemon, or two runs of one, must not use the same names.
std::string DrawPrefix() {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::random_device random;
  std::string prefix = "kvx-";
  for (int i = 0; i < 16; ++i) prefix += kDigits[random() % 16];
  return prefix + "-";
}

}  // namespace

RtpengineContext::RtpengineContext(const MediaServerSettings& settings, const RtpengineSettings& own,
                                   std::shared_ptr<RtpengineBooks> books, DaemonListener& listener,
                                   std::shared_ptr<GuardedLogger> logger)
    : settings_(settings),
      own_(own),
      family_(ParseIp(settings.addresses.front()).value_or(IpKey()).family),
      prefix_(DrawPrefix()),
      books_(std::move(books)),
      logger_(logger),
      control_({own.control_address, own.control_port, settings.mac}, std::move(logger)),
      watch_(control_, own.heartbeat, listener) {}

bool RtpengineContext::Start(std::string& error) {
  return control_.Start(this, error);
}

bool RtpengineContext::AwaitAnswer(NgTime deadline) {
  if (IsAlive()) return true;
  std::string ignored;
  const auto left = std::chrono::ceil<milliseconds>(deadline - NgTime::clock::now());
  if (left.count() <= 0 || !control_.Ask({{"command", "ping"}}, left, ignored)) return false;
  // Its figures, which the watch asks for then, come a moment later. Only a start waits here.
  while (!IsAlive() && NgTime::clock::now() < deadline) std::this_thread::sleep_for(milliseconds(1));
  return IsAlive();
}

void RtpengineContext::Stop(milliseconds limit) {
  const NgTime deadline = NgTime::clock::now() + limit - std::min(limit, kForTheChannel);
  std::vector<std::string> calls;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
    for (const auto& call : calls_) calls.push_back(call.first);
  }
  // A daemon that is lost has no calls, or gives no answer.
  if (IsAlive()) {
    for (const std::string& call_id : calls) PostDelete(call_id);
    if (!WaitForNoCalls(deadline)) {
      Log(ERROR_LOG_LEVEL, "Stopped before " + Name() + " had confirmed the end of every call");
    }
  }
  control_.Stop();
}

bool RtpengineContext::WaitForNoCalls(NgTime deadline) {
  std::unique_lock<std::mutex> lock(mutex_);
  return fewer_calls_.wait_until(lock, deadline, [this] { return calls_.empty(); });
}

std::optional<Dictionary> RtpengineContext::Ask(const Dictionary& request, uint64_t epoch, NgTime deadline,
                                                std::string& error) {
  if (!Has(epoch)) {
    error = Name() + " is lost";
    return std::nullopt;
  }
  const auto left = std::chrono::ceil<milliseconds>(deadline - NgTime::clock::now());
  if (left.count() <= 0) {
    error = Name() + ": no time left for \"" + TextOf(request, "command") + "\"";
    return std::nullopt;
  }
  std::optional<Dictionary> reply = control_.Ask(request, left, error, WantedFor(request));
  if (!reply) return std::nullopt;
  const std::string refusal = RefusalOf(*reply);
  if (refusal.empty()) return reply;
  if (IsUnknownCall(*reply)) watch_.ReportUnknownCall(epoch);
  error = Name() + " refused \"" + TextOf(request, "command") + "\": " + refusal;
  return std::nullopt;
}

void RtpengineContext::Post(const Dictionary& request, uint64_t epoch, const std::shared_ptr<PostedRequests>& posted) {
  if (!Has(epoch)) return;
  if (posted == nullptr) {
    control_.Post(request, kPostedLimit, nullptr, WantedFor(request));
    return;
  }
  posted->Add();
  const auto done = [posted](const NgResult&) { posted->Done(); };
  if (!control_.Post(request, kPostedLimit, done, WantedFor(request))) posted->Done();
}

/// An offer that comes after the end of its call would make it anew.
NgCondition RtpengineContext::WantedFor(const Dictionary& request) {
  return [this, call_id = TextOf(request, "call-id")] {
    const std::lock_guard<std::mutex> lock(mutex_);
    return !stopped_ && calls_.count(call_id) != 0 && condemned_.count(call_id) == 0;
  };
}

bool RtpengineContext::Query(const Dictionary& request, NgDone done) {
  return control_.Post(request, milliseconds(settings_.request_timeout_ms), std::move(done));
}

std::string RtpengineContext::NewCall(uint64_t epoch) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::string call_id = prefix_ + std::to_string(++last_call_);
  calls_.emplace(call_id, epoch);
  return call_id;
}

void RtpengineContext::CondemnCall(const std::string& call_id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (calls_.count(call_id) != 0) condemned_.insert(call_id);
}

void RtpengineContext::DeleteIsOver(const std::string& call_id, bool gone) {
  const std::lock_guard<std::mutex> lock(mutex_);
  deletes_.erase(deletes_.find(call_id));
  if (!gone) return;
  condemned_.erase(call_id);
  calls_.erase(call_id);
  fewer_calls_.notify_all();
}

bool RtpengineContext::EndCall(const std::string& call_id, NgTime deadline, std::string& error) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - NgTime::clock::now());
  bool gone = false;
  if (IsAlive() && left.count() > 0) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (calls_.count(call_id) == 0) return true;
      condemned_.insert(call_id);
      deletes_.insert(call_id);
    }
    // What it does not know is not there.
    gone = control_.Ask(DeleteOf(call_id), left, error).has_value();
    DeleteIsOver(call_id, gone);
  }
  if (gone) return true;
  if (error.empty()) error = Name() + " is lost";
  DropCall(call_id);
  return false;
}

void RtpengineContext::DropCall(const std::string& call_id) {
  CondemnCall(call_id);
  if (IsAlive()) PostDelete(call_id);
}

void RtpengineContext::PostDelete(const std::string& call_id) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (calls_.count(call_id) == 0) return;
    deletes_.insert(call_id);
  }
  const auto done = [this, call_id](const NgResult& result) { DeleteIsOver(call_id, result.reply.has_value()); };
  if (!control_.Post(DeleteOf(call_id), kPostedLimit, done)) DeleteIsOver(call_id, false);
}

void RtpengineContext::EndFormerCalls() {
  const uint64_t epoch = Epoch();
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& [call_id, made] : calls_) {
    if (made != epoch) condemned_.insert(call_id);
  }
  next_condemned_ = NgTime();
}

void RtpengineContext::EndCondemned(NgTime now) {
  std::vector<std::string> calls;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (now < next_condemned_ || stopped_) return;
    next_condemned_ = now + kCondemnedInterval;
    for (const std::string& call_id : condemned_) {
      if (deletes_.count(call_id) == 0) calls.push_back(call_id);
    }
  }
  if (!IsAlive()) return;
  for (const std::string& call_id : calls) PostDelete(call_id);
}

void RtpengineContext::Watch(const std::weak_ptr<RtpengineEndpoint>& endpoint) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto same = [&endpoint](const Watched& one) {
      return !one.endpoint.owner_before(endpoint) && !endpoint.owner_before(one.endpoint);
    };
    const auto found = std::find_if(watched_.begin(), watched_.end(), same);
    if (found == watched_.end()) {
      watched_.push_back({endpoint, NgTime::min()});
    } else {
      found->next = NgTime::min();
    }
  }
  control_.WakeListener();
}

NgTime RtpengineContext::OnTime(NgTime now) {
  const NgTime next = watch_.OnTime(now);
  EndCondemned(now);
  return std::min({next, now + kLongestRest, LookAtEndpoints(now)});
}

std::vector<std::pair<std::size_t, std::shared_ptr<RtpengineEndpoint>>> RtpengineContext::TakeDueEndpoints(NgTime now) {
  std::vector<std::pair<std::size_t, std::shared_ptr<RtpengineEndpoint>>> due;
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto gone = [now](const Watched& one) { return one.next <= now && one.endpoint.expired(); };
  watched_.erase(std::remove_if(watched_.begin(), watched_.end(), gone), watched_.end());
  for (std::size_t i = 0; i < watched_.size(); ++i) {
    if (watched_[i].next > now) continue;
    watched_[i].next = now + kLongestRest;
    if (auto endpoint = watched_[i].endpoint.lock()) due.emplace_back(i, std::move(endpoint));
  }
  return due;
}

/// Endpoints take a lock that all operations of the driver want, so only those that are due are asked.
NgTime RtpengineContext::LookAtEndpoints(NgTime now) {
  const auto due = TakeDueEndpoints(now);
  std::vector<NgTime> looks;
  looks.reserve(due.size());
  for (const auto& one : due) looks.push_back(one.second->LookAtPackets(now));
  NgTime next = NgTime::max();
  const std::lock_guard<std::mutex> lock(mutex_);
  for (std::size_t i = 0; i < due.size(); ++i) {
    NgTime& look = watched_[due[i].first].next;
    // Unless somebody wants it sooner since.
    if (look > now) look = std::min(look, looks[i]);
  }
  for (const Watched& one : watched_) next = std::min(next, one.next);
  return next == NgTime::max() ? next : std::max(next, now + kShortestRest);
}

void RtpengineContext::Log(LogLevel level, const std::string& text) const {
  KELVARO_LOG(*logger_, level, settings_.mac, text);
}

void RtpengineContext::NameUnsupported(const std::string& setting, const std::string& consequence) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!named_.insert(setting).second) return;
  }
  // The library's INFO is what its host shows as a notice.
  Log(INFO_LOG_LEVEL, "rtpengine does not support " + setting + ": " + consequence);
}

}  // namespace kelvaro::jsr309::rtpengine
