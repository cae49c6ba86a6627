#pragma once

#include <chrono>
#include <optional>
#include <string>

#include <switch.h>

/// The applications of the dialplan as far as they can be judged without a call: their names, and whether what they are
/// told makes sense. Pure functions.
namespace kvx_switch {

/// What is wrong with running `application` with `data`; "" when nothing is. A part with a reference in it ("$1",
/// "${name}") is only known when a call runs it, and passes.
std::string FaultOfAction(const std::string& application, const std::string& data);

/// A hang-up cause by name, in any case, or by number; none when there is no such cause.
std::optional<switch_call_cause_t> CauseOfText(const std::string& text);

/// The time that "sleep" is told, 0 to 86400000 ms.
std::optional<std::chrono::milliseconds> SleepOfText(const std::string& text);

/// Seconds that a call may ring, 1 to 3600.
std::optional<std::chrono::seconds> RingTimeOfText(const std::string& text);

/// Whether the variable "continue_on_fail" wants the dialplan to go on after `cause`: a truth value for all causes, or
/// a list of causes, by name or number, separated by commas.
bool ContinuesOnFail(const std::string& value, switch_call_cause_t cause);

}  // namespace kvx_switch
