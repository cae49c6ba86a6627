// What comes from the far end: how much, from where, and when nothing does.
#include "rtpengine/rtcp_figures.h"
#include "rtpengine/rtpengine_endpoint.h"

#include <algorithm>
#include <utility>

namespace kelvaro::jsr309::rtpengine {
namespace {

/// Of a far end that is being looked for.
constexpr milliseconds kLearningInterval{500};
/// How long whoever speaks first may be taken for the far end.
constexpr std::chrono::seconds kLearningTime{10};

}  // namespace

bool RtpengineEndpoint::GetRtcpStatsReport(std::vector<RtcpStatsReport>& reports) {
  const NgTime deadline = context_->DeadlineFrom(NgTime::clock::now());
  Call call;
  uint32_t clock_rate = 0;
  bool usable = false;
  {
    const Lock lock(context_->books().mutex);
    usable = Usable();
    call = call_;
    const MediaCodec* const codec = record_.codecs.agreed();
    clock_rate = codec == nullptr ? 8000 : static_cast<uint32_t>(codec->sample_rate);
  }
  if (!usable) return Report("statistics", kGone);
  std::vector<RtcpStatsReport> fetched;
  if (call != nullptr) {
    std::string error;
    const std::optional<Dictionary> query = call->Query(deadline, error);
    if (!query) return Report("statistics", error);
    fetched = ReadReports(*query, clock_rate);
  }
  reports = std::move(fetched);
  return true;
}

bool RtpengineEndpoint::TakeFoundPlace(const Dictionary& query) {
  const NgPlace place = ReadFoundPlace(query);
  const Lock lock(context_->books().mutex);
  if (place.empty() || !record_.learning || !is_learning_applied_) return false;
  record_.found = place;
  record_.learning = is_learning_applied_ = false;
  ++changes_;
  return true;
}

bool RtpengineEndpoint::GiveUpLearning(NgTime now) {
  const Lock lock(context_->books().mutex);
  if (!record_.learning || !is_learning_applied_ || now < learning_until_) return false;
  record_.learning = is_learning_applied_ = false;
  ++changes_;
  return true;
}

void RtpengineEndpoint::KeepLearning(NgTime now) {
  if (!record_.detect || !record_.found.empty()) return;
  if (!std::exchange(record_.learning, true)) is_learning_applied_ = false;
  learning_until_ = now + kLearningTime;
}

/// A daemon looks for the far end anew with each description, so it is asked before it gets one.
void RtpengineEndpoint::StopLearningIfFound(const Call& call, NgTime deadline) {
  std::string error;
  const std::optional<Dictionary> query = call->Query(deadline, error);
  if (query) TakeFoundPlace(*query);
}

NgTime RtpengineEndpoint::LookAtPackets(NgTime now) {
  Call call;
  NgTime next;
  {
    const Lock lock(context_->books().mutex);
    if (session_ == nullptr || call_ == nullptr || !call_->IsThere()) return NgTime::max();
    milliseconds interval = silence_.Interval();
    if (record_.learning) interval = interval.count() == 0 ? kLearningInterval : std::min(interval, kLearningInterval);
    if (interval.count() == 0) return NgTime::max();
    if (now < last_look_ + interval) return last_look_ + interval;
    last_look_ = now;
    next = now + interval;
    if (is_looked_at_) return next;
    is_looked_at_ = true;
    call = call_;
  }
  const bool asked = call->PostQuery([weak = weak_from_this(), call, now](const NgResult& result) {
    const Self self = weak.lock();
    if (self == nullptr) return;
    if (result.reply) self->TakePackets(*result.reply, now);
    const Lock lock(self->context_->books().mutex);
    self->is_looked_at_ = false;
  });
  if (asked) return next;
  const Lock lock(context_->books().mutex);
  is_looked_at_ = false;
  return next;
}

void RtpengineEndpoint::TakePackets(const Dictionary& query, NgTime asked_at) {
  Call call;
  LegSilence::Verdict verdict = LegSilence::Verdict::kQuiet;
  const bool refused = !RefusalOf(query).empty();
  {
    const Lock lock(context_->books().mutex);
    if (session_ == nullptr) return;
    call = call_;
    // A call that the daemon has ended by itself is silent for good.
    if (!refused) silence_.Counted(ReadFigures(query, "leg").packets, asked_at);
    verdict = silence_.Check(asked_at, ExpectsMedia());
  }
  if (refused && IsUnknownCall(query) && call != nullptr) call->ReportUnknown();
  if (TakeFoundPlace(query) || GiveUpLearning(asked_at)) PostSettle(nullptr);
  if (verdict == LegSilence::Verdict::kQuiet) return;
  if (const auto sink = sink_.lock()) sink->OnRtpTimeout(verdict == LegSilence::Verdict::kInactive);
}

}  // namespace kelvaro::jsr309::rtpengine
