#include "support/process_inspection.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

namespace test_support {
namespace {

namespace fs = std::filesystem;

// Local port by socket inode, from the kernel's table (see proc(5)); the address is hexadecimal.
void add_ports_by_inode(pid_t pid, const std::string& protocol, std::map<std::string, std::uint16_t>& ports) {
  std::ifstream table("/proc/" + std::to_string(pid) + "/net/" + protocol);
  if (!table) throw std::runtime_error("no table of " + protocol + " sockets of process " + std::to_string(pid));
  std::string line;
  std::getline(table, line);
  while (std::getline(table, line)) {
    std::istringstream words(line);
    std::vector<std::string> fields;
    for (std::string word; words >> word;) fields.push_back(word);
    if (fields.size() < 10) continue;
    const std::size_t colon = fields[1].find(':');
    ports[fields[9]] = static_cast<std::uint16_t>(std::strtoul(fields[1].c_str() + colon + 1, nullptr, 16));
  }
}

std::map<std::string, std::uint16_t> udp_ports_by_inode(pid_t pid) {
  std::map<std::string, std::uint16_t> ports;
  for (const char* protocol : {"udp", "udp6"}) add_ports_by_inode(pid, protocol, ports);
  return ports;
}

std::size_t count_entries(const fs::path& directory) {
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator(directory)) {
    (void)entry;
    ++count;
  }
  return count;
}

std::string signed_number(std::size_t before, std::size_t now) {
  return now >= before ? "+" + std::to_string(now - before) : "-" + std::to_string(before - now);
}

std::string port_list(const std::set<std::uint16_t>& ports) {
  std::string text;
  for (std::uint16_t port : ports) text += (text.empty() ? "" : " ") + std::to_string(port);
  return text;
}

std::set<std::uint16_t> without(const std::set<std::uint16_t>& ports, const std::set<std::uint16_t>& removed) {
  std::set<std::uint16_t> rest;
  for (std::uint16_t port : ports) {
    if (removed.count(port) == 0) rest.insert(port);
  }
  return rest;
}

}  // namespace

bool tcp_port_is_bound(pid_t pid, std::uint16_t port) {
  std::map<std::string, std::uint16_t> ports;
  for (const char* protocol : {"tcp", "tcp6"}) add_ports_by_inode(pid, protocol, ports);
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
    std::error_code closed_meanwhile;
    const std::string target = fs::read_symlink(entry.path(), closed_meanwhile).string();
    if (target.rfind("socket:[", 0) != 0) continue;
    const auto found = ports.find(target.substr(8, target.size() - 9));
    if (found != ports.end() && found->second == port) return true;
  }
  return false;
}

ProcessHoldings inspect_process(pid_t pid) {
  const fs::path process = "/proc/" + std::to_string(pid);
  ProcessHoldings holdings;
  try {
    const auto ports = udp_ports_by_inode(pid);
    for (const auto& entry : fs::directory_iterator(process / "fd")) {
      ++holdings.descriptors;
      std::error_code closed_meanwhile;
      const std::string target = fs::read_symlink(entry.path(), closed_meanwhile).string();
      if (target.rfind("socket:[", 0) != 0) continue;
      const auto found = ports.find(target.substr(8, target.size() - 9));
      if (found != ports.end()) holdings.udp_ports.insert(found->second);
    }
    holdings.threads = count_entries(process / "task");
  } catch (const fs::filesystem_error& error) {
    throw std::runtime_error("process " + std::to_string(pid) + " cannot be looked into: " + error.what());
  }
  if (holdings.threads == 0) throw std::runtime_error("process " + std::to_string(pid) + " has no thread");
  return holdings;
}

bool udp_port_is_open_anywhere(std::uint16_t port) {
  for (const auto& [inode, open_port] : udp_ports_by_inode(getpid())) {
    if (open_port == port) return true;
  }
  return false;
}

bool operator==(const ProcessHoldings& left, const ProcessHoldings& right) {
  return left.descriptors == right.descriptors && left.threads == right.threads && left.udp_ports == right.udp_ports;
}

std::string ProcessHoldings::ToString() const {
  return std::to_string(descriptors) + " file descriptors, " + std::to_string(threads) +
         " threads, UDP ports: " + (udp_ports.empty() ? "none" : port_list(udp_ports));
}

std::string describe_difference(const ProcessHoldings& before, const ProcessHoldings& now) {
  std::vector<std::string> parts;
  if (before.descriptors != now.descriptors) {
    parts.push_back(signed_number(before.descriptors, now.descriptors) + " file descriptors");
  }
  if (before.threads != now.threads) parts.push_back(signed_number(before.threads, now.threads) + " threads");
  const auto more = without(now.udp_ports, before.udp_ports);
  const auto less = without(before.udp_ports, now.udp_ports);
  if (!more.empty()) parts.push_back("UDP ports still open: " + port_list(more));
  if (!less.empty()) parts.push_back("UDP ports gone: " + port_list(less));
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : ", ") + part;
  return text;
}

}  // namespace test_support
