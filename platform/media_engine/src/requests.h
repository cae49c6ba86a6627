/// Requests to workers, from the side of the threads that make them.
///
/// A request is a task that carries everything it needs and answers through a reply; its maker waits as long as it has
/// time. When the worker sleeps the maker does the request itself, and finds the answer there. Whatever the request
/// produces travels in the answer, never through references to the maker's variables: the maker may have left when the
/// worker gets to it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "endpoint_route.h"
#include "participant.h"
#include "worker.h"

namespace media_engine {

/// Makers wait in real time, whatever the engine's clock.
using RequestClock = std::chrono::steady_clock;

/// What the maker and the worker share of a request.
template <typename Result>
class Reply {
 public:
  /// The worker's: nobody waits any more, the request need not be done.
  bool abandoned() const { return abandoned_.load(); }
  void Answer(Outcome outcome) {
    const std::lock_guard<std::mutex> lock(mutex_);
    outcome_ = std::move(outcome);
    answered_.notify_one();
  }
  Result& result() { return result_; }

  /// The maker's. The result may be read after a success, and only then.
  Outcome Wait(milliseconds limit) { return Wait(limit, RequestClock::now() + limit); }
  /// For one of several requests that have a limit in common; the deadline is that of all of them.
  Outcome Wait(milliseconds limit, RequestClock::time_point deadline) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!answered_.wait_until(lock, deadline, [this] { return outcome_.has_value(); })) {
      abandoned_.store(true);
      return Outcome::Refused("the media server did not answer within " + std::to_string(limit.count()) + " ms");
    }
    return std::move(*outcome_);
  }

 private:
  std::mutex mutex_;
  std::condition_variable answered_;
  std::optional<Outcome> outcome_;  // guarded by mutex_
  std::atomic<bool> abandoned_{false};
  Result result_{};
};

/// Answers when it is destroyed unanswered, so that nobody waits for a task that was dropped.
template <typename Result>
class Responder {
 public:
  explicit Responder(std::shared_ptr<Reply<Result>> reply) : reply_(std::move(reply)) {}
  Responder(Responder&&) noexcept = default;
  Responder& operator=(Responder&&) = delete;
  ~Responder() {
    if (reply_) reply_->Answer(Outcome::Refused("the media server has been shut down"));
  }
  bool abandoned() const { return reply_->abandoned(); }
  Result& result() { return reply_->result(); }
  void Answer(Outcome outcome) { std::exchange(reply_, nullptr)->Answer(std::move(outcome)); }

 private:
  std::shared_ptr<Reply<Result>> reply_;
};

/// How often a request follows an endpoint that is on the move. Each hop lies behind a move that was made meanwhile.
constexpr int kMaxHops = 16;

/// Runs `act(worker, participant)` where the endpoint lives; the participant is null when it has ended.
template <typename Act>
class EndpointTask : public Task {
 public:
  EndpointTask(std::shared_ptr<EndpointRoute> route, Act act, int hops = kMaxHops)
      : route_(std::move(route)), act_(std::move(act)), hops_(hops) {}

  void Run(Worker& worker) override {
    Participant* participant = worker.Find(*route_);
    if (participant != nullptr || route_->closed() || hops_ == 0) return act_(worker, participant);
    // On its way: behind it, or towards it.
    std::unique_ptr<Task> follow = std::make_unique<EndpointTask>(route_, std::move(act_), hops_ - 1);
    route_->Post(follow);
  }

 private:
  const std::shared_ptr<EndpointRoute> route_;
  Act act_;
  const int hops_;
};

template <typename Act>
std::unique_ptr<Task> MakeEndpointTask(std::shared_ptr<EndpointRoute> route, Act act) {
  return std::make_unique<EndpointTask<Act>>(std::move(route), std::move(act));
}

/// Joins two endpoints wherever they are by now. Visits the one and, if need be, the other, until it finds both on one
/// worker; when it has met each and never both, they are not in one session.
class JoinTask : public Task {
 public:
  JoinTask(std::shared_ptr<EndpointRoute> one, std::shared_ptr<EndpointRoute> other, Direction direction,
           Responder<int> responder);
  void Run(Worker& worker) override;

 private:
  const std::shared_ptr<EndpointRoute> one_, other_;
  const Direction direction_;
  Responder<int> responder_;
  bool met_one_ = false, met_other_ = false;
  int hops_ = kMaxHops;
};

/// Asks for something at an endpoint and waits. `act(worker, participant, result)` gives the outcome; it is not called
/// for an endpoint that has ended, nor when nobody waits any more.
template <typename Result, typename Act>
Outcome AskEndpoint(const std::shared_ptr<EndpointRoute>& route, milliseconds limit, RequestClock::time_point deadline,
                    Result& result, Act act) {
  if (route->closed()) return Outcome::Refused(route->name() + " is closed");
  const auto reply = std::make_shared<Reply<Result>>();
  std::unique_ptr<Task> task =
      MakeEndpointTask(route, [route, responder = Responder<Result>(reply), act = std::move(act)](
                                  Worker& worker, Participant* participant) mutable {
        if (responder.abandoned()) return responder.Answer(Outcome::Refused("abandoned"));
        if (participant == nullptr) return responder.Answer(Outcome::Refused(route->name() + " is closed"));
        responder.Answer(act(worker, *participant, responder.result()));
      });
  // A task that is not taken answers when it goes.
  if (!route->Ask(task)) task.reset();
  Outcome outcome = reply->Wait(limit, deadline);
  if (outcome) result = std::move(reply->result());
  return outcome;
}

template <typename Result, typename Act>
Outcome AskEndpoint(const std::shared_ptr<EndpointRoute>& route, milliseconds limit, Result& result, Act act) {
  return AskEndpoint(route, limit, RequestClock::now() + limit, result, std::move(act));
}

}  // namespace media_engine
