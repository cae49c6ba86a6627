// Calls of a softphone that is not ours (baresip): a plain one, one that is held and resumed, encrypted ones. What was
// heard is looked at in the phones' own recordings, what went over the wire with a tap in between.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/baresip_agent.h"
#include "support/rtp_g711.h"
#include "support/rtp_packet.h"
#include "support/rtp_seal.h"
#include "support/rtp_tap.h"
#include "support/rtp_tone.h"
#include "support/sipp_agent.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::BaresipAgent;
using test_support::BaresipSettings;
using test_support::HeardTone;
using test_support::RtpPhone;
using test_support::RtpSeal;
using test_support::RtpTap;
using test_support::UdpAddress;

constexpr int kCallersTone = 440;
constexpr int kCalleesTone = 1000;
constexpr milliseconds kTalk{2000};
constexpr milliseconds kHeardOfTalk{1500};  // at least: what is left when the jitter buffer has filled
constexpr long kPacketsOfASecond = 50;      // 20 ms each
// Packets said while the other end's media is not open yet or closed already, at most.
constexpr long kAtTheEdges = 25;

using Packets = std::vector<std::vector<std::uint8_t>>;

/// The audio of captured packets, taken for G.711 mu-law in the clear; with `seal`, opened before.
std::vector<std::int16_t> audio_of(const Packets& packets, RtpSeal* seal = nullptr) {
  std::vector<std::int16_t> samples;
  for (const auto& data : packets) {
    const auto clear = seal != nullptr ? seal->Open(data) : std::optional(data);
    const auto packet = clear ? test_support::parse_rtp(clear->data(), clear->size()) : std::nullopt;
    EXPECT_TRUE(packet.has_value()) << "a packet of " << data.size() << " octets is no RTP, or not authentic";
    if (!packet) continue;
    EXPECT_EQ(packet->payload_type, 0);
    for (std::uint8_t code : packet->payload) samples.push_back(test_support::decode_mulaw(code));
  }
  return samples;
}

class BaresipCall : public OnEachDriver<SwitchCall> {
 protected:
  static BaresipSettings Caller(const std::string& encryption = "") {
    BaresipSettings settings;
    settings.name = "caller";
    settings.user = "3000";
    settings.tone = kCallersTone;
    settings.media_encryption = encryption;
    return settings;
  }
  static BaresipSettings Callee(const std::string& encryption = "") {
    BaresipSettings settings;
    settings.name = "callee";
    settings.user = "2000";
    settings.tone = kCalleesTone;
    settings.media_encryption = encryption;
    return settings;
  }

  /// Both phones and a switch that knows where the second one is.
  void Start(BaresipSettings caller, BaresipSettings callee) {
    callee.directory = directory_.Path();
    callee_ = std::make_unique<BaresipAgent>(callee);
    StartSwitch(callee_->Address().ToString());
    StartCaller(std::move(caller));
  }
  void StartCaller(BaresipSettings caller) {
    caller.directory = directory_.Path();
    caller_ = std::make_unique<BaresipAgent>(caller);
  }
  void Secure(const std::string& how) { switch_settings_.variables.emplace_back("rtp_secure_media", how); }

  /// Until both phones say that the call is up.
  void Establish(const UdpAddress& to) {
    caller_->Dial(to, "2000");
    ASSERT_TRUE(caller_->WaitForEvent("CALL_ESTABLISHED", 1, seconds(15))) << Accounts();
    ASSERT_TRUE(callee_->WaitForEvent("CALL_ESTABLISHED", 1, seconds(15))) << Accounts();
  }
  /// The phones are programs of their own and talk in real time.
  static void LetThemTalk(milliseconds length = kTalk) { std::this_thread::sleep_for(length); }
  void HangUp() {
    // Until then they know nothing of losses.
    ASSERT_TRUE(caller_->WaitForEvent("CALL_RTCP", 1, seconds(15))) << Accounts();
    ASSERT_TRUE(callee_->WaitForEvent("CALL_RTCP", 1, seconds(15))) << Accounts();
    caller_->HangUp();
    ASSERT_TRUE(caller_->WaitForEvent("CALL_CLOSED", 1, seconds(15))) << Accounts();
    ASSERT_TRUE(callee_->WaitForEvent("CALL_CLOSED", 1, seconds(15))) << Accounts();
    // Their account comes a moment after. What the other end told is the last of it, and an rtpengine, which makes no
    // reports, has only that of a phone that had time for one.
    const std::string last = IsOnRtpengine() ? "\nerrors:" : "\njitter:";
    for (BaresipAgent* phone : {caller_.get(), callee_.get()}) {
      ASSERT_TRUE(test_support::wait_until(seconds(5), [&] { return phone->Log().find(last) != std::string::npos; }))
          << Accounts();
    }
  }

