#pragma once

#include <switch.h>

#include <chrono>
#include <functional>
#include <string>

#include "sip/leg_media.h"
#include "sip/sdp.h"

/// Small things that calling and called legs do alike.
namespace kvx_switch {

/// One line with the leg's uuid before it, as logged where this is called.
void LegLog(switch_core_session_t* session, switch_log_level_t level, const std::string& text,
            const char* file = __builtin_FILE(), const char* function = __builtin_FUNCTION(),
            int line = __builtin_LINE());

void LogAnswered(switch_core_session_t* session, const AgreedMedia& agreed);
void LogHungUp(switch_core_session_t* session, const std::string& by, bool answered,
               std::chrono::steady_clock::time_point answered_at);

/// Address, ports and packet time of a description that the leg sends, with a fresh version number.
void FillLocalDescription(switch_core_session_t* session, const LocalMedia& local, uint32_t packet_time,
                          LocalDescription& description);

/// Takes the stream's telephone-events into what is agreed, when `wanted` and the stream has any.
void AgreeOnTelephoneEvents(const SdpMedia& stream, bool wanted, AgreedMedia& agreed);

/// An event about the leg, with what every event about one says.
void FireLegEvent(switch_core_session_t* session, switch_event_types_t type);

/// CHANNEL_BRIDGE or CHANNEL_UNBRIDGE, with both legs' uuids.
void FireBridgeEvent(switch_core_session_t* session, switch_event_types_t type, const std::string& other_uuid);

/// Hangs the leg up if it is still there; from any thread.
void HangUpLeg(const std::string& uuid, switch_call_cause_t cause);

/// Runs a leg's course; an exception that leaves it is logged and hangs the leg up, so that its end follows as always.
void RunGuarded(switch_core_session_t* session, const std::function<void()>& course);

/// A variable of the leg, "" when unset.
std::string LegVariable(switch_channel_t* channel, const std::string& name);

}  // namespace kvx_switch
