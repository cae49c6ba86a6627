#include "rtpengine/daemon_watch.h"

#include <vector>

namespace kelvaro::jsr309::rtpengine {

DaemonWatch::DaemonWatch(NgControl& control, milliseconds heartbeat, DaemonListener& listener)
    : control_(control), listener_(listener), pulse_(heartbeat) {}

bool DaemonWatch::IsAlive() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return pulse_.alive();
}

uint64_t DaemonWatch::Epoch() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return epoch_;
}

void DaemonWatch::ReportUnknownCall(uint64_t epoch) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (epoch != epoch_ || !pulse_.alive()) return;
    pulse_.Suspect();
  }
  control_.WakeListener();
}

void DaemonWatch::OnAnswer(NgTime now) {
  bool due = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    pulse_.TakeAnswer(now);
    due = pulse_.Next() <= now;
  }
  if (due) control_.WakeListener();
}

void DaemonWatch::OnRefused(NgTime now) {
  DaemonPulse::Change change = DaemonPulse::Change::kNone;
  std::string why;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    change = pulse_.TakeRefusal(now);
    why = Note(change);
  }
  Tell(change, why);
  control_.WakeListener();
}

NgTime DaemonWatch::OnTime(NgTime now) {
  std::vector<DaemonPulse::Request> requests;
  DaemonPulse::Change change = DaemonPulse::Change::kNone;
  std::string why;
  NgTime next;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    change = pulse_.TakeTime(now);
    why = Note(change);
    for (auto due = pulse_.TakeDue(now); due != DaemonPulse::Request::kNone; due = pulse_.TakeDue(now)) {
      requests.push_back(due);
    }
    next = pulse_.Next();
  }
  Tell(change, why);
  for (const DaemonPulse::Request request : requests) {
    request == DaemonPulse::Request::kPing ? Ping() : AskForLife();
  }
  return next;
}

void DaemonWatch::Ping() {
  control_.Post({{"command", "ping"}}, pulse_.interval());
}

void DaemonWatch::AskForLife() {
  const auto done = [this](const NgResult& result) { TakeLife(result); };
  if (!control_.Post({{"command", "statistics"}}, pulse_.heartbeat(), done)) TakeLife({});
}

void DaemonWatch::TakeLife(const NgResult& result) {
  DaemonPulse::Change change = DaemonPulse::Change::kNone;
  std::string why;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (result.reply) {
      change = pulse_.TakeLife(ReadDaemonLife(*result.reply));
    } else {
      pulse_.TakeNoLife();
    }
    why = Note(change);
  }
  Tell(change, why);
  control_.WakeListener();
}

std::string DaemonWatch::Note(DaemonPulse::Change change) {
  if (change != DaemonPulse::Change::kLost && change != DaemonPulse::Change::kLostAndBack) return {};
  ++epoch_;
  return pulse_.why();
}

void DaemonWatch::Tell(DaemonPulse::Change change, const std::string& why) {
  using Change = DaemonPulse::Change;
  if (change == Change::kLost || change == Change::kLostAndBack) listener_.OnDaemonLost(why);
  if (change == Change::kBack || change == Change::kLostAndBack) listener_.OnDaemonBack();
}

}  // namespace kelvaro::jsr309::rtpengine
