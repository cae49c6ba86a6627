#include "requests.h"

namespace media_engine {

JoinTask::JoinTask(std::shared_ptr<EndpointRoute> one, std::shared_ptr<EndpointRoute> other, Direction direction,
                   Responder<int> responder)
    : one_(std::move(one)), other_(std::move(other)), direction_(direction), responder_(std::move(responder)) {}

void JoinTask::Run(Worker& worker) {
  if (responder_.abandoned()) return responder_.Answer(Outcome::Refused("abandoned"));
  Participant* one = worker.Find(*one_);
  Participant* other = worker.Find(*other_);
  if (one != nullptr && other != nullptr) return responder_.Answer(one->Join(direction_, *other, worker.now()));
  for (const auto& route : {one_, other_}) {
    if (route->closed()) return responder_.Answer(Outcome::Refused(route->name() + " is closed"));
  }
  met_one_ = met_one_ || one != nullptr;
  met_other_ = met_other_ || other != nullptr;
  if ((met_one_ && met_other_) || hops_ == 0) {
    return responder_.Answer(Outcome::Refused(one_->name() + " and " + other_->name() + " are not in one session"));
  }
  auto follow = std::make_unique<JoinTask>(one_, other_, direction_, std::move(responder_));
  follow->met_one_ = met_one_;
  follow->met_other_ = met_other_;
  follow->hops_ = hops_ - 1;
  std::unique_ptr<Task> task = std::move(follow);
  (met_one_ ? other_ : one_)->Post(task);
}

}  // namespace media_engine
