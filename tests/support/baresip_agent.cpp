#include "support/baresip_agent.h"

#include <arpa/inet.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/free_ports.h"
#include "support/rtp_tone.h"

namespace test_support {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kStartAttempts = 5;
constexpr seconds kStartLimit{20};
constexpr seconds kStopLimit{5};
constexpr seconds kToneLength{90};  // longer than any call

/// The two numbers behind `name` in the table that baresip prints when a call is over: transmitted and received.
std::pair<long, long> row(const std::string& table, const std::string& name) {
  const std::size_t at = table.find("\n" + name);
  if (at == std::string::npos) throw std::runtime_error("baresip's account has no line \"" + name + "\":\n" + table);
  std::istringstream in(table.substr(at + 1 + name.size()));
  std::pair<long, long> values{-1, -1};
  if (!(in >> values.first >> values.second)) throw std::runtime_error("baresip's account is unreadable:\n" + table);
  return values;
}

}  // namespace

BaresipAgent::BaresipAgent(const BaresipSettings& settings)
    : settings_(settings), home_(settings.directory / settings.name) {
  std::filesystem::create_directory(home_);
  write_tone(home_ / "says.wav", settings_.tone, kToneLength);
  for (int attempt = 1; !Start(); ++attempt) {
    if (attempt < kStartAttempts) continue;
    throw std::runtime_error("baresip does not start; it says:\n" + last_lines(Log(), 20));
  }
}

BaresipAgent::~BaresipAgent() {
  Stop();
  if (control_ >= 0) close(control_);
}

void BaresipAgent::WriteConfiguration() const {
  std::ofstream config(home_ / "config");
  config << "poll_method epoll\n"
         << "sip_listen 127.0.0.1:" << sip_port_ << "\n"
         << "net_interface 127.0.0.1\n"
         << "rtp_ports 33000-60000\n"
         << "rtp_stats yes\n"
         << "audio_source aufile," << (home_ / "says.wav").string() << "\n"
         << "audio_player aubridge,nobody\n"
         << "audio_alert aubridge,nobody\n"
         << "module_path /usr/lib/baresip/modules\n";
  for (const char* module : {"g711", "aufile", "aubridge", "sndfile", "srtp"}) config << "module " << module << ".so\n";
  config << "module_tmp uuid.so\nmodule_tmp account.so\n"
         << "module_app ctrl_tcp.so\nmodule_app menu.so\n"
         << "ctrl_tcp_listen 127.0.0.1:" << control_port_ << "\n"
         << "snd_path " << home_.string() << "\n";
  std::ofstream accounts(home_ / "accounts");
  accounts << "<sip:" << settings_.user << "@127.0.0.1:" << sip_port_ << ">;regint=0"
           << ";answermode=" << (settings_.answers ? "auto" : "manual") << ";audio_codecs=" << settings_.codecs
           << ";ptime=20";
  if (!settings_.media_encryption.empty()) accounts << ";mediaenc=" << settings_.media_encryption;
  accounts << "\n";
  std::ofstream contacts(home_ / "contacts");
  if (!config.flush() || !accounts.flush()) throw std::runtime_error("cannot write to " + home_.string());
}

bool BaresipAgent::Start() {
  sip_port_ = free_udp_port();
  control_port_ = OccupiedTcpPort().Port();
  WriteConfiguration();
  ChildSettings child;
  child.command = {"baresip", "-f", home_.string(), "-s", "-v"};
  child.output = home_ / "output.log";
  child.directory = home_;
  child_ = std::make_unique<ChildProcess>(child);
  wait_until(kStartLimit, [this] {
    return !child_->Running() || (Log().find("baresip is ready.") != std::string::npos && Connect());
  });
  return child_->Running() && control_ >= 0;
}

bool BaresipAgent::Connect() {
  if (control_ >= 0) return true;
  control_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(control_port_);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(control_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return true;
  close(control_);
  control_ = -1;
  return false;
}

void BaresipAgent::Dial(const UdpAddress& to, const std::string& number) {
  Command("dial", "sip:" + number + "@" + to.ToString());
}

// A netstring with a JSON object in it (baresip's module ctrl_tcp).
void BaresipAgent::Command(const std::string& command, const std::string& parameters) {
  const std::string text = R"({"command":")" + command + R"(","params":")" + parameters + R"("})";
  const std::string framed = std::to_string(text.size()) + ":" + text + ",";
  if (send(control_, framed.data(), framed.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(framed.size())) {
    throw std::runtime_error(settings_.name + " (baresip) takes no commands; it says:\n" + last_lines(Log(), 20));
  }
}

void BaresipAgent::Listen() {
  char bytes[4096];
  for (ssize_t count; (count = recv(control_, bytes, sizeof(bytes), MSG_DONTWAIT)) > 0;) {
    received_.append(bytes, static_cast<std::size_t>(count));
  }
  for (;;) {
    const std::size_t colon = received_.find(':');
    if (colon == std::string::npos) return;
    const std::size_t length = std::strtoul(received_.c_str(), nullptr, 10);
    if (received_.size() < colon + length + 2) return;
    const std::string text = received_.substr(colon + 1, length);
    received_.erase(0, colon + length + 2);
    constexpr char kType[] = R"("event":true,"type":")";
    const std::size_t type = text.find(kType);
    if (type == std::string::npos) continue;  // the answer to a command
    const std::size_t start = type + sizeof(kType) - 1;
    events_.push_back(text.substr(start, text.find('"', start) - start));
  }
}

bool BaresipAgent::WaitForEvent(const std::string& type, std::size_t count, milliseconds limit) {
  return wait_until(limit, [&] {
    Listen();
    return static_cast<std::size_t>(std::count(events_.begin(), events_.end(), type)) >= count;
  });
}

BaresipAgent::MediaAccount BaresipAgent::Media() const {
  const std::string log = Log();
  const std::size_t at = log.rfind("Transmit:     Receive:");
  if (at == std::string::npos) {
    throw std::runtime_error(settings_.name + " (baresip) gave no account of its media:\n" + last_lines(log, 30));
  }
  const std::string table = log.substr(at);
  const auto packets = row(table, "packets:");
  const auto errors = row(table, "errors:");
  MediaAccount account;
  account.sent = static_cast<std::size_t>(packets.first);
  account.received = static_cast<std::size_t>(packets.second);
  account.errors = static_cast<std::size_t>(errors.first + errors.second);
  if (table.find("\nlost:") == std::string::npos) return account;
  const auto lost = row(table, "lost:");
  account.lost = lost.first + lost.second;
  return account;
}

std::vector<std::int16_t> BaresipAgent::Heard() const {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(home_)) {
    const std::string name = entry.path().filename().string();
    // Named after the second in which the call began: "dump-2026-01-31-12-00-00-dec.wav".
    if (name.rfind("dump-", 0) == 0 && name.find("-dec.wav") != std::string::npos) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  std::vector<std::int16_t> heard;
  for (const auto& file : files) {
    const auto samples = read_recording(file);
    heard.insert(heard.end(), samples.begin(), samples.end());
  }
  return heard;
}

void BaresipAgent::Stop() {
  if (!child_ || !child_->Running()) return;
  child_->Signal(SIGTERM);
  if (!child_->WaitForExit(kStopLimit)) child_->Signal(SIGKILL);
}

}  // namespace test_support
