#include "sip/leg_control.h"

#include <chrono>
#include <future>
#include <memory>
#include <utility>

#include "sip/call_leg.h"

namespace kvx_switch {

namespace {

// A leg answers between two of its steps; a request to a media server is the longest of them.
constexpr std::chrono::seconds kPatience{15};

}  // namespace

std::string AskLeg(const std::string& uuid, std::function<std::string(CallLeg&)> task) {
  auto answer = std::make_shared<std::promise<std::string>>();
  std::future<std::string> answered = answer->get_future();
  const bool posted =
      CallLeg::Post(uuid, [answer, task = std::move(task)](CallLeg& leg) { answer->set_value(task(leg)); });
  // The queue holds the only other reference: a leg that ends breaks the promise.
  answer.reset();
  if (!posted) return kNoSuchChannel;
  if (answered.wait_for(kPatience) != std::future_status::ready) return "the leg does not answer";
  try {
    return answered.get();
  } catch (const std::future_error&) {
    return kNoSuchChannel;
  }
}

}  // namespace kvx_switch
