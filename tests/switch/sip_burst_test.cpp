// What comes while the SIP thread has no processor is read when it has one again.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <set>
#include <string>
#include <vector>

#include "sip/sip_agent.h"
#include "sip/sip_profile.h"
#include "sip_peer_socket.h"
#include "sip_temporary_directory.h"

namespace kvx_switch {
namespace {

// Together more than a socket holds unless it is told to hold more; a phone's socket has room for its own. As long as
// the requests of calls, since the system counts the memory that it sets aside for each.
constexpr int kPhones = 4, kRequestsEach = 40;
constexpr std::size_t kSubject = 700;

std::string Options(const std::string& to, const std::string& from, int number) {
  const std::string n = std::to_string(number);
  return "OPTIONS sip:" + to + " SIP/2.0\r\nVia: SIP/2.0/UDP " + from + ";branch=z9hG4bK-" + from + "-" + n +
         "\r\nFrom: <sip:alice@" + from + ">;tag=a" + n + "\r\nTo: <sip:" + to + ">\r\nCall-ID: burst-" + n + "@" +
         from + "\r\nCSeq: 1 OPTIONS\r\nMax-Forwards: 70\r\nSubject: " + std::string(kSubject, 's') +
         "\r\nContent-Length: 0\r\n\r\n";
}

std::string CallIdOf(const std::string& message) {
  const std::size_t at = message.find("Call-ID: ");
  return at == std::string::npos ? "" : message.substr(at, message.find('\r', at) - at);
}

/// How many of the phone's requests have been answered, all of them or by then.
std::size_t AnsweredBefore(std::chrono::steady_clock::time_point deadline, SipPeerSocket& phone) {
  std::set<std::string> answered;
  while (answered.size() < kRequestsEach) {
    const std::optional<std::string> answer = phone.Receive(deadline);
    if (!answer) break;
    EXPECT_EQ(answer->compare(0, 11, "SIP/2.0 200"), 0) << *answer;
    answered.insert(CallIdOf(*answer));
  }
  return answered.size();
}

TEST(SipBurst, IsAnsweredWholeByAThreadThatWasKeptFromReading) {
  TemporaryDirectory directory;
  const std::string path = directory.Write(
      "internal.xml",
      "<profile name=\"internal\"><settings><param name=\"sip-port\" value=\"0\"/></settings></profile>");
  SipProfile profile;
  std::string error;
  ASSERT_TRUE(LoadSipProfile(path, profile, error)) << error;
  const std::shared_ptr<SipAgent> agent = SipAgent::Start(profile, nullptr, error);
  ASSERT_TRUE(agent) << error;

  std::promise<void> held, release;
  ASSERT_TRUE(agent->Post([&] {
    held.set_value();
    release.get_future().wait();
  }));
  EXPECT_EQ(held.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
  std::vector<std::unique_ptr<SipPeerSocket>> phones(kPhones);
  for (std::unique_ptr<SipPeerSocket>& phone : phones) {
    phone = SipPeerSocket::Open({});
    for (int i = 0; i < kRequestsEach; ++i) {
      phone->Send(agent->address(), Options(agent->address(), phone->Address(), i));
    }
  }
  release.set_value();

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  for (const std::unique_ptr<SipPeerSocket>& phone : phones) {
    EXPECT_EQ(AnsweredBefore(deadline, *phone), static_cast<std::size_t>(kRequestsEach));
  }
  agent->Stop();
}

}  // namespace
}  // namespace kvx_switch
