#include "media_engine/engine.h"

#include <cstring>
#include <utility>

#include "heartbeat.h"
#include "port_pool.h"
#include "server_context.h"
#include "worker_thread.h"

namespace media_engine {

Outcome CheckServerAddress(const std::string& text, bool bound) {
  const auto address = SocketAddress::Parse(text, 0);
  if (!address) return Outcome::Refused("address '" + text + "' is not a numeric IPv4 or IPv6 address");
  if (address->IsWildcard()) return Outcome::Refused("address '" + text + "' is not the address of one host");
  if (!bound) return Outcome::Done();
  // Better known now than at the first call.
  UdpSocket probe;
  const int error = probe.Bind(*address);
  if (error == 0) return Outcome::Done();
  return Outcome::Refused("address '" + text + "' cannot be bound: " + std::strerror(error));
}

Engine::Engine(std::shared_ptr<const Clock> clock)
    : clock_(clock ? std::move(clock) : std::make_shared<const SteadyClock>()),
      identity_(std::make_shared<const int>(0)) {}

namespace {

Outcome CheckAddresses(const ServerConfig& config) {
  if (config.addresses.empty()) return Outcome::Refused("a media server needs an address");
  for (const std::string& text : config.addresses) {
    if (Outcome outcome = CheckServerAddress(text, &text == &config.addresses.front()); !outcome) return outcome;
  }
  if (!config.public_address.empty() && !SocketAddress::Parse(config.public_address, 0)) {
    return Outcome::Refused("public address '" + config.public_address + "' is not a numeric IPv4 or IPv6 address");
  }
  return Outcome::Done();
}

Outcome CheckConfig(const ServerConfig& config, const PortPool& ports) {
  if (config.rtp_port_min == 0 || ports.capacity() == 0) {
    return Outcome::Refused("RTP ports " + std::to_string(config.rtp_port_min) + "-" +
                            std::to_string(config.rtp_port_max) + " hold no pair of an even and an odd port");
  }
  if (config.threads == 0) return Outcome::Refused("a media server needs a worker thread");
  if (config.heartbeat <= milliseconds{0}) {
    return Outcome::Refused("heartbeat of " + std::to_string(config.heartbeat.count()) + " ms is not positive");
  }
  if (config.coalescing < std::chrono::microseconds{0} || config.coalescing >= seconds{1}) {
    return Outcome::Refused("coalescing of " + std::to_string(config.coalescing.count()) +
                            " us is not from 0 to 999999 us");
  }
  if (config.port_quarantine < milliseconds{0}) {
    return Outcome::Refused("port quarantine of " + std::to_string(config.port_quarantine.count()) + " ms is negative");
  }
  return Outcome::Done();
}

}  // namespace

std::unique_ptr<Server> Engine::OpenServer(const ServerConfig& config, ServerEvents* events, Outcome& outcome) {
  outcome = CheckAddresses(config);
  if (!outcome) return nullptr;
  const SocketAddress address = *SocketAddress::Parse(config.addresses.front(), 0);
  const auto ports =
      std::make_shared<PortPool>(address, config.rtp_port_min, config.rtp_port_max, config.port_quarantine, clock_);
  outcome = CheckConfig(config, *ports);
  if (!outcome) return nullptr;
  const auto context =
      std::make_shared<ServerContext>(clock_, identity_, address, config.public_address, ports, config.log);
  std::unique_ptr<Server> server(new Server(context, events));
  outcome = server->Start(config);
  return outcome ? std::move(server) : nullptr;
}

}  // namespace media_engine
