// A busy hour in little: as many calls at once as the sample configuration allows, then calls without end, and nothing
// of them stays behind.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "support/rtp_load.h"
#include "support/sipp_agent.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrialSettings;
using test_support::RtpLoadCall;
using test_support::RtpLoadCount;
using test_support::RtpLoadResult;
using test_support::RtpLoadSettings;
using test_support::RtpSeal;
using test_support::SippAgent;
using test_support::SippSettings;

// A sanitizer makes everything several times slower, and its own book-keeping grows with what the program does: less of
// everything, and memory is not looked at.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
constexpr std::size_t kAtOnce = 40;
constexpr std::size_t kEncryptedAtOnce = 10;
constexpr int kPerSecond = 8;
constexpr std::size_t kSeconds = 15;
#else
constexpr bool kSanitized = false;
constexpr std::size_t kAtOnce = 500;  // 1000 legs, "max-sessions"
constexpr std::size_t kEncryptedAtOnce = 50;
constexpr int kPerSecond = 50;
constexpr std::size_t kSeconds = 60;
#endif

constexpr std::size_t kInARow = kPerSecond * kSeconds;
constexpr milliseconds kTalk{8000};
// What a thousand legs at once may leave allocated, and what thousands of calls after them may add: about twice of what
// is seen, which is fragments: further series of calls add nothing. Three kilobytes that stay behind of every call
// would be nine megabytes.
constexpr long kAtOnceGrowthKb = 12 * 1024;
constexpr long kInARowGrowthKb = 8 * 1024;

/// Resident memory in KB; -1 when it cannot be read.
long memory_of(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
  }
  return -1;
}

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

class Load : public SwitchCall {
 protected:
  void StartWithPhonesForMany(std::size_t calls, const std::string& suite) {
    switch_settings_.log_level = "info";
    CallTrialSettings settings;
    settings.calls = calls;
    settings.caller_scenario = "caller_awaits_bye";
    settings.calls_per_second = kPerSecond;
    settings.caller_srtp = settings.callee_srtp = suite;
    settings.hold_margin = seconds(60);  // they talk until they are hung up
    StartWithPhones(settings);
  }

  /// All calls of the trial up at both ends.
  void Establish(std::size_t calls) {
    trial_->Dial(switch_->Sip(), calls);
    trial_->WaitEstablished(seconds(100));
    ExpectCallsUp(calls);
  }

  std::vector<RtpLoadCall> LoadOf(std::size_t calls) {
    std::vector<RtpLoadCall> load(calls);
    for (std::size_t i = 0; i < calls; ++i) {
      const auto& view = trial_->Calls().at(i);
      load[i].caller = &trial_->CallerPhone(i);
      load[i].callee = &trial_->CalleePhone(i);
      load[i].caller_to = {view.caller_far.address, view.caller_far.port};
      load[i].callee_to = {view.callee_far.address, view.callee_far.port};
      if (view.caller_far.crypto.empty()) continue;
      seals_.push_back(std::make_unique<RtpSeal>(view.caller_own.crypto, view.caller_far.crypto));
      load[i].caller_seal = seals_.back().get();
      seals_.push_back(std::make_unique<RtpSeal>(view.callee_own.crypto, view.callee_far.crypto));
      load[i].callee_seal = seals_.back().get();
    }
    return load;
  }

  /// Both phones of each call talk at 50 packets a second; every packet arrives once, at its partner, as it was.
  void ExpectEveryPacketOfEveryCall(std::size_t calls) {
    RtpLoadSettings settings;
    settings.length = kTalk;
    const auto result = test_support::run_rtp_load(LoadOf(calls), settings);
    ASSERT_TRUE(result.opened) << "the media of some call does not come through at all";
    ExpectPace(result);
    std::size_t incomplete = 0;
    for (const auto* counts : {&result.to_callee, &result.to_caller}) {
      for (const RtpLoadCount& count : *counts) {
        EXPECT_EQ(count.sent, static_cast<std::size_t>(kTalk / settings.ptime));
        if (count.Complete()) continue;
        if (++incomplete > 5) continue;
        ADD_FAILURE() << count.received << " of " << count.sent << " packets, " << count.duplicated << " twice, "
                      << count.foreign << " foreign, " << count.unreadable << " unreadable";
      }
    }
    EXPECT_EQ(incomplete, 0u) << "of " << 2 * calls << " streams";
  }

  /// A thousand streams, there and back, take three quarters of two cores when nobody else wants them, the half of it
  /// for the phones. Where somebody does, the packets go out more slowly, and this says so.
  static void ExpectPace(const RtpLoadResult& result) {
    const auto ms = [](auto time) { return std::chrono::duration<double, std::milli>(time).count(); };
    RecordProperty("sending_ms", static_cast<int>(result.sending.count()));
    std::printf("%zu calls: %.0f%% of the packet rate, %.1f ms on the way, at most %.1f ms\n", result.to_callee.size(),
                100 * ms(kTalk) / ms(result.sending), ms(result.mean_way), ms(result.longest_way));
    if (kSanitized) return;
    EXPECT_LE(result.sending, 4 * kTalk) << "not a quarter of the packet rate: this was not the load meant";
  }