  /// Nothing but the tone, for at least that long.
  static void ExpectTone(const std::vector<std::int16_t>& samples, int hertz, milliseconds least = kHeardOfTalk) {
    const HeardTone heard = test_support::listen_for_tone(samples, hertz);
    EXPECT_GE(heard.tone.count(), least.count()) << "of " << hertz << " Hz, in " << samples.size() << " samples";
    EXPECT_LE(heard.other.count(), 500) << "beside " << hertz << " Hz";
  }
  static void ExpectNoTone(const Packets& packets, int hertz) {
    EXPECT_GE(packets.size(), static_cast<std::size_t>(kPacketsOfASecond));
    EXPECT_EQ(test_support::listen_for_tone(audio_of(packets), hertz).tone.count(), 0) << hertz << " Hz on the wire";
  }
  /// What one phone said is what the other one got, but for what was said before and after.
  void ExpectCarried(const BaresipAgent::MediaAccount& from, const BaresipAgent::MediaAccount& to) {
    EXPECT_GE(static_cast<long>(to.received), kPacketsOfASecond * kHeardOfTalk.count() / 1000);
    EXPECT_LE(to.received, from.sent);
    EXPECT_LE(static_cast<long>(from.sent - to.received), kAtTheEdges);
    if (IsOnRtpengine()) {
      EXPECT_LE(to.lost, 0);  // its own count, which begins before the first packet
    } else {
      EXPECT_EQ(to.lost, 0);
    }
    EXPECT_EQ(to.errors, 0u);
  }
  void ExpectHeardAtBothEnds() {
    ExpectCarried(caller_->Media(), callee_->Media());
    ExpectCarried(callee_->Media(), caller_->Media());
    ExpectTone(callee_->Heard(), kCallersTone);
    ExpectTone(caller_->Heard(), kCalleesTone);
  }
  /// Talk, hold, talk again.
  void HoldAndResume(BaresipAgent& holder) {
    LetThemTalk();
    holder.Hold();
    ExpectLogLine({"The far end only sends now"});
    LetThemTalk();
    holder.Resume();
    ExpectLogLine({"The far end sends and receives now"});
    LetThemTalk();
  }
  /// The phone holds without music: it neither sends nor gets anything meanwhile, while the other one, who is not told,
  /// talks on. What it hears after resuming this phone (1.0.0) counts, but does not record.
  static void ExpectSilenceInBetween(const BaresipAgent::MediaAccount& holder,
                                     const BaresipAgent::MediaAccount& other) {
    const long spoken = kPacketsOfASecond * 2 * kTalk.count() / 1000;
    for (std::size_t packets : {holder.sent, holder.received, other.received}) {
      EXPECT_GE(static_cast<long>(packets), spoken * 9 / 10);
      EXPECT_LE(static_cast<long>(packets), spoken + 2 * kAtTheEdges);
    }
    EXPECT_GE(static_cast<long>(other.sent - holder.received), kPacketsOfASecond * kHeardOfTalk.count() / 1000);
  }
  /// On the wire between the calling phone and its endpoint nothing can be heard without the keys, and all with them.
  void ExpectSealedOnTheWire(const RtpTap& tap) {
    ASSERT_FALSE(tap.PhoneCrypto().empty());
    ASSERT_FALSE(tap.SwitchCrypto().empty());
    ExpectNoTone(tap.FromPhone(), kCallersTone);
    ExpectNoTone(tap.ToPhone(), kCalleesTone);
    RtpSeal phones(tap.SwitchCrypto(), tap.PhoneCrypto());
    ExpectTone(audio_of(tap.FromPhone(), &phones), kCallersTone);
    RtpSeal far(tap.PhoneCrypto(), tap.SwitchCrypto());
    ExpectTone(audio_of(tap.ToPhone(), &far), kCalleesTone);
    for (const std::string& crypto : {tap.PhoneCrypto(), tap.SwitchCrypto()}) {
      EXPECT_EQ(switch_->Log().find(crypto.substr(crypto.find("inline:") + 7)), std::string::npos)
          << "keys are not logged";
    }
  }

