#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvx_switch {

/// What a client of the event socket sent: a command line, header lines, and a body of Content-Length bytes.
struct EventSocketRequest {
  std::string command;                                       ///< first word of the command line, as it came
  std::string arguments;                                     ///< the rest of the line behind the blanks
  std::vector<std::pair<std::string, std::string>> headers;  ///< in the order of arrival
  std::string body;

  /// The first header of that name, compared without case; empty when there is none.
  std::string_view Header(std::string_view name) const;
};

/// A client's bytes come in any portions and, before it has logged in, from anybody. This cuts them into requests and
/// never holds more than the limits allow.
///
/// A request ends with an empty line; lines end with LF or CR LF; empty lines before a request are passed over.
class EventSocketRequestParser {
 public:
  struct Limits {
    size_t head_bytes;  ///< command line and headers together
    size_t body_bytes;
  };
  enum class Result {
    kRequest,    ///< one request was taken
    kMore,       ///< what came so far is the beginning of a request, or nothing
    kTooLarge,   ///< over a limit; where the next request begins is unknown, so nothing more can be taken
    kMalformed,  ///< a NUL byte in the head or a Content-Length that is no number; the same holds
  };

  explicit EventSocketRequestParser(Limits limits) : limits_(limits) {}

  void SetLimits(Limits limits) { limits_ = limits; }
  void Feed(std::string_view bytes) { bytes_.append(bytes); }
  Result Next(EventSocketRequest& request);

 private:
  Result Take(EventSocketRequest& request);
  size_t FindEndOfHead();

  Limits limits_;
  std::string bytes_;    ///< not yet part of a request
  size_t searched_ = 0;  ///< no head ends before this position of bytes_, and a line begins there
  Result broken_ = Result::kMore;
};

}  // namespace kvx_switch
