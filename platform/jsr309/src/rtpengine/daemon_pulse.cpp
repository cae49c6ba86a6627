#include "rtpengine/daemon_pulse.h"

#include <algorithm>
#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

constexpr milliseconds kShortestInterval{5};

}  // namespace

DaemonLife ReadDaemonLife(const Dictionary& statistics_reply) {
  DaemonLife life;
  const Dictionary* const statistics = EntriesOf(statistics_reply, "statistics");
  if (statistics == nullptr) return life;
  if (const Dictionary* const totals = EntriesOf(*statistics, "totalstatistics")) {
    life.uptime = NumberOf(*totals, "uptime");
  }
  if (const Dictionary* const control = EntriesOf(*statistics, "controlstatistics")) {
    life.statistics_given = NumberOf(*control, "totalstatscount");
  }
  return life;
}

DaemonPulse::DaemonPulse(milliseconds heartbeat)
    : heartbeat_(heartbeat), interval_(std::max(heartbeat / 4, kShortestInterval)) {}

void DaemonPulse::TakeAnswer(NgTime now) {
  refusals_ = 0;
  asked_.reset();
  if (!alive_ && !std::exchange(greeted_, true)) next_statistics_ = now;
}

DaemonPulse::Change DaemonPulse::TakeRefusal(NgTime now) {
  if (!alive_) return Change::kNone;
  next_ping_ = now;
  return ++refusals_ < 2 ? Change::kNone : Lose("nobody listens there any more");
}

DaemonPulse::Change DaemonPulse::TakeTime(NgTime now) {
  // The question came at most one interval after the last answer.
  if (!alive_ || !asked_ || now - *asked_ < heartbeat_ - interval_) return Change::kNone;
  return Lose("no answer for " + std::to_string(heartbeat_.count()) + " ms");
}

DaemonPulse::Change DaemonPulse::TakeLife(const DaemonLife& life) {
  statistics_asked_ = false;
  const bool suspected = std::exchange(judging_suspicion_, false);
  if (!alive_) {
    if (!greeted_) return Change::kNone;
    alive_ = true;
    life_ = life;
    return Change::kBack;
  }
  std::string why = "a call is not known any more";
  if (WasRestarted(life, why).value_or(suspected)) {
    Lose(why);
    alive_ = greeted_ = true;
    life_ = life;
    return Change::kLostAndBack;
  }
  if (life.uptime || life.statistics_given) life_ = life;
  return Change::kNone;
}

void DaemonPulse::TakeNoLife() {
  statistics_asked_ = false;
  if (!alive_) greeted_ = false;  // to be asked again when it answers again
  suspected_ = suspected_ || std::exchange(judging_suspicion_, false);
}

std::optional<bool> DaemonPulse::WasRestarted(const DaemonLife& life, std::string& why) const {
  if (life.statistics_given && life_.statistics_given) {
    why = "restarted: it has given statistics " + std::to_string(*life.statistics_given) + " times, after " +
          std::to_string(*life_.statistics_given);
    return *life.statistics_given <= *life_.statistics_given;
  }
  if (!life.uptime || !life_.uptime) return std::nullopt;
  why = "restarted: it is up for " + std::to_string(*life.uptime) + " s, after " + std::to_string(*life_.uptime) + " s";
  return *life.uptime < *life_.uptime;
}

void DaemonPulse::Suspect() {
  suspected_ = true;
  next_statistics_ = NgTime::min();
}

DaemonPulse::Change DaemonPulse::Lose(const std::string& why) {
  alive_ = greeted_ = suspected_ = judging_suspicion_ = false;
  why_ = why;
  refusals_ = 0;
  asked_.reset();
  life_ = {};
  return Change::kLost;
}

DaemonPulse::Request DaemonPulse::TakeDue(NgTime now) {
  if ((alive_ || greeted_) && !statistics_asked_ && now >= next_statistics_) {
    next_statistics_ = now + heartbeat_;
    statistics_asked_ = true;
    judging_suspicion_ = std::exchange(suspected_, false);
    return Request::kStatistics;
  }
  if (now < next_ping_) return Request::kNone;
  next_ping_ = now + interval_;
  if (alive_ && !asked_) asked_ = now;
  return Request::kPing;
}

NgTime DaemonPulse::Next() const {
  NgTime next = next_ping_;
  if ((alive_ || greeted_) && !statistics_asked_) next = std::min(next, next_statistics_);
  if (alive_ && asked_) next = std::min(next, *asked_ + (heartbeat_ - interval_));
  return next;
}

}  // namespace kelvaro::jsr309::rtpengine
