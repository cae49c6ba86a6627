/// A factory over embedded media servers, and call legs with real far ends.
#pragma once

#include "kelvaro/jsr309/jsr309.h"
#include "support/free_ports.h"
#include "support/jsr309_recording_listeners.h"
#include "support/jsr309_recording_logger.h"
#include "support/process_scratch.h"
#include "support/rtp_packet.h"
#include "support/udp_socket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace test_support {

struct EmbeddedOptions {
  std::vector<std::string> addresses = {"127.0.0.1"};  // one server each
  std::string public_address;
  unsigned pairs = 8;
  std::pair<unsigned, unsigned> rtp_ports;  // 0: that many pairs that are free
  unsigned threads = 2;
  std::vector<unsigned> capacities;      // of the first servers, in place of the default
  unsigned lost_events_per_second = 0;   // 0: the default
  std::string heartbeat_ms;              // empty: the default
  std::string port_quarantine_ms = "0";  // empty: the default
  std::string coalescing_us;             // empty: the default
  std::string driver = "embedded";
  std::vector<std::string> drivers;  // of the first servers, in place of that one
  unsigned request_timeout_ms = 5000;
  std::string extra;                // XML inside every media_server
  std::vector<std::string> extras;  // and inside the first ones
};

class EmbeddedTest : public ::testing::Test {
 protected:
  using MediaConfig = kelvaro::jsr309::MediaConfig;
  using ConnectionPtr = kelvaro::jsr309::NetworkConnectionSharedPtr;
  using SessionPtr = kelvaro::jsr309::MediaSessionSharedPtr;

  ~EmbeddedTest() override { std::remove(path_.c_str()); }

  bool Init(const EmbeddedOptions& options = {}) {
    port_min_ = FreeRange(options.pairs);
    WriteConfiguration(options);
    factory_ = factory_clock_ ? std::make_unique<kelvaro::jsr309::MSControlFactory>(factory_clock_)
                              : std::make_unique<kelvaro::jsr309::MSControlFactory>();
    return factory_->Init(path_.c_str(), &logger_);
  }
  void Start(const EmbeddedOptions& options = {}) {
    if (!Init(options)) throw std::runtime_error("the factory does not start");
  }

  SessionPtr NewSession() { return SessionPtr(factory_->CreateMediaSession()); }
  static ConnectionPtr NewConnection(const SessionPtr& session) {
    return ConnectionPtr(session->CreateNetworkConnection(nullptr));
  }

  /// A connection and its far end.
  struct Leg {
    ConnectionPtr connection;
    std::shared_ptr<UdpSocket> far_end = std::make_shared<UdpSocket>();
    MediaConfig local;
    std::shared_ptr<UdpSocket> far_rtcp = std::make_shared<UdpSocket>();

    UdpAddress target() const { return {local.GetIPAddress(), local.GetRtpPort()}; }
    void Send(std::uint16_t number, std::uint8_t payload_type = 0, std::uint32_t ssrc = 0x12345678) const {
      const RtpPacket packet{false, payload_type, number, 160u * number, ssrc, Payload(number)};
      if (!far_end->SendTo(target(), serialise_rtp(packet))) throw std::runtime_error("cannot send");
    }
    std::optional<RtpPacket> Receive(int milliseconds = 5000) const {
      pollfd waiting{far_end->Descriptor(), POLLIN, 0};
      if (poll(&waiting, 1, milliseconds) <= 0) return std::nullopt;
      const auto datagram = far_end->Receive();
      if (!datagram) return std::nullopt;
      return parse_rtp(datagram->data.data(), datagram->data.size());
    }
  };

  static std::vector<std::uint8_t> Payload(std::uint16_t number) {
    std::vector<std::uint8_t> payload(160, static_cast<std::uint8_t>(number * 7));
    payload[0] = static_cast<std::uint8_t>(number >> 8);
    payload[1] = static_cast<std::uint8_t>(number);
    return payload;
  }

