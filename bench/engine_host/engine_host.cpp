// The media engine as a program of its own: one server, one worker, and a call for every two legs. RTCP, statistics and
// rewriting are on, as they are by default.
//
// Started with its address, the first and last of its ports and the microseconds of coalescing; says "ready", then
//
//     legs FAR RTCP_PORT P0 P1 ...   and   keys [K0 K1 ...]   ->  ports L0 L1 ...
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "../support/lines.h"
#include "../support/system.h"
#include "media_engine/engine.h"

namespace bench {
namespace {

using media_engine::milliseconds;

constexpr milliseconds kLimit{5000};

std::vector<uint8_t> FromBase64(const std::string& text) {
  std::vector<uint8_t> octets;
  uint32_t bits = 0;
  int count = 0;
  for (const char digit : text) {
    const int value = digit >= 'A' && digit <= 'Z'   ? digit - 'A'
                      : digit >= 'a' && digit <= 'z' ? digit - 'a' + 26
                      : digit >= '0' && digit <= '9' ? digit - '0' + 52
                      : digit == '+'                 ? 62
                      : digit == '/'                 ? 63
                                                     : -1;
    if (value < 0) continue;
    bits = bits << 6 | static_cast<uint32_t>(value);
    if ((count += 6) < 8) continue;
    count -= 8;
    octets.push_back(static_cast<uint8_t>(bits >> count));
  }
  return octets;
}

void Check(const media_engine::Outcome& outcome, const char* what) {
  if (!outcome) throw std::runtime_error(std::string(what) + ": " + outcome.reason);
}

class Host {
 public:
  Host(const std::string& address, uint16_t first_port, uint16_t last_port, unsigned coalescing_us) {
    media_engine::ServerConfig config;
    config.addresses = {address};
    config.rtp_port_min = first_port;
    config.rtp_port_max = last_port;
    config.coalescing = std::chrono::microseconds(coalescing_us);
    config.log = [](media_engine::LogLevel level, const std::string& text) {
      if (level <= media_engine::LogLevel::kWarning) std::fprintf(stderr, "%s\n", text.c_str());
    };
    media_engine::Outcome outcome;
    server_ = engine_.OpenServer(config, nullptr, outcome);
    Check(outcome, "server");
  }

  std::vector<uint16_t> OpenCalls(const Words& legs, const Words& keys) {
    legs_ = legs;
    keys_ = keys;
    const std::vector<uint16_t> far_ports = PortsOf(legs_, 3);
    AllowFiles(2 * far_ports.size() + 64);
    for (std::size_t i = 0; i + 1 < far_ports.size(); i += 2) {
      media_engine::Outcome outcome;
      sessions_.push_back(server_->CreateSession(outcome));
      Check(outcome, "session");
      OpenLeg(i, far_ports[i]);
      OpenLeg(i + 1, far_ports[i + 1]);
      Check(endpoints_[i]->Join(media_engine::Direction::kDuplex, *endpoints_[i + 1], kLimit), "join");
    }
    return ports_;
  }

 private:
  void OpenLeg(std::size_t leg, uint16_t far_port) {
    media_engine::Outcome outcome;
    endpoints_.push_back(sessions_.back()->CreateEndpoint(nullptr, kLimit, outcome));
    Check(outcome, "endpoint");
    media_engine::LocalSettings local;
    local.codecs = {{"PCMU", 0, 8000, 20, 64000}};
    media_engine::RemoteDescription remote;
    remote.address = legs_.at(1);
    remote.rtp_port = far_port;
    remote.rtcp_port = static_cast<uint16_t>(std::stoul(legs_.at(2)));
    remote.codecs = local.codecs;
    if (leg + 1 < keys_.size()) {
      const std::string& suite_and_key = keys_[leg + 1];
      const std::size_t colon = suite_and_key.find(':');
      local.crypto.suite = remote.crypto.suite = suite_and_key.substr(0, colon);
      const std::vector<uint8_t> key = FromBase64(suite_and_key.substr(colon + 1));
      remote.crypto.key.assign(key.begin(), key.end());
    }
    media_engine::LocalDescription description;
    Check(endpoints_.back()->DescribeLocal(local, description, kLimit), "local description");
    Check(endpoints_.back()->DescribeRemote(remote, kLimit), "remote description");
    ports_.push_back(description.rtp_port);
  }

  Words legs_, keys_;
  media_engine::Engine engine_;
  std::unique_ptr<media_engine::Server> server_;
  std::vector<std::shared_ptr<media_engine::Session>> sessions_;
  std::vector<std::shared_ptr<media_engine::Endpoint>> endpoints_;
  std::vector<uint16_t> ports_;
};

}  // namespace
}  // namespace bench

int main(int argc, char** argv) try {
  if (argc != 5) throw std::runtime_error("wants ADDRESS FIRST_PORT LAST_PORT COALESCING_US");
  bench::Host host(argv[1], static_cast<uint16_t>(std::stoul(argv[2])), static_cast<uint16_t>(std::stoul(argv[3])),
                   static_cast<unsigned>(std::stoul(argv[4])));
  bench::Answer("ready");
  std::string legs, keys;
  std::getline(std::cin, legs);
  std::getline(std::cin, keys);
  bench::Answer(bench::Line("ports", host.OpenCalls(bench::Split(legs), bench::Split(keys))));
  std::getline(std::cin, legs);  // until there is no more to do
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "engine_host: %s\n", error.what());
  return 1;
}
