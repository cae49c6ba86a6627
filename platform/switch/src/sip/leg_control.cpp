#include "sip/leg_control.h"

#include <chrono>
#include <future>
#include <memory>
#include <utility>

#include "core/session.h"

namespace kvx_switch {

namespace {

// A leg answers between two of its steps; a request to a media server is the longest of them.
constexpr std::chrono::seconds kPatience{15};

}  // namespace

void OfferControl(switch_core_session_t* session, LegControl* control) {
  switch_core_session_set_private_class(session, control, SWITCH_PVT_SECONDARY);
}

bool PostToControl(const std::string& uuid, std::function<void(LegControl&)> task) {
  switch_core_session_t* session = switch_core_session_locate(uuid.c_str());
  if (!session) return false;
  const bool posted =
      switch_core_session_get_private_class(session, SWITCH_PVT_SECONDARY) &&
      PostToSession(session, [session, task = std::move(task)] {
        // On the leg's thread: the session lives, and its program is the one that offers itself now.
        auto* control = static_cast<LegControl*>(switch_core_session_get_private_class(session, SWITCH_PVT_SECONDARY));
        if (control) task(*control);
      });
  switch_core_session_rwunlock(session);
  return posted;
}

std::string AskControl(const std::string& uuid, std::function<std::string(LegControl&)> task) {
  auto answer = std::make_shared<std::promise<std::string>>();
  std::future<std::string> answered = answer->get_future();
  const bool posted =
      PostToControl(uuid, [answer, task = std::move(task)](LegControl& control) { answer->set_value(task(control)); });
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
