// How many calls a second one client can set up and take down: through the control library with its embedded media
// server, through the control library with an rtpengine that is there, or over the ng protocol with that rtpengine and
// nothing in between. The client places one call after the other.
//
//     bench_control embedded DIRECTORY SECONDS               ->  result calls N calls_per_second X cpu_us_per_call Y
//     bench_control rtpengine ADDRESS PORT DIRECTORY SECONDS ->  the same and requests_per_call Z
//     bench_control ng ADDRESS PORT SECONDS                  ->  the same and requests_per_call Z
#include <boost/make_shared.hpp>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "../ng_client/ng_call.h"
#include "../support/lines.h"
#include "../support/system.h"
#include "kelvaro/jsr309/jsr309.h"

namespace bench {
namespace {

namespace jsr309 = kelvaro::jsr309;

constexpr char kFarEnd[] = "127.0.0.2";
constexpr uint16_t kCallerPort = 40000, kCalleePort = 40002;

/// The requests about calls that a daemon says that it was sent so far, whoever sent them.
class NgRequestCount {
 public:
  NgRequestCount(const std::string& address, uint16_t port) : client_({address, port}) {}

  double operator()() {
    std::string error;
    const auto reply = client_.Ask({{"command", "statistics"}}, error);
    if (!reply) throw std::runtime_error(error);
    const auto* const statistics = kelvaro::jsr309::rtpengine::EntriesOf(*reply, "statistics");
    const auto* const control =
        statistics == nullptr ? nullptr : kelvaro::jsr309::rtpengine::EntriesOf(*statistics, "controlstatistics");
    double count = 0;
    for (const char* const command : {"offer", "answer", "delete", "query", "blkmedia", "unblkmedia"}) {
      const auto of_command =
          control == nullptr ? std::nullopt
                             : kelvaro::jsr309::rtpengine::NumberOf(*control, "total" + std::string(command) + "count");
      if (!of_command)
        throw std::runtime_error("rtpengine does not tell how often it was sent \"" + std::string(command) + "\"");
      count += static_cast<double>(*of_command);
    }
    return count;
  }

