// A day's calls in little: call after call, and nothing of them stays behind.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "support/sipp_agent.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::SippAgent;
using test_support::SippSettings;

// A sanitizer's own book-keeping grows with what the program does and makes it slow: fewer calls, and memory is not
// looked at.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
constexpr std::size_t kFirstCalls = 20;
constexpr std::size_t kAllCalls = 120;
#else
constexpr bool kSanitized = false;
constexpr std::size_t kFirstCalls = 100;
constexpr std::size_t kAllCalls = 1000;
#endif

constexpr std::size_t kAtOnce = 10;
constexpr long kGrowthKb = 2048;

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

class ManyCalls : public SwitchCall {
 protected:
  SippSettings Phone(const std::string& name, const std::string& scenario, std::size_t calls) const {
    SippSettings phone;
    phone.name = name;
    phone.scenario = scenario;
    phone.directory = directory_.Path();
    phone.hold = milliseconds(50);
    phone.limit = seconds(170);
    phone.calls_per_second = 200;
    phone.calls.resize(calls);
    for (std::size_t call = 0; call < calls; ++call) {
      phone.calls[call].number = std::to_string(3000 + call);
      phone.calls[call].media_port = 40000;  // nothing is ever sent there
    }
    return phone;
  }

  /// So many calls, kAtOnce at a time, to their end; the switch is at rest after them.
  void Make(std::size_t calls) {
    SippSettings settings = Phone("caller_" + std::to_string(++batches_), "caller", calls);
    settings.remote = switch_->Sip();
    settings.at_once = kAtOnce;
    SippAgent caller(settings);
    const auto exit = caller.WaitForExit(seconds(120));
    ASSERT_TRUE(exit.has_value()) << "the calls do not come to an end";
    ASSERT_TRUE(exit->Succeeded()) << exit->ToString();
    ExpectAtRest();
  }

  /// What the switch needs once the calls made so far are really over. SIP over UDP has to remember each of them for
  /// 32 s more (RFC 3261 section 17), some 25 KB.
  long SettledMemory() {
    EXPECT_TRUE(test_support::wait_until(seconds(50), [this] {
      return occurrences(switch_->Log(), "No leg for a while: unused memory given back") >= batches_;
    }));
    return memory_of(switch_->Pid());
  }

 private:
  std::size_t batches_ = 0;
};

TEST_F(ManyCalls, LeaveNothingBehindAndTakeNoMoreMemory) {
  SippAgent callee(Phone("callee", "callee", kAllCalls));
  StartSwitch(callee.Address().ToString());
  ASSERT_NO_FATAL_FAILURE(Make(kFirstCalls));
  const long early = kSanitized ? 0 : SettledMemory();
  ASSERT_NO_FATAL_FAILURE(Make(kAllCalls - kFirstCalls));
  if (!kSanitized) {
    const long late = SettledMemory();
    RecordProperty("memory_after_first_calls_kb", static_cast<int>(early));
    RecordProperty("memory_after_all_calls_kb", static_cast<int>(late));
    EXPECT_GT(early, 0);
    EXPECT_LE(late, early + kGrowthKb) << "after " << kFirstCalls << " calls " << early << " KB, after " << kAllCalls
                                       << " calls " << late << " KB";
  }
  const auto exit = callee.WaitForExit(seconds(20));
  ASSERT_TRUE(exit.has_value());
  EXPECT_TRUE(exit->Succeeded()) << exit->ToString();
  ExpectCleanStop();
}

}  // namespace
}  // namespace end_to_end
