/// The messages of rtpengine's "ng" control protocol, as they travel: one datagram each, a cookie, a space and a
/// bencoded dictionary. A reply carries the cookie of its request.
///
/// Plain functions; any thread.
#pragma once

#include "rtpengine/bencode.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kelvaro::jsr309::rtpengine {

/// What one UDP datagram over IPv4 can carry; a longer message is neither sent nor taken.
constexpr std::size_t kLongestNgDatagram = 65507;

struct NgFrame {
  std::string cookie;
  Dictionary message;
};

/// With keys in the message, the caller's to wipe.
std::string FrameNg(const std::string& cookie, const Dictionary& message);
/// None when the datagram is malformed; error then says why.
std::optional<NgFrame> ParseNg(std::string_view datagram, std::string& error);

/// Why the daemon refused, as it says it; empty when it did what was asked ("ok" and "pong"). A reply without a result
/// counts as a refusal.
std::string RefusalOf(const Dictionary& reply);
/// Whether the daemon refused because it has no such call. What deletes such a call is no refusal to it.
bool IsUnknownCall(const Dictionary& reply);

}  // namespace kelvaro::jsr309::rtpengine
