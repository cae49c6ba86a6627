#pragma once

#include <string>
#include <vector>

namespace kvx_switch {

/// One kind of message that parsers stumble over, after RFC 4475.
struct TortureMessage {
  std::string name;  ///< the RFC's
  std::string text;  ///< with {me} and {switch} for the two addresses; lines end in LF unless CRLF is written out
  std::vector<int> statuses;  ///< of the final response, one of them; 0: none comes
};

/// Requests and responses that are in order, however they look (3.1.1).
std::vector<TortureMessage> UnusualMessages();
/// Such as are not (3.1.2).
std::vector<TortureMessage> InvalidMessages();
/// Those that trouble what comes after the parser (3.2 to 3.4).
std::vector<TortureMessage> TroublesomeMessages();

}  // namespace kvx_switch
