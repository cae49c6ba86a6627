#include "support/switch_process.h"

#include "build_paths.h"

#include <signal.h>

#include <sstream>
#include <stdexcept>

#include "cli/event_socket_client.h"

namespace test_support {
namespace {

constexpr std::size_t kShownLogLines = 40;
constexpr std::chrono::milliseconds kSettled{200};

void set_default(std::vector<std::pair<std::string, std::string>>& variables, const std::string& name) {
  for (const auto& [set, value] : variables) {
    if (set == name) return;
  }
  variables.emplace_back(name, "0");
}

// The line "name=address:port" of the ready file.
UdpAddress listed_address(const std::string& text, const std::string& name) {
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind(name + "=", 0) != 0) continue;
    if (auto address = parse_udp_address(line.substr(name.size() + 1))) return *address;
  }
  throw std::runtime_error("the switch's ready file names no address for " + name + ":\n" + text);
}

}  // namespace

std::filesystem::path built_program(const std::string& name) {
  return std::filesystem::path(KVX_BUILD_DIR) / "bin" / name;
}

SwitchProcess::SwitchProcess(const SwitchProcessSettings& settings)
    : ready_file_(settings.directory / "switch.ready"), password_("kelvaro") {
  std::filesystem::remove(ready_file_);
  auto variables = settings.variables;
  set_default(variables, "sip_port");
  set_default(variables, "event_socket_port");
  ChildSettings child;
  child.command = {built_program("kvx-switch").string(),
                   "--conf",
                   settings.conf.string(),
                   "--mod",
                   settings.mod.string(),
                   "--log-level",
                   settings.log_level,
                   "--ready-file",
                   ready_file_.string()};
  for (const auto& [name, value] : variables) {
    child.command.insert(child.command.end(), {"--set", name + "=" + value});
    if (name == "event_socket_password") password_ = value;
  }
  child.output = settings.directory / "switch.log";
  child_ = std::make_unique<ChildProcess>(child);
}

void SwitchProcess::WaitReady(std::chrono::milliseconds limit) {
  const bool told = wait_until(limit, [this] { return std::filesystem::exists(ready_file_) || !child_->Running(); });
  if (!told) Fail("the switch is not ready after " + std::to_string(limit.count()) + " ms");
  if (!std::filesystem::exists(ready_file_)) Fail("the switch ended before it was ready");
  const std::string text = read_text_file(ready_file_);
  sip_ = listed_address(text, "sip");
  event_socket_ = listed_address(text, "event_socket");
}

std::string SwitchProcess::Api(const std::string& line, std::chrono::milliseconds limit) {
  kvx_cli::EventSocketClient client;
  std::string output;
  auto outcome = client.Connect(event_socket_.address, event_socket_.port, password_, limit);
  if (outcome == kvx_cli::Outcome::kDone) outcome = client.Api(line, limit, output);
  if (outcome != kvx_cli::Outcome::kDone) Fail("no answer to \"" + line + "\": " + client.error());
  return output;
}

ProcessHoldings SwitchProcess::SettledHoldings(std::chrono::milliseconds limit) {
  // By the clock, not by looks: where the machine has thousands of sockets, each look takes its time.
  ProcessHoldings last = inspect_process(Pid());
  auto since = std::chrono::steady_clock::now();
  const bool settled = wait_until(limit, [&] {
    const ProcessHoldings now = inspect_process(Pid());
    if (now != last) since = std::chrono::steady_clock::now();
    last = now;
    return std::chrono::steady_clock::now() - since >= kSettled;
  });
  if (!settled) Fail("what the switch holds keeps changing: " + last.ToString());
  return last;
}

std::string SwitchProcess::DifferenceFrom(const ProcessHoldings& before, std::chrono::milliseconds limit) {
  ProcessHoldings now;
  wait_until(limit, [&] {
    now = inspect_process(Pid());
    return now == before;
  });
  return describe_difference(before, now);
}

bool SwitchProcess::WaitForLog(const std::string& text, std::chrono::milliseconds limit) {
  return wait_until(limit, [&] { return Log().find(text) != std::string::npos; });
}

void SwitchProcess::Interrupt() {
  child_->Signal(SIGINT);
}

void SwitchProcess::Stop(std::chrono::milliseconds limit) {
  if (!child_->Running()) Fail("the switch had ended before it was stopped");
  Interrupt();
  const auto exit = child_->WaitForExit(limit);
  if (!exit) Fail("the switch still runs " + std::to_string(limit.count()) + " ms after SIGINT");
  if (!exit->Succeeded()) Fail("the switch did not end cleanly");
}

void SwitchProcess::Fail(const std::string& what) {
  const auto exit = child_->WaitForExit(std::chrono::milliseconds(0));
  throw std::runtime_error(what + (exit ? " (" + exit->ToString() + ")" : "") + "; its log ends:\n" +
                           last_lines(Log(), kShownLogLines));
}

std::vector<std::string> error_lines(const std::string& log) {
  std::vector<std::string> found;
  std::istringstream in(log);
  bool any_level = false;
  for (std::string line; std::getline(in, line);) {
    any_level = any_level || line.find("[NOTICE]") != std::string::npos;
    for (const char* level : {"[ERR]", "[CRIT]", "[ALERT]"}) {
      if (line.find(level) != std::string::npos) found.push_back(line);
    }
  }
  // A log in another format must not pass for one without errors.
  if (!any_level) throw std::runtime_error("the log has no line at NOTICE: its levels cannot be read");
  return found;
}

}  // namespace test_support
