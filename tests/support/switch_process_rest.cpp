#include "support/switch_process_rest.h"

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "support/free_ports.h"
#include "support/process_child.h"

namespace test_support {
namespace {

long first_number(const std::string& command, const std::string& answer) {
  const std::size_t digit = answer.find_first_of("0123456789");
  if (digit == std::string::npos) throw std::runtime_error("\"" + command + "\" answers without a number: " + answer);
  return std::strtol(answer.c_str() + digit, nullptr, 10);
}

}  // namespace

SwitchCounts ask_counts(SwitchProcess& process) {
  SwitchCounts counts;
  for (const auto& [command, wanted] : {std::pair<const char*, long*>{"show channels count", &counts.sessions},
                                        {"ms_count_show", &counts.media_sessions}}) {
    const std::string answer = process.Api(command);
    if (answer.rfind("-", 0) == 0) throw std::runtime_error(std::string(command) + " failed: " + answer);
    *wanted = first_number(command, answer);
  }
  return counts;
}

RestReport await_rest(SwitchProcess& process, const ProcessHoldings& before, std::chrono::milliseconds limit) {
  RestReport report;
  wait_until(limit, [&] {
    report.counts = ask_counts(process);
    return report.counts.sessions == 0 && report.counts.media_sessions == 0;
  });
  if (report.counts.sessions != 0)
    report.faults.push_back(std::to_string(report.counts.sessions) + " legs still there");
  if (report.counts.media_sessions != 0) {
    report.faults.push_back(std::to_string(report.counts.media_sessions) + " media sessions still there");
  }
  report.holdings_difference = process.DifferenceFrom(before, limit);
  if (!report.holdings_difference.empty()) {
    report.faults.push_back("the switch holds other things than before: " + report.holdings_difference);
  }
  return report;
}

std::vector<std::uint16_t> ports_in_use(SwitchProcess& process, const std::vector<std::uint16_t>& ports,
                                        std::chrono::milliseconds limit) {
  if (ports.empty()) throw std::invalid_argument("no port to look at");
  std::vector<std::uint16_t> taken;
  wait_until(limit, [&] {
    taken.clear();
    const auto held = inspect_process(process.Pid()).udp_ports;
    for (std::uint16_t port : ports) {
      if (held.count(port) != 0 || (!udp_port_is_free(port) && !udp_port_is_open_anywhere(port))) taken.push_back(port);
    }
    return taken.empty();
  });
  return taken;
}

std::string RestReport::Faults() const {
  std::string text;
  for (const std::string& fault : faults) text += (text.empty() ? "" : "; ") + fault;
  return text;
}

}  // namespace test_support
