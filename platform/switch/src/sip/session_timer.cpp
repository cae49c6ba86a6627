#include "sip/session_timer.h"

#include <algorithm>

namespace kvx_switch {

namespace {

// What a call has at the least where nothing else was said (RFC 4028, 5).
constexpr uint32_t kUsualLeast = 90;
// So long before the end a call is given up, a third of the time for short ones (RFC 4028, 10).
constexpr uint32_t kGrace = 32;

const char* Text(bool uac) {
  return uac ? ";refresher=uac" : ";refresher=uas";
}

}  // namespace

std::string SessionTimer::RequestExpires() const {
  const uint32_t wanted = seconds_ ? seconds_ : settings_.session_seconds;
  std::string value = std::to_string(std::max(wanted, least_));
  // In the middle of a call nobody changes his part.
  if (refresher_ != Refresher::kNobody) value += Text(refresher_ == Refresher::kUs);
  return value;
}

std::string SessionTimer::RequestLeast() const {
  return least_ == kUsualLeast ? "" : std::to_string(least_);
}

void SessionTimer::OnAnswered(const SessionTimerHeaders& answer) {
  if (!settings_.enabled) return;
  we_asked_ = true;
  seconds_ = answer.expires.value_or(std::max(seconds_ ? seconds_ : settings_.session_seconds, least_));
  const bool theirs = answer.expires && answer.refresher == SessionTimerHeaders::Refresher::kUas;
  refresher_ = theirs ? Refresher::kThem : Refresher::kUs;
}

bool SessionTimer::OnTooSmall(const SessionTimerHeaders& answer) {
  if (!answer.least || *answer.least <= std::max(seconds_ ? seconds_ : settings_.session_seconds, least_)) return false;
  least_ = *answer.least;
  return true;
}

bool SessionTimer::OnRequest(const SessionTimerHeaders& request) {
  if (!settings_.enabled) return true;
  if (request.expires && *request.expires < settings_.least_seconds && request.supported) return false;
  we_asked_ = false;
  least_ = std::max(settings_.least_seconds, request.least.value_or(0));
  seconds_ = request.expires ? std::max(*request.expires, settings_.least_seconds)
                             : std::max(settings_.session_seconds, least_);
  const bool ours = !request.supported || request.refresher == SessionTimerHeaders::Refresher::kUas;
  refresher_ = ours ? Refresher::kUs : Refresher::kThem;
  return true;
}

std::string SessionTimer::AnswerExpires() const {
  if (refresher_ == Refresher::kNobody) return "";
  return std::to_string(seconds_) + Text(refresher_ == (we_asked_ ? Refresher::kUs : Refresher::kThem));
}

std::chrono::milliseconds SessionTimer::Patience() const {
  if (refresher_ == Refresher::kUs) return std::chrono::milliseconds(400) * seconds_;
  return EndAfter();
}

std::chrono::seconds SessionTimer::EndAfter() const {
  return std::chrono::seconds(std::max(seconds_ - std::min(kGrace, seconds_ / 3), 1u));
}

}  // namespace kvx_switch
