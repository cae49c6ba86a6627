#include "rtpengine/ng_channel.h"

#include <algorithm>
#include <charconv>
#include <random>
#include <system_error>

namespace kelvaro::jsr309::rtpengine {
namespace {

/// Datagrams taken between two looks at the timers.
constexpr int kDatagramsAtOnce = 64;

/// The channel whose thread this is.
thread_local const void* own_channel = nullptr;

NgTime Now() {
  return std::chrono::steady_clock::now();
}

/// Nobody who does not see our requests can guess the cookie of a reply.
std::string DrawPrefix() {
  static const char digits[] = "0123456789abcdef";
  std::random_device random;
  std::string prefix;
  for (int i = 0; i < 16; ++i) prefix += digits[random() % 16];
  return prefix + "_";
}

std::string NameOf(const NgControlSettings& settings) {
  const bool ipv6 = settings.address.find(':') != std::string::npos;
  return "rtpengine " + (ipv6 ? "[" + settings.address + "]" : settings.address) + ":" + std::to_string(settings.port) +
         " (" + settings.mac + ")";
}

}  // namespace

NgControl::Channel::Channel(const NgControlSettings& settings, std::shared_ptr<GuardedLogger> logger)
    : settings_(settings),
      name_(NameOf(settings)),
      cookie_prefix_(DrawPrefix()),
      complaints_(std::move(logger)),
      requests_(name_) {}

bool NgControl::Channel::Start(NgListener* listener, std::string& error) {
  if (!socket_.Open(settings_.address, settings_.port, error)) {
    error = name_ + ": " + error;
    return false;
  }
  listener_ = listener;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    listener_is_due_ = running_ = true;
  }
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (const std::system_error& problem) {
    const std::lock_guard<std::mutex> lock(mutex_);
    running_ = false;
    error = name_ + ": no thread: " + problem.what();
    return false;
  }
  return true;
}

void NgControl::Channel::Stop() {
  std::call_once(stopped_, [this] {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      running_ = false;
    }
    if (!thread_.joinable()) return;
    socket_.Ring();
    thread_.join();
  });
}

bool NgControl::Channel::IsOwnThread() const {
  return own_channel == this;
}

void NgControl::Channel::Complain(const std::string& text) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!running_) return;
  }
  complaints_.Warn(text, Now());
}

uint64_t NgControl::Channel::Add(NgRequest request, const Dictionary& message, const NgCondition& wanted,
                                 std::string& error) {
  const std::shared_ptr<const std::string> text = ShareSecret(EncodeBencode(message));
  NgBatch batch;
  bool wake = false;
  uint64_t number = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    number = request.number = ++last_number_;
    request.datagram = ShareSecret(cookie_prefix_ + std::to_string(number) + " " + *text);
    const std::string what = name_ + ": \"" + request.command + "\"";
    if (!running_) {
      error = what + " after the stop";
    } else if (request.datagram->size() > kLongestNgDatagram) {
      error = what + " of " + std::to_string(request.datagram->size()) + " octets does not fit into a datagram of " +
              std::to_string(kLongestNgDatagram);
    } else if (wanted && !wanted()) {
      return 0;
    } else if (!requests_.Add(request, Now(), batch)) {
      error = what + " refused: " + std::to_string(kNgMostRequests) + " requests wait already";
    }
    if (!error.empty()) return 0;
    wake = requests_.Next() < waits_until_;
  }
  Do(batch);
  if (wake) socket_.Ring();
  return number;
}

std::string NgControl::Channel::Abandon(uint64_t number) {
  NgBatch batch;
  std::string error;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    error = requests_.Abandon(number, Now(), batch);
  }
  Do(batch);
  return error;
}

void NgControl::Channel::WakeListener() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!running_) return;
    listener_is_due_ = true;
  }
  socket_.Ring();
}

void NgControl::Channel::Do(NgBatch& batch) {
  for (const auto& datagram : batch.to_send) {
    std::string error;
    const NgSocket::Sent sent = socket_.Send(*datagram, error);
    if (sent == NgSocket::Sent::kYes) continue;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      refused_ = refused_ || sent == NgSocket::Sent::kRefused;
      requests_.SetTrouble(sent == NgSocket::Sent::kRefused ? "nobody listens there" : error);
    }
    if (sent == NgSocket::Sent::kRefused && !IsOwnThread()) socket_.Ring();
  }
  for (auto& [done, result] : batch.ended) {
    if (done) done(result);
  }
}

