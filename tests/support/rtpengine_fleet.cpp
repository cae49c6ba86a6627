#include "support/rtpengine_fleet.h"

#include <unistd.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace test_support {

RtpengineFleet::RtpengineFleet(std::size_t daemons) {
  RtpengineDaemon::Options options;
  options.as_nobody = geteuid() == 0;
  options.more = {"--poller-per-thread", "--endpoint-learning=immediate", "--timeout=86400", "--silent-timeout=86400",
                  "--offer-timeout=86400"};
  for (std::size_t i = 0; i < daemons; ++i) daemons_.push_back(std::make_unique<RtpengineDaemon>(options));
}

void RtpengineFleet::PutInto(ConfigurationCopy& configuration, unsigned heartbeat_ms) const {
  const std::string file = "jsr309.xml";
  std::ifstream in(configuration.File(file));
  std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  const std::string begin = "<media_servers>";
  const std::size_t from = text.find(begin), to = text.find("</media_servers>");
  if (from == std::string::npos || to == std::string::npos) throw std::runtime_error(file + " has no media servers");
  std::string servers;
  for (std::size_t i = 0; i < daemons_.size(); ++i) {
    const RtpengineDaemon& daemon = *daemons_[i];
    servers += "<media_server><driver>rtpengine</driver><mac>02:00:00:00:00:0" + std::to_string(i + 1) +
               "</mac><address>" + daemon.Address() + "</address><control>" + daemon.Address() + ":" +
               std::to_string(daemon.ControlPort()) + "</control><heartbeat_ms>" + std::to_string(heartbeat_ms) +
               "</heartbeat_ms></media_server>\n";
  }
  text.replace(from + begin.size(), to - from - begin.size(), servers);
  configuration.Write(file, text);
}

}  // namespace test_support