  std::string Accounts() const {
    return "caller:\n" + test_support::last_lines(caller_->Log(), 60) +
           (callee_ ? "callee:\n" + test_support::last_lines(callee_->Log(), 60) : "") + "switch:\n" +
           test_support::last_lines(switch_->Log(), 30);
  }

  std::unique_ptr<BaresipAgent> callee_;
  std::unique_ptr<BaresipAgent> caller_;
};

TEST_P(BaresipCall, IsHeardAtBothEndsWithoutLoss) {
  Start(Caller(), Callee());
  RtpTap tap(switch_->Sip());
  ASSERT_NO_FATAL_FAILURE(Establish(tap.Address()));
  LetThemTalk();
  EXPECT_EQ(test_support::ask_counts(*switch_).media_sessions, 1);
  ASSERT_NO_FATAL_FAILURE(HangUp());
  ExpectHeardAtBothEnds();
  ExpectLogLine({"Answered: PCMU/8000 payload type 0, 20 ms, telephone-event 101"});
  // The wire carries the tones in the clear: the same look at an encrypted call would find them, were they there.
  EXPECT_TRUE(tap.PhoneCrypto().empty());
  ExpectTone(audio_of(tap.FromPhone()), kCallersTone);
  ExpectTone(audio_of(tap.ToPhone()), kCalleesTone);
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(BaresipCall, HeldByTheCallerIsSilentAndResumedIsHeardAgain) {
  Start(Caller(), Callee());
  ASSERT_NO_FATAL_FAILURE(Establish(switch_->Sip()));
  ASSERT_NO_FATAL_FAILURE(HoldAndResume(*caller_));
  ASSERT_NO_FATAL_FAILURE(HangUp());
  ExpectSilenceInBetween(caller_->Media(), callee_->Media());
  ExpectTone(callee_->Heard(), kCallersTone, 2 * kHeardOfTalk);
  ExpectTone(caller_->Heard(), kCalleesTone);
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(BaresipCall, HeldByTheCalleeIsSilentAndResumedIsHeardAgain) {
  Start(Caller(), Callee());
  ASSERT_NO_FATAL_FAILURE(Establish(switch_->Sip()));
  ASSERT_NO_FATAL_FAILURE(HoldAndResume(*callee_));
  ASSERT_NO_FATAL_FAILURE(HangUp());
  ExpectSilenceInBetween(callee_->Media(), caller_->Media());
  ExpectTone(caller_->Heard(), kCalleesTone, 2 * kHeardOfTalk);
  ExpectTone(callee_->Heard(), kCallersTone);
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(BaresipCall, IsEncryptedOnTheWireAndHeardAtBothEndsWhereThatIsMandatory) {
  Secure("mandatory");
  Start(Caller("srtp-mand"), Callee("srtp-mand"));
  RtpTap tap(switch_->Sip());
  ASSERT_NO_FATAL_FAILURE(Establish(tap.Address()));
  LetThemTalk();
  ASSERT_NO_FATAL_FAILURE(HangUp());
  ExpectHeardAtBothEnds();
  ExpectSealedOnTheWire(tap);
  ExpectLogLine({"Answered: PCMU/8000", "SRTP AES_CM_128_HMAC_SHA1_80"});
  ExpectAtRest();
  ExpectCleanStop();
}

// The phone offers a key in RTP/AVP and would do without one (RFC 8643).
TEST_P(BaresipCall, TakesUpEncryptionThatIsOfferedButNotRequired) {
  Secure("optional");
  Start(Caller("srtp"), Callee("srtp"));
  RtpTap tap(switch_->Sip());
  ASSERT_NO_FATAL_FAILURE(Establish(tap.Address()));
  LetThemTalk();
  ASSERT_NO_FATAL_FAILURE(HangUp());
  ExpectHeardAtBothEnds();
  ExpectSealedOnTheWire(tap);
  ExpectAtRest();
  ExpectCleanStop();
}

TEST_P(BaresipCall, InTheClearIsRefusedWhereEncryptionIsMandatory) {
  Secure("mandatory");
  Start(Caller(), Callee("srtp-mand"));
  caller_->Dial(switch_->Sip(), "2000");
  ASSERT_TRUE(caller_->WaitForEvent("CALL_CLOSED", 1, seconds(15))) << Accounts();
  EXPECT_NE(caller_->Log().find("session closed: 488"), std::string::npos) << Accounts();
  ExpectAtRest();
}

/// The phone called in the clear: a sipp for the signalling; in place of a voice it says again what it hears.
class EchoPhone {
 public:
  EchoPhone() : stop_(false), thread_([this] { Run(); }) {}
  ~EchoPhone() { Finish(); }
  EchoPhone(const EchoPhone&) = delete;
  EchoPhone& operator=(const EchoPhone&) = delete;

  std::uint16_t Port() const { return phone_.Port(); }
  /// Falls silent; what it heard.
  const Packets& Finish() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    return heard_;
  }

 private:
  void Run() {
    while (!stop_) {
      while (auto datagram = phone_.Rtp().Receive()) {
        auto packet = test_support::parse_rtp(datagram->data.data(), datagram->data.size());
        heard_.push_back(std::move(datagram->data));
        if (!packet) continue;
        packet->ssrc = 0xec40;
        phone_.Rtp().SendTo(datagram->from, test_support::serialise_rtp(*packet));
      }
      std::this_thread::sleep_for(milliseconds(2));
    }
  }

  RtpPhone phone_;
  Packets heard_;  // owned by the thread until it is joined
  std::atomic<bool> stop_;
  std::thread thread_;
};

TEST_P(BaresipCall, EncryptedReachesAPhoneInTheClear) {
  Secure("optional");
  EchoPhone plain;
  test_support::SippSettings sipp;
  sipp.name = "plain";
  sipp.scenario = "callee";
  sipp.directory = directory_.Path();
  sipp.calls.resize(1);
  sipp.calls[0].number = "2000";
  sipp.calls[0].media_port = plain.Port();
  test_support::SippAgent phone(sipp);
  StartSwitch(phone.Address().ToString());
  StartCaller(Caller("srtp-mand"));
  RtpTap tap(switch_->Sip());
  caller_->Dial(tap.Address(), "2000");
  ASSERT_TRUE(caller_->WaitForEvent("CALL_ESTABLISHED", 1, seconds(15))) << Accounts();
  LetThemTalk();
  caller_->HangUp();
  ASSERT_TRUE(caller_->WaitForEvent("CALL_CLOSED", 1, seconds(15))) << Accounts();
  ASSERT_TRUE(phone.WaitForExit(seconds(15)).value_or(test_support::ChildExit{}).Succeeded()) << phone.Account();
  ExpectNoTone(tap.FromPhone(), kCallersTone);
  ExpectNoTone(tap.ToPhone(), kCallersTone);
  const Packets& heard = plain.Finish();
  ExpectTone(audio_of(heard), kCallersTone);
  EXPECT_LE(heard.size(), tap.FromPhone().size());
  EXPECT_LE(static_cast<long>(tap.FromPhone().size() - heard.size()), kAtTheEdges);
  ExpectTone(caller_->Heard(), kCallersTone);  // its own voice, there and back
  ExpectAtRest();
  ExpectCleanStop();
}

INSTANTIATE_TEST_SUITE_P(Over, BaresipCall, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
