#include "sip/leg_helpers.h"
#include "core/event.h"

#include <algorithm>
#include <cstdio>
#include <exception>

#include "core/session.h"

namespace kvx_switch {

void LegLog(switch_core_session_t* session, switch_log_level_t level, const std::string& text, const char* file,
            const char* function, int line) {
  // Texts of far ends come up in lines; none of them may break one.
  std::string clean = text;
  std::replace_if(
      clean.begin(), clean.end(), [](unsigned char c) { return c < 0x20 || c > 0x7e; }, '?');
  switch_log_printf(SWITCH_CHANNEL_ID_SESSION, file, function, line, reinterpret_cast<const char*>(session), level,
                    "%s\n", clean.c_str());
}

void LogAnswered(switch_core_session_t* session, const AgreedMedia& agreed) {
  switch_channel_t* channel = switch_core_session_get_channel(session);
  const switch_codec_implementation_t& codec = *agreed.codec.implementation;
  std::string text = std::string("Answered: ") + codec.iananame + "/" + std::to_string(codec.samples_per_second) +
                     " payload type " + std::to_string(agreed.codec.remote.type) + ", " +
                     std::to_string(agreed.codec.PacketTime()) + " ms";
  if (agreed.HasTelephoneEvents()) text += ", telephone-event " + std::to_string(agreed.telephone_event_type);
  if (agreed.remote_key) text += std::string(", SRTP ") + SrtpSuiteName(agreed.remote_key->suite);
  text += ", RTP " + LegVariable(channel, SWITCH_LOCAL_MEDIA_IP_VARIABLE) + ":" +
          LegVariable(channel, SWITCH_LOCAL_MEDIA_PORT_VARIABLE) + " <-> " +
          LegVariable(channel, SWITCH_REMOTE_MEDIA_IP_VARIABLE) + ":" +
          LegVariable(channel, SWITCH_REMOTE_MEDIA_PORT_VARIABLE);
  LegLog(session, SWITCH_LOG_NOTICE, text);
}

void LogHungUp(switch_core_session_t* session, const std::string& by, bool answered,
               std::chrono::steady_clock::time_point answered_at) {
  switch_channel_t* channel = switch_core_session_get_channel(session);
  switch_call_cause_t cause = switch_channel_get_cause(channel);
  char duration[40] = "unanswered";
  if (answered) {
    std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - answered_at;
    std::snprintf(duration, sizeof(duration), "%.1f s after the answer", seconds.count());
  }
  LegLog(session, SWITCH_LOG_NOTICE,
         std::string("Hung up by ") + by + ": " + switch_channel_cause2str(cause) + " (" + std::to_string(cause) +
             "), " + duration);
}

void FillLocalDescription(switch_core_session_t* session, const LocalMedia& local, uint32_t packet_time,
                          LocalDescription& description) {
  // RFC 4566, 5.2 wants the pair unique; a clock in microseconds is, and stays below the 63 bits that far ends expect.
  description.session_id = static_cast<uint64_t>(switch_micro_time_now());
  description.version = description.session_id;
  description.address = local.address;
  description.port = local.port;
  description.rtcp_port = local.rtcp_port;
  description.packet_time = packet_time;
  LegLog(
      session, SWITCH_LOG_DEBUG,
      "Local media " + local.address + ":" + std::to_string(local.port) + ", RTCP " + std::to_string(local.rtcp_port));
}

void AgreeOnTelephoneEvents(const SdpMedia& stream, bool wanted, AgreedMedia& agreed) {
  const SdpPayload* events =
      wanted ? FindTelephoneEvent(stream, agreed.codec.implementation->samples_per_second) : nullptr;
  agreed.telephone_event_type = events ? events->type : 0;
  agreed.telephone_event_rate = events ? events->rate : 0;
}

void FireLegEvent(switch_core_session_t* session, switch_event_types_t type) {
  if (!IsEventWanted(type)) return;
  switch_event_t* event = nullptr;
  if (switch_event_create(&event, type) != SWITCH_STATUS_SUCCESS) return;
  switch_channel_event_set_data(switch_core_session_get_channel(session), event);
  if (switch_event_fire(&event) != SWITCH_STATUS_SUCCESS) switch_event_destroy(&event);
}

void FireBridgeEvent(switch_core_session_t* session, switch_event_types_t type, const std::string& other_uuid) {
  if (!IsEventWanted(type)) return;
  switch_event_t* event = nullptr;
  if (switch_event_create(&event, type) != SWITCH_STATUS_SUCCESS) return;
  switch_channel_event_set_data(switch_core_session_get_channel(session), event);
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Bridge-A-Unique-ID",
                                 switch_core_session_get_uuid(session));
  switch_event_add_header_string(event, SWITCH_STACK_BOTTOM, "Bridge-B-Unique-ID", other_uuid.c_str());
  if (switch_event_fire(&event) != SWITCH_STATUS_SUCCESS) switch_event_destroy(&event);
}

void HangUpLeg(const std::string& uuid, switch_call_cause_t cause) {
  switch_core_session_t* session = switch_core_session_locate(uuid.c_str());
  if (!session) return;
  switch_channel_hangup(switch_core_session_get_channel(session), cause);
  switch_core_session_rwunlock(session);
}

void RunGuarded(switch_core_session_t* session, const std::function<void()>& course) {
  try {
    course();
  } catch (const std::exception& problem) {
    LegLog(session, SWITCH_LOG_ERROR, std::string("The leg's course broke off: ") + problem.what());
    switch_channel_hangup(switch_core_session_get_channel(session), SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER);
  }
}

std::string LegVariable(switch_channel_t* channel, const std::string& name) {
  const char* value = switch_channel_get_variable(channel, name.c_str());
  return value ? value : "";
}

}  // namespace kvx_switch