 private:
  rtpengine_ng::NgClient client_;
};

/// Calls one after the other for that long. requests: how many a daemon has had; null for none.
void Measure(double seconds, const std::function<void(uint64_t)>& place_call,
             const std::function<double()>& requests = nullptr) {
  uint64_t calls = 0;
  for (; calls < 20; ++calls) place_call(calls);
  const uint64_t first = calls;
  const double requests_before = requests ? requests() : 0;
  const double cpu = OwnCpuSeconds();
  const int64_t start = MonotonicNs(), end = start + static_cast<int64_t>(1e9 * seconds);
  for (; MonotonicNs() < end; ++calls) place_call(calls);
  const double wall = 1e-9 * static_cast<double>(MonotonicNs() - start);
  const double placed = static_cast<double>(calls - first);
  std::string result = "result calls " + std::to_string(placed) + " calls_per_second " + std::to_string(placed / wall) +
                       " cpu_us_per_call " + std::to_string(1e6 * (OwnCpuSeconds() - cpu) / placed);
  if (requests) result += " requests_per_call " + std::to_string((requests() - requests_before) / placed);
  Answer(result);
}

void Need(bool done, const char* what) {
  if (!done) throw std::runtime_error(std::string(what) + " is refused");
}

jsr309::MediaConfig Description(uint16_t port) {
  jsr309::MediaConfig config;
  if (port != 0) {
    config.SetIPAddress(kFarEnd);
    config.SetRtpPort(port);
    config.SetRtcpPort(static_cast<uint16_t>(port + 1));
  }
  config.AddCodec("PCMU", 0, 20, 8000, 64000, false, 0, 0, 0, nullptr, 0, 1.0);
  return config;
}

void PlaceCall(jsr309::MSControlFactory& factory) {
  const jsr309::MediaSessionSharedPtr session(factory.CreateMediaSession());
  Need(session != nullptr, "a session");
  const jsr309::NetworkConnectionSharedPtr caller(session->CreateNetworkConnection(nullptr));
  const jsr309::NetworkConnectionSharedPtr callee(session->CreateNetworkConnection(nullptr));
  Need(caller && callee, "a connection");
  Need(caller->SetRemoteOffer(Description(kCallerPort)), "the caller's offer");
  jsr309::MediaConfig towards_callee = Description(0), towards_caller = Description(0);
  Need(callee->GetLocalOffer(towards_callee), "the offer to the callee");
  Need(callee->SetRemoteAnswer(Description(kCalleePort)), "the callee's answer");
  Need(caller->GetLocalAnswer(towards_caller), "the answer to the caller");
  Need(caller->Join(jsr309::kDuplex, callee), "the join");
  caller->Close();
  callee->Close();
}

/// settings: of the media server, beside its name.
void MeasureLibrary(const std::filesystem::path& directory, const std::string& settings, double seconds,
                    const std::function<double()>& requests = nullptr) {
  std::filesystem::create_directories(directory);
  const std::filesystem::path file = directory / "control.xml";
  std::ofstream(file) << "<?xml version=\"1.0\"?>\n<jsr309><media/><media_servers><media_server><mac>02:00:00:00:00:01"
                         "</mac>"
                      << settings << "</media_server></media_servers></jsr309>\n";
  jsr309::MSControlFactory factory;
  Need(factory.Init(file.c_str(), nullptr), "the configuration");
  Measure(
      seconds, [&](uint64_t) { PlaceCall(factory); }, requests);
  factory.Stop();
}

void MeasureEmbedded(const std::filesystem::path& directory, double seconds) {
  // The quarantine keeps ports of calls that have ended for a while; at thousands of calls a second they would run out.
  MeasureLibrary(directory,
                 "<address>127.0.0.3</address><rtp_port_min>10000</rtp_port_min><rtp_port_max>27999</rtp_port_max>"
                 "<threads>1</threads><port_quarantine_ms>0</port_quarantine_ms>",
                 seconds);
}

void MeasureRtpengine(const std::string& address, uint16_t port, const std::filesystem::path& directory,
                      double seconds) {
  MeasureLibrary(directory,
                 "<driver>rtpengine</driver><address>" + address + "</address><control>" + address + ":" +
                     std::to_string(port) + "</control>",
                 seconds, [count = std::make_shared<NgRequestCount>(address, port)] { return (*count)(); });
}

void PlaceNgCall(rtpengine_ng::NgClient& client, uint64_t number) {
  rtpengine_ng::NgCall call(client, "call-" + std::to_string(number));
  rtpengine_ng::NgLeg towards_callee, towards_caller;
  std::string error;
  if (!call.Offer({kFarEnd, kCallerPort, 0, {}}, towards_callee, error) ||
      !call.Answer({kFarEnd, kCalleePort, 0, {}}, towards_caller, error) || !call.Delete(error)) {
    throw std::runtime_error(error);
  }
}

void MeasureNg(const std::string& address, uint16_t port, double seconds) {
  rtpengine_ng::NgSettings settings;
  settings.address = address;
  settings.port = port;
  rtpengine_ng::NgClient client(settings);
  NgRequestCount requests(address, port);
  Measure(
      seconds, [&](uint64_t number) { PlaceNgCall(client, number); }, [&] { return requests(); });
  if (client.retransmissions() == 0) return;
  std::fprintf(stderr, "control: %llu retransmissions\n", static_cast<unsigned long long>(client.retransmissions()));
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) try {
  const std::string kind = argc > 1 ? argv[1] : "";
  if (kind == "embedded" && argc == 4) {
    bench::MeasureEmbedded(argv[2], std::stod(argv[3]));
  } else if (kind == "rtpengine" && argc == 6) {
    bench::MeasureRtpengine(argv[2], static_cast<uint16_t>(std::stoul(argv[3])), argv[4], std::stod(argv[5]));
  } else if (kind == "ng" && argc == 5) {
    bench::MeasureNg(argv[2], static_cast<uint16_t>(std::stoul(argv[3])), std::stod(argv[4]));
  } else {
    throw std::runtime_error(
        "wants embedded DIRECTORY SECONDS, rtpengine ADDRESS PORT DIRECTORY SECONDS, or ng ADDRESS PORT SECONDS");
  }
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "control: %s\n", error.what());
  return 1;
}
