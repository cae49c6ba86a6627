#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

/// A call whose far end has gone without a word would last forever. Session timers (RFC 4028) have one side of a dialog
/// refresh it every so often; when that stays out, the other side ends it.
///
/// This is what one dialog agreed on, and what it has to say and to do: no clock, no messages. Used by one thread.
namespace kvx_switch {

struct SessionTimerSettings {
  bool enabled = true;
  uint32_t session_seconds = 1800;  ///< asked for in our INVITEs, and set where the far end names none
  uint32_t least_seconds = 120;     ///< the shortest that far ends may ask for
};

/// What a message says about the session timer.
struct SessionTimerHeaders {
  enum class Refresher { kUnsaid, kUac, kUas };
  std::optional<uint32_t> expires;  ///< Session-Expires, seconds
  Refresher refresher = Refresher::kUnsaid;
  std::optional<uint32_t> least;  ///< Min-SE, seconds
  bool supported = false;         ///< "timer" in Supported or Require
};

class SessionTimer {
 public:
  enum class Refresher { kNobody, kUs, kThem };

  explicit SessionTimer(const SessionTimerSettings& settings) : settings_(settings), least_(settings.least_seconds) {}

  bool enabled() const { return settings_.enabled; }

  /// Header values for a request of ours that refreshes the session, or sets it up.
  std::string RequestExpires() const;
  /// "" while no one asked for more than the usual.
  std::string RequestLeast() const;
  /// The final answer to it: what it says counts. A far end without timers leaves the refreshing to us.
  void OnAnswered(const SessionTimerHeaders& answer);
  /// It was refused with 422: true when a request with the values that hold now may be tried.
  bool OnTooSmall(const SessionTimerHeaders& answer);

  /// A request of theirs that refreshes the session, or sets it up. False: to be refused with 422 and LeastValue().
  bool OnRequest(const SessionTimerHeaders& request);
  /// Session-Expires of our 2xx to it; "" for none.
  std::string AnswerExpires() const;
  /// The far end has to understand: Require: timer.
  bool AnswerRequires() const { return refresher_ == Refresher::kThem; }
  std::string LeastValue() const { return std::to_string(settings_.least_seconds); }

  Refresher refresher() const { return refresher_; }
  /// From the last refresh: when we have to refresh, before half the time is over, or, where they do, when the call is
  /// to end because they have not (RFC 4028, 10).
  std::chrono::milliseconds Patience() const;
  /// From the last refresh, where we are the ones: when the call is to end because nobody answers.
  std::chrono::seconds EndAfter() const;

 private:
  const SessionTimerSettings settings_;
  uint32_t seconds_ = 0;
  uint32_t least_;  // of both sides
  Refresher refresher_ = Refresher::kNobody;
  bool we_asked_ = false;  // whose request it was: who is "uac"
};

}  // namespace kvx_switch
