#include "core/event.h"
#include "core/session_record.h"

namespace {

/// Everything a leg's headers are made of, copied while the channel is locked.
struct Snapshot {
  explicit Snapshot(const switch_channel_t* channel)
      : state(static_cast<switch_channel_state_t>(channel->state.load())),
        uuid(channel->session->uuid.load()),
        call_uuid(switch_str_nil(channel->variables.Find(kvx_switch::kCallUuidVariable))),
        name(switch_str_nil(channel->name.load())),
        direction(channel->direction == SWITCH_CALL_DIRECTION_INBOUND ? "inbound" : "outbound"),
        callstate(channel->callstate),
        cause(channel->cause),
        answered(channel->flags[CF_ANSWERED] != 0),
        early(channel->flags[CF_EARLY_MEDIA] != 0),
        caller(channel->caller),
        times(channel->times) {
    channel->variables.ForEach([this](const std::string& variable, const std::string& value) {
      variables.emplace_back("variable_" + variable, value);
    });
  }

  static Snapshot Of(const switch_channel_t* channel) {
    std::lock_guard<std::mutex> lock(channel->mutex);
    return Snapshot(channel);
  }

  const char* AnswerState() const {
    if (state >= CS_HANGUP) return "hangup";
    if (answered) return "answered";
    return early ? "early" : "ringing";
  }

  switch_channel_state_t state;
  std::string uuid;
  std::string call_uuid;
  std::string name;
  std::string direction;
  switch_channel_callstate_t callstate;
  switch_call_cause_t cause;
  bool answered;
  bool early;
  kvx_switch::CallerData caller;
  kvx_switch::ChannelTimes times;
  std::vector<std::pair<std::string, std::string>> variables;
};

/// `announced`: the state that the event tells of, when the leg may be in another one already.
void AddData(switch_channel_t* channel, switch_event_t* event, std::optional<switch_channel_state_t> announced) {
  Snapshot leg = Snapshot::Of(channel);
  if (announced) leg.state = *announced;
  const std::string partner = kvx_switch::PartnerUuid(channel);
  const auto add = [event](const char* name, const std::string& value) {
    switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, name, value.c_str());
  };
  const auto add_if = [&](const char* name, const std::string& value) {
    if (!value.empty()) add(name, value);
  };

  add("Channel-State", switch_channel_state_name(leg.state));
  add("Channel-Call-State", switch_channel_callstate2str(leg.callstate));
  add("Channel-State-Number", std::to_string(leg.state));
  add("Channel-Name", leg.name);
  add("Unique-ID", leg.uuid);
  add("Call-Direction", leg.direction);
  add("Channel-Call-UUID", leg.call_uuid.empty() ? leg.uuid : leg.call_uuid);
  add("Answer-State", leg.AnswerState());
  if (leg.state >= CS_HANGUP) add("Hangup-Cause", switch_channel_cause2str(leg.cause));

  add("Caller-Direction", leg.direction);
  add_if("Caller-Caller-ID-Name", leg.caller.caller_id_name);
  add_if("Caller-Caller-ID-Number", leg.caller.caller_id_number);
  add_if("Caller-Network-Addr", leg.caller.network_address);
  add_if("Caller-Destination-Number", leg.caller.destination_number);
  add("Caller-Unique-ID", leg.uuid);
  add_if("Caller-Context", leg.caller.context);
  add("Caller-Channel-Name", leg.name);
  add("Caller-Channel-Created-Time", std::to_string(leg.times.created));
  add("Caller-Channel-Progress-Time", std::to_string(leg.times.progress));
  add("Caller-Channel-Progress-Media-Time", std::to_string(leg.times.progress_media));
  add("Caller-Channel-Answered-Time", std::to_string(leg.times.answered));
  add("Caller-Channel-Hangup-Time", std::to_string(leg.times.hung_up));
  add_if("Other-Leg-Unique-ID", partner);
  for (const auto& [name, value] : leg.variables) add(name.c_str(), value);
}

}  // namespace

void switch_channel_event_set_data(switch_channel_t* channel, switch_event_t* event) {
  AddData(channel, event, std::nullopt);
}

namespace kvx_switch {

void FireChannelEvent(switch_channel_t* channel, switch_event_types_t id, const char* file, const char* func, int line,
                      std::optional<switch_channel_state_t> announced) {
  if (!IsEventWanted(id)) return;
  switch_event_t* event = nullptr;
  if (switch_event_create_subclass_detailed(file, func, line, &event, id, nullptr) != SWITCH_STATUS_SUCCESS) return;
  AddData(channel, event, announced);
  switch_event_fire_detailed(file, func, line, &event, nullptr);
}

}  // namespace kvx_switch
