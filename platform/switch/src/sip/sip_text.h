#pragma once

#include <string>

struct sip_s;

/// Small pieces of SIP messages.
namespace kvx_switch {

constexpr const char* kSdpType = "application/sdp";
/// Extensions that we know, where session timers are on.
constexpr const char* kSupported = "replaces, timer";
constexpr const char* kSupportedWithoutTimer = "replaces";

/// The message's body, "" when there is none.
std::string Body(const sip_s* sip);

/// The message's To tag, "" when there is none.
std::string ToTag(const sip_s* sip);

/// A display name or warning text as a quoted string (RFC 3261, 25.1).
std::string Quoted(const std::string& text);

}  // namespace kvx_switch