  static void AddCodec(MediaConfig& config, const char* name = "PCMU", int payload_type = 0) {
    config.AddCodec(name, payload_type, 20, 8000, 64000, false, 0, 0, 0, nullptr, 0, 1.0);
  }
  static MediaConfig RemoteOf(const Leg& leg, const char* codec = "PCMU", int payload_type = 0) {
    MediaConfig remote;
    remote.SetIPAddress("127.0.0.1");
    remote.SetRtpPort(leg.far_end->Port());
    remote.SetRtcpPort(leg.far_rtcp->Port());
    AddCodec(remote, codec, payload_type);
    return remote;
  }
  /// Offers and gets an answer, as the leg that was called.
  static Leg NewLeg(const SessionPtr& session, const char* codec = "PCMU", int payload_type = 0) {
    Leg leg;
    leg.connection = NewConnection(session);
    if (!leg.connection) throw std::runtime_error("no connection");
    AddCodec(leg.local, codec, payload_type);
    if (!leg.connection->GetLocalOffer(leg.local)) throw std::runtime_error("no local offer");
    if (!leg.connection->SetRemoteAnswer(RemoteOf(leg, codec, payload_type))) throw std::runtime_error("no answer");
    return leg;
  }
  static bool Join(const Leg& a, const Leg& b, kelvaro::jsr309::Direction direction = kelvaro::jsr309::kDuplex) {
    return a.connection->Join(direction, b.connection);
  }
  /// Whether a packet sent at the one comes out at the other.
  static bool Flows(const Leg& from, const Leg& to, std::uint16_t number, int patience_ms = 5000) {
    from.Send(number);
    const auto came = to.Receive(patience_ms);
    return came && came->payload == Payload(number);
  }

  kelvaro::jsr309::MSControlFactory& factory() { return *factory_; }
  void DestroyFactory() { factory_.reset(); }
  /// Before Start: the library's pace goes by that clock.
  void UseFactoryClock(std::shared_ptr<kelvaro::jsr309::Clock> clock) { factory_clock_ = std::move(clock); }
  RecordingLogger& logger() { return logger_; }
  std::uint16_t port_min() const { return port_min_; }
  const std::string& path() const { return path_; }

 private:
  static std::uint16_t FreeRange(unsigned pairs) {
    // Apart from tests that run beside this one.
    static std::mt19937 random(std::random_device{}());
    const int own_part = 10000 + getpid() % 25 * 200;
    std::uniform_int_distribution<int> start(own_part, own_part + 199 - static_cast<int>(std::min(pairs, 199u)));
    for (int attempt = 0; attempt < 200; ++attempt) {
      const auto first = static_cast<std::uint16_t>(2 * start(random));
      bool free = true;
      for (unsigned i = 0; free && i < 2 * pairs; ++i) free = udp_port_is_free(static_cast<std::uint16_t>(first + i));
      if (free) return first;
    }
    throw std::runtime_error("no range of free ports");
  }

  static void WriteElement(std::ostream& file, const std::string& name, const std::string& text) {
    if (!text.empty()) file << "<" << name << ">" << text << "</" << name << ">\n";
  }

  void WriteConfiguration(const EmbeddedOptions& options) {
    std::remove(path_.c_str());
    path_ = scratch_file("embedded.xml").string();
    std::ofstream file(path_);
    file << "<jsr309><media_servers><request_timeout_ms>" << options.request_timeout_ms << "</request_timeout_ms>\n";
    if (options.lost_events_per_second != 0) {
      WriteElement(file, "lost_events_per_second", std::to_string(options.lost_events_per_second));
    }
    int number = 0;
    for (const std::string& address : options.addresses) {
      const auto index = static_cast<size_t>(number);
      file << "<media_server><driver>" << (index < options.drivers.size() ? options.drivers[index] : options.driver)
           << "</driver><mac>02:00:00:00:00:0" << ++number << "</mac><address>" << address << "</address>\n";
      if (!options.public_address.empty()) file << "<public_address>" << options.public_address << "</public_address>";
      const auto [first, last] = options.rtp_ports;
      file << "<rtp_port_min>" << (first != 0 ? first : port_min_) << "</rtp_port_min><rtp_port_max>"
           << (last != 0 ? last : port_min_ + 2 * options.pairs - 1) << "</rtp_port_max><threads>" << options.threads
           << "</threads>\n";
      WriteElement(file, "port_quarantine_ms", options.port_quarantine_ms);
      WriteElement(file, "heartbeat_ms", options.heartbeat_ms);
      WriteElement(file, "coalescing_us", options.coalescing_us);
      if (number <= static_cast<int>(options.capacities.size())) {
        WriteElement(file, "capacity", std::to_string(options.capacities[static_cast<size_t>(number - 1)]));
      }
      if (number <= static_cast<int>(options.extras.size())) file << options.extras[static_cast<size_t>(number - 1)];
      file << options.extra << "</media_server>\n";
    }
    file << "</media_servers></jsr309>\n";
  }

  RecordingLogger logger_;
  std::string path_;
  std::uint16_t port_min_ = 0;
  std::shared_ptr<kelvaro::jsr309::Clock> factory_clock_;
  std::unique_ptr<kelvaro::jsr309::MSControlFactory> factory_;
};

}  // namespace test_support