void NgControl::Channel::Run() {
  own_channel = this;
  while (true) {
    NgBatch batch;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (!running_) break;
      requests_.TakeTime(Now(), batch);
    }
    Do(batch);
    CallListener();
    socket_.Wait(Rest());
    ReceiveAll();
  }
  EndAll();
}

milliseconds NgControl::Channel::Rest() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!running_ || refused_ || listener_is_due_) return milliseconds(0);
  const NgTime now = Now();
  // At least now and then, so that no slip with a bell can last.
  waits_until_ = std::min({requests_.Next(), listener_next_, now + std::chrono::seconds(10)});
  return std::chrono::ceil<milliseconds>(std::max(waits_until_ - now, NgTime::duration(0)));
}

void NgControl::Channel::CallListener() {
  bool due = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    waits_until_ = NgTime::min();
    std::swap(due, listener_is_due_);
  }
  const NgTime now = Now();
  if (listener_ != nullptr && (due || now >= listener_next_)) listener_next_ = listener_->OnTime(now);
}

void NgControl::Channel::ReceiveAll() {
  bool refused = false;
  for (int i = 0; i < kDatagramsAtOnce; ++i) {
    std::string_view datagram;
    std::string error;
    const NgSocket::Received received = socket_.Receive(datagram, error);
    if (received == NgSocket::Received::kNothing) break;
    if (received == NgSocket::Received::kDatagram) {
      TakeDatagram(datagram);
      socket_.WipeReceived();
      continue;
    }
    const bool oversized = received == NgSocket::Received::kOversized;
    if (oversized) Complain(name_ + ": dropped a reply of more than " + std::to_string(kLongestNgDatagram) + " octets");
    const std::lock_guard<std::mutex> lock(mutex_);
    if (oversized) {
      ++counters_.oversized;
      continue;
    }
    if (received == NgSocket::Received::kRefused) refused_ = true;
    requests_.SetTrouble(received == NgSocket::Received::kRefused ? "nobody listens there" : error);
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::swap(refused, refused_);
    if (refused) ++counters_.refused;
  }
  if (refused && listener_ != nullptr) listener_->OnRefused(Now());
}

uint64_t NgControl::Channel::NumberOf(const std::string& cookie) const {
  const std::size_t length = cookie_prefix_.size();
  uint64_t number = 0;
  const char* const end = cookie.data() + cookie.size();
  if (cookie.compare(0, length, cookie_prefix_) != 0) return 0;
  const auto [stop, problem] = std::from_chars(cookie.data() + length, end, number);
  return problem == std::errc() && stop == end ? number : 0;
}

void NgControl::Channel::TakeDatagram(std::string_view datagram) {
  const NgTime now = Now();
  std::string error;
  std::optional<NgFrame> frame = ParseNg(datagram, error);
  NgBatch batch;
  std::string complaint;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!frame) {
      ++counters_.malformed;
      complaint = "malformed reply of " + std::to_string(datagram.size()) + " octets: " + error;
    } else {
      switch (requests_.TakeReply(NumberOf(frame->cookie), std::move(frame->message), now, batch)) {
        case NgRequests::Reply::kAwaited:
          ++counters_.replies;
          break;
        case NgRequests::Reply::kDuplicate:
          ++counters_.duplicates;
          break;
        case NgRequests::Reply::kLate:
          ++counters_.late;
          break;
        case NgRequests::Reply::kUnknown:
          ++counters_.wrong_cookies;
          complaint = "reply to no request of ours";
      }
    }
  }
  if (!complaint.empty()) {
    complaints_.Warn(name_ + ": dropped a " + complaint, now);
    return;
  }
  if (listener_ != nullptr) listener_->OnAnswer(now);
  Do(batch);
}

void NgControl::Channel::EndAll() {
  NgBatch batch;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    requests_.EndAll(name_ + ": stopped", batch);
  }
  Do(batch);
}

NgCounters NgControl::Channel::Counters() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  NgCounters counters = counters_;
  counters.requests = requests_.sent();
  counters.retransmissions = requests_.repeated();
  counters.timeouts = requests_.timeouts();
  return counters;
}

}  // namespace kelvaro::jsr309::rtpengine