  void HangUpAll() {
    EXPECT_EQ(switch_->Api("hupall").rfind("+OK", 0), 0u);
    ExpectHungUp();
    ExpectAtRest();
  }

  SippSettings Phone(const std::string& name, const std::string& scenario) const {
    SippSettings phone;
    phone.name = name;
    phone.scenario = scenario;
    phone.directory = directory_.Path();
    phone.hold = seconds(1);
    phone.limit = seconds(170);
    phone.calls_per_second = kPerSecond;
    phone.calls.resize(kInARow);
    for (std::size_t call = 0; call < kInARow; ++call) {
      phone.calls[call].number = std::to_string(3000 + call);
      phone.calls[call].media_port = 40000;  // nothing is ever sent there
    }
    return phone;
  }

  /// Calls of a second each, so many in every second, all of them answered and hung up as they should be.
  void CallInARow() {
    SippSettings called = Phone("callee_in_a_row", "callee");
    called.port = trial_->CalleeAddress().port;  // the one that the switch knows; its first owner is gone
    SippAgent callee(called);
    SippSettings calling = Phone("caller_in_a_row", "caller");
    calling.remote = switch_->Sip();
    const auto start = std::chrono::steady_clock::now();
    SippAgent caller(calling);
    const auto exit = caller.WaitForExit(seconds(kSeconds + 60));
    const auto took = std::chrono::steady_clock::now() - start;
    RecordProperty("in_a_row_ms", static_cast<int>(std::chrono::duration_cast<milliseconds>(took).count()));
    ASSERT_TRUE(exit.has_value()) << "the calls do not come to an end";
    EXPECT_TRUE(exit->Succeeded()) << exit->ToString();
    if (!kSanitized) {
      EXPECT_LE(took, seconds(kSeconds * 2)) << "not half of the call rate: this was not the load meant";
    }
    const auto callees_exit = callee.WaitForExit(seconds(20));
    ASSERT_TRUE(callees_exit.has_value());
    EXPECT_TRUE(callees_exit->Succeeded()) << callees_exit->ToString();
    ExpectAtRest();
  }

  /// What the switch needs once the calls made so far are really over. SIP over UDP has to remember each of them for
  /// 32 s more (RFC 3261 section 17, timers D and J), some 25 KB.
  long SettledMemory() {
    if (kSanitized) return 0;
    const std::string told = "No leg for a while: unused memory given back";
    const std::size_t before = occurrences(switch_->Log(), told);
    switch_->Api("loglevel debug");
    EXPECT_TRUE(test_support::wait_until(seconds(50), [&] { return occurrences(switch_->Log(), told) > before; }));
    switch_->Api("loglevel info");
    return memory_of(switch_->Pid());
  }

 private:
  std::vector<std::unique_ptr<RtpSeal>> seals_;
};

TEST_F(Load, FiveHundredCallsAtOnceThenFiftyASecondForAMinuteLeaveNothingBehind) {
  StartWithPhonesForMany(kAtOnce, "");
  const long idle = memory_of(switch_->Pid());
  ASSERT_NO_FATAL_FAILURE(Establish(kAtOnce));
  ASSERT_NO_FATAL_FAILURE(ExpectEveryPacketOfEveryCall(kAtOnce));
  ASSERT_NO_FATAL_FAILURE(HangUpAll());
  const long early = SettledMemory();
  ASSERT_NO_FATAL_FAILURE(CallInARow());
  const long late = SettledMemory();
  if (!kSanitized) {
    RecordProperty("memory_idle_kb", static_cast<int>(idle));
    RecordProperty("memory_after_calls_at_once_kb", static_cast<int>(early));
    RecordProperty("memory_after_calls_in_a_row_kb", static_cast<int>(late));
    EXPECT_GT(idle, 0);
    EXPECT_LE(early, idle + kAtOnceGrowthKb) << "before all calls " << idle << " KB";
    EXPECT_LE(late, early + kInARowGrowthKb) << "before " << kInARow << " calls in a row " << early << " KB";
  }
  ExpectCleanStop();
}

TEST_F(Load, FiftyEncryptedCallsAtOnceLoseNothing) {
  switch_settings_.variables.emplace_back("rtp_secure_media", "mandatory");
  StartWithPhonesForMany(kEncryptedAtOnce, "AES_CM_128_HMAC_SHA1_80");
  ASSERT_NO_FATAL_FAILURE(Establish(kEncryptedAtOnce));
  for (const auto& call : trial_->Calls()) {
    ASSERT_FALSE(call.caller_far.crypto.empty());
    ASSERT_FALSE(call.callee_far.crypto.empty());
  }
  ASSERT_NO_FATAL_FAILURE(ExpectEveryPacketOfEveryCall(kEncryptedAtOnce));
  ASSERT_NO_FATAL_FAILURE(HangUpAll());
  ExpectCleanStop();
}

}  // namespace
}  // namespace end_to_end
