#include "rtpengine/ng_requests.h"

#include <algorithm>

namespace kelvaro::jsr309::rtpengine {
namespace {

/// How many overdue requests are remembered, to tell a late reply from a further one.
constexpr std::size_t kOverdueRemembered = 1024;

}  // namespace

bool NgRequests::Add(NgRequest& request, NgTime now, NgBatch& batch) {
  if (!request.call_id.empty() && entries_.size() >= kNgMostRequests) return false;
  const uint64_t number = request.number;
  last_number_ = std::max(last_number_, number);
  Entry& entry = entries_[number];
  entry.end = now + request.limit;
  entry.request = std::move(request);
  if (!entry.request.asked) ends_.emplace(entry.end, number);
  if (entry.request.call_id.empty()) {
    Send(entry, now, batch);
    return true;
  }
  std::deque<uint64_t>& line = lines_[entry.request.call_id];
  line.push_back(number);
  if (line.size() == 1) Begin(entry, now, batch);
  return true;
}

void NgRequests::Begin(Entry& entry, NgTime now, NgBatch& batch) {
  if (under_way_ >= kNgUnderWay) {
    ready_.insert(entry.request.number);
    return;
  }
  ++under_way_;
  Send(entry, now, batch);
}

void NgRequests::Send(Entry& entry, NgTime now, NgBatch& batch) {
  if (entry.sent) {
    ++repeated_;
    entry.wait = std::min(2 * entry.wait, kNgLongestWait);
  } else {
    ++sent_;
    entry.sent = true;
  }
  entry.again = now + entry.wait;
  repetitions_.emplace(entry.again, entry.request.number);
  batch.to_send.push_back(entry.request.datagram);
}

NgRequests::Reply NgRequests::TakeReply(uint64_t number, Dictionary message, NgTime now, NgBatch& batch) {
  const auto found = entries_.find(number);
  if (found != entries_.end() && found->second.sent) {
    trouble_.clear();
    batch.ended.emplace_back(std::move(found->second.request.done), NgResult{std::move(message), {}});
    Remove(found, now, batch);
    return Reply::kAwaited;
  }
  if (overdue_.erase(number) != 0) return Reply::kLate;
  return found == entries_.end() && number != 0 && number <= last_number_ ? Reply::kDuplicate : Reply::kUnknown;
}

void NgRequests::TakeTime(NgTime now, NgBatch& batch) {
  while (!ends_.empty() && ends_.begin()->first <= now) {
    const auto at = entries_.find(ends_.begin()->second);
    ++timeouts_;
    if (at->second.sent) RememberOverdue(at->first);
    batch.ended.emplace_back(std::move(at->second.request.done), NgResult{std::nullopt, Overdue(at->second)});
    Remove(at, now, batch);
  }
  while (!repetitions_.empty() && repetitions_.begin()->first <= now) {
    Entry& entry = entries_.at(repetitions_.begin()->second);
    repetitions_.erase(repetitions_.begin());
    Send(entry, now, batch);
  }
}

std::string NgRequests::Abandon(uint64_t number, NgTime now, NgBatch& batch) {
  const auto found = entries_.find(number);
  if (found == entries_.end()) return {};
  ++timeouts_;
  std::string error = Overdue(found->second);
  if (found->second.sent) RememberOverdue(number);
  Remove(found, now, batch);
  return error;
}

void NgRequests::EndAll(const std::string& error, NgBatch& batch) {
  std::vector<uint64_t> numbers;
  for (const auto& [number, entry] : entries_) numbers.push_back(number);
  std::sort(numbers.begin(), numbers.end());
  for (const uint64_t number : numbers) {
    batch.ended.emplace_back(std::move(entries_.at(number).request.done), NgResult{std::nullopt, error});
  }
  entries_.clear();
  lines_.clear();
  ready_.clear();
  ends_.clear();
  repetitions_.clear();
  under_way_ = 0;
}

NgTime NgRequests::Next() const {
  NgTime next = NgTime::max();
  if (!ends_.empty()) next = ends_.begin()->first;
  if (!repetitions_.empty()) next = std::min(next, repetitions_.begin()->first);
  return next;
}

void NgRequests::Remove(Entries::iterator at, NgTime now, NgBatch& batch) {
  const Entry& entry = at->second;
  const NgRequest request = std::move(at->second.request);
  ends_.erase({entry.end, request.number});
  if (entry.sent) repetitions_.erase({entry.again, request.number});
  const bool had_room = entry.sent && !request.call_id.empty();
  entries_.erase(at);
  ready_.erase(request.number);
  if (had_room) --under_way_;
  if (!request.call_id.empty()) LeaveLine(request, now, batch);
  FillRoom(now, batch);
}

void NgRequests::LeaveLine(const NgRequest& request, NgTime now, NgBatch& batch) {
  const auto found = lines_.find(request.call_id);
  std::deque<uint64_t>& line = found->second;
  const bool was_first = line.front() == request.number;
  line.erase(std::find(line.begin(), line.end(), request.number));
  if (line.empty()) {
    lines_.erase(found);
  } else if (was_first) {
    Begin(entries_.at(line.front()), now, batch);
  }
}

void NgRequests::FillRoom(NgTime now, NgBatch& batch) {
  while (under_way_ < kNgUnderWay && !ready_.empty()) {
    Entry& entry = entries_.at(*ready_.begin());
    ready_.erase(ready_.begin());
    Begin(entry, now, batch);
  }
}

std::string NgRequests::Overdue(const Entry& entry) const {
  const NgRequest& request = entry.request;
  std::string text = name_ + ": no reply to \"" + request.command + "\"";
  if (!request.call_id.empty()) text += " of " + request.call_id;
  text += " within " + std::to_string(request.limit.count()) + " ms";
  if (!entry.sent) text += ", not sent for others before it";
  if (!trouble_.empty()) text += ": " + trouble_;
  return text;
}

void NgRequests::RememberOverdue(uint64_t number) {
  overdue_.insert(number);
  if (overdue_.size() > kOverdueRemembered) overdue_.erase(overdue_.begin());
}

}  // namespace kelvaro::jsr309::rtpengine
