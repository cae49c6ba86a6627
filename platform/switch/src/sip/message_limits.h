#pragma once

#include <cstddef>
#include <string>

struct nua_s;
struct sip_s;

/// How much of a message is read before it is refused with 413 or 513 (RFC 3261, 21.4.11 and 21.5.7): the far end of a
/// connection must not decide how much memory the switch spends on it, nor fill log lines and variables with what no
/// phone sends.
namespace kvx_switch {

/// Of any message, in bytes: the stack answers what announces more with 413 and reads no further.
constexpr size_t kLargestMessage = 65536;
/// Of an INVITE for a new call, in bytes.
constexpr size_t kLargestHeaders = 16384;
constexpr size_t kLargestBody = 32768;

/// What is too large of the request that is being dealt with, "headers of 20000 bytes, at most 16384 are taken"; empty
/// when nothing is. On the SIP thread.
std::string TooLarge(nua_s* nua, const sip_s* sip);

}  // namespace kvx_switch
