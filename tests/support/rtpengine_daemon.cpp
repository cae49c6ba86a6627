#include "support/rtpengine_daemon.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <stdexcept>
#include <utility>

#include "support/free_ports.h"
#include "support/udp_socket.h"

namespace test_support {
namespace {

using std::chrono::seconds;

/// Of the process and a number: two programs that run at the same time never draw the same.
std::string draw_address() {
  static std::atomic<unsigned> drawn{0};
  const unsigned process = static_cast<unsigned>(getpid());
  // 127.64.0.0 to 127.127.255.255: 22 bits, of which the low six are this program's own.
  const unsigned host = ((process & 0xffff) << 6 | (drawn++ & 0x3f)) & 0x3fffff;
  return "127." + std::to_string(64 + (host >> 16)) + "." + std::to_string(host >> 8 & 0xff) + "." +
         std::to_string(host & 0xff);
}

}  // namespace

RtpengineDaemon::RtpengineDaemon() : RtpengineDaemon(Options()) {}

RtpengineDaemon::RtpengineDaemon(Options options) : options_(std::move(options)) {
  if (options_.address.empty()) options_.address = draw_address();
  Start();
}

RtpengineDaemon::~RtpengineDaemon() {
  child_->Signal(SIGTERM);
  child_->WaitForExit(seconds(10));
}

void RtpengineDaemon::Start() {
  // A port that was free on 127.0.0.1; somebody who binds all addresses may take it in between.
  for (int attempt = 0; attempt < 5; ++attempt) {
    const std::uint16_t port = control_port_ != 0 ? control_port_ : free_udp_port();
    ChildSettings settings;
    if (options_.as_nobody)
      settings.command = {"setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups", "--pdeathsig=KILL"};
    for (const std::string& word : Command(port)) settings.command.push_back(word);
    settings.output = directory_.Path() / "log";
    settings.directory = directory_.Path();
    child_ = std::make_unique<ChildProcess>(settings);
    const bool again = control_port_ != 0;
    control_port_ = port;
    if (AwaitPong()) return;
    if (!again) control_port_ = 0;
  }
  throw std::runtime_error("rtpengine on " + options_.address + " does not answer (./kvx setup test installs it):\n" +
                           last_lines(Log(), 20));
}

std::vector<std::string> RtpengineDaemon::Command(std::uint16_t port) const {
  std::vector<std::string> command = {"rtpengine",
                                      "--config-file=none",
                                      "--table=-1",
                                      "--foreground",
                                      "--log-stderr",
                                      "--interface=" + options_.address,
                                      "--listen-ng=" + UdpAddress{options_.address, port}.ToString(),
                                      "--port-min=" + std::to_string(options_.port_min),
                                      "--port-max=" + std::to_string(options_.port_max),
                                      "--num-threads=2"};
  // The directory is its owner's.
  if (!options_.as_nobody) command.push_back("--pidfile=" + (directory_.Path() / "pid").string());
  command.insert(command.end(), options_.more.begin(), options_.more.end());
  return command;
}

std::string RtpengineDaemon::Ask(const std::string& command) const {
  // A daemon answers a cookie that it has seen with what it answered then.
  static std::atomic<unsigned> asked{0};
  const std::string request = "tests_" + std::to_string(++asked) + " " + command;
  UdpSocket socket(0, UdpAddress{options_.address}.IsIpv6());
  std::string reply;
  wait_until(seconds(30), [&] {
    if (const auto datagram = socket.Receive()) reply.assign(datagram->data.begin(), datagram->data.end());
    if (reply.empty()) socket.SendTo({options_.address, control_port_}, {request.begin(), request.end()});
    return !reply.empty() || !child_->Running();
  });
  return reply;
}

bool RtpengineDaemon::AwaitPong() {
  return !Ask("d7:command4:pinge").empty();
}

std::size_t RtpengineDaemon::Calls() const {
  const std::string reply = Ask("d7:command4:list5:limiti1000000ee");
  const std::string key = "5:callsl";
  const std::size_t list = reply.find(key);
  if (list == std::string::npos) throw std::runtime_error("rtpengine lists no calls: " + reply);
  std::size_t calls = 0;
  for (std::size_t at = list + key.size(); at < reply.size() && reply[at] != 'e'; ++calls) {
    const std::size_t colon = reply.find(':', at);
    if (colon == std::string::npos) throw std::runtime_error("rtpengine's list of calls is cut off: " + reply);
    at = colon + 1 + std::stoul(reply.substr(at, colon - at));
  }
  return calls;
}

void RtpengineDaemon::Kill() {
  child_->Signal(SIGKILL);
  if (!child_->WaitForExit(seconds(10))) throw std::runtime_error("rtpengine does not end");
}

}  // namespace test_support
