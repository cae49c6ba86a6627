#include "support/sipp_agent.h"

#include <signal.h>

#include <fstream>
#include <stdexcept>

#include "build_paths.h"
#include "support/free_ports.h"
#include "support/process_inspection.h"

namespace test_support {
namespace {

constexpr int kStartAttempts = 5;
constexpr std::chrono::milliseconds kStartLimit{10000};

std::filesystem::path scenario_file(const std::string& scenario) {
  return std::filesystem::path(KVX_SOURCE_DIR) / "tests" / "end_to_end" / "sipp" / (scenario + ".xml");
}

void write_fields(const std::filesystem::path& file, const std::vector<SippCallFields>& calls) {
  std::ofstream out(file);
  out << "SEQUENTIAL\n";
  for (const SippCallFields& call : calls) {
    out << call.number << ';' << call.media_port << ';' << call.payload_type << ';' << call.codec << ';'
        << call.event_payload_type << ';' << call.attribute << ';' << call.transport << ';' << call.other_call << ';'
        << call.other_to_tag << ';' << call.other_from_tag << ';' << call.header << '\n';
  }
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
}

}  // namespace

SippAgent::SippAgent(const SippSettings& settings) : settings_(settings) {
  if (settings_.calls.empty()) throw std::runtime_error(settings_.name + ": a phone needs at least one call");
  write_fields(File(".csv"), settings_.calls);
  for (int attempt = 1;; ++attempt) {
    Start();
    wait_until(kStartLimit, [this] { return PortIsBound() || !child_->Running(); });
    // A caller may be through with its call before anyone has looked at its port.
    if (PortIsBound() || child_->WaitForExit(std::chrono::milliseconds(0)).value_or(ChildExit{}).Succeeded()) return;
    if (!Dialogues().empty()) return;
    if (attempt == kStartAttempts) throw std::runtime_error("sipp does not start\n" + Account());
  }
}

std::filesystem::path SippAgent::File(const std::string& suffix) const {
  return settings_.directory / (settings_.name + suffix);
}

std::vector<std::string> SippAgent::CommandLine() const {
  const std::string calls = std::to_string(settings_.calls.size());
  std::vector<std::string> command = {"sipp"};
  if (settings_.remote) command.push_back(settings_.remote->ToString());
  const std::string own = settings_.network.ipv6 ? "[::1]" : "127.0.0.1";
  const std::vector<std::string> options = {"-t",
                                            settings_.network.tcp ? "t1" : "u1",
                                            "-sf",
                                            scenario_file(settings_.scenario).string(),
                                            "-inf",
                                            File(".csv").string(),
                                            "-s",
                                            settings_.dialled,
                                            "-i",
                                            own,
                                            "-p",
                                            std::to_string(port_),
                                            "-bind_local",
                                            "-mi",
                                            settings_.network.Loopback(),
                                            "-ci",
                                            "127.0.0.1",
                                            "-m",
                                            calls,
                                            "-l",
                                            settings_.at_once != 0 ? std::to_string(settings_.at_once) : calls,
                                            "-r",
                                            std::to_string(settings_.calls_per_second),
                                            "-d",
                                            std::to_string(settings_.hold.count()),
                                            "-nostdin",
                                            "-skip_rlimit",
                                            "-timeout",
                                            std::to_string(settings_.limit.count()) + "s",
                                            "-timeout_error",
                                            "-trace_msg",
                                            "-message_file",
                                            File("_messages.log").string(),
                                            "-trace_err",
                                            "-error_file",
                                            File("_errors.log").string()};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

void SippAgent::Start() {
  port_ = settings_.port != 0 ? settings_.port : free_udp_port();
  ChildSettings child;
  child.command = CommandLine();
  child.output = File("_output.log");
  child.directory = settings_.directory;
  // Without a known terminal sipp's screen is a stop, not an inconvenience.
  child.environment = {"TERM=dumb"};
  child_ = std::make_unique<ChildProcess>(child);
}

bool SippAgent::PortIsBound() {
  try {
    if (!child_->Running()) return false;
    if (settings_.network.tcp) return tcp_port_is_bound(child_->Pid(), port_);
    return inspect_process(child_->Pid()).udp_ports.count(port_) == 1;
  } catch (const std::runtime_error&) {  // ended between the two looks
    return false;
  }
}

std::vector<SipDialogue> SippAgent::Dialogues() const {
  return group_dialogues(parse_sipp_messages(read_text_file(File("_messages.log"))));
}

std::optional<SipDialogue> SippAgent::Dialogue(const std::string& from_user) const {
  for (const SipDialogue& dialogue : Dialogues()) {
    if (dialogue.FromUser() == from_user) return dialogue;
  }
  return std::nullopt;
}

void SippAgent::Order(const std::string& call_id, const SippOrder& order, int cseq) {
  UdpSocket socket;
  const std::string via = UdpAddress{"127.0.0.1", socket.Port()}.ToString();
  const std::string text =
      "DO-" + order.what + " sip:phone@" + Address().ToString() + " SIP/2.0\r\nVia: SIP/2.0/UDP " + via +
      ";branch=z9hG4bK-order-" + std::to_string(cseq) +
      "\r\nFrom: <sip:test@127.0.0.1>;tag=order\r\nTo: <sip:phone@127.0.0.1>\r\nCall-ID: " + call_id +
      "\r\nCSeq: " + std::to_string(cseq) + " DO-" + order.what + "\r\nX-Address: " + order.media.address +
      "\r\nX-Port: " + std::to_string(order.media.port) + "\r\nX-Direction: " + order.direction +
      "\r\nX-Header: " + order.header + "\r\nContent-Length: 0\r\n\r\n";
  socket.SendTo(Address(), {text.begin(), text.end()});
}

std::optional<ChildExit> SippAgent::WaitForExit(std::chrono::milliseconds limit) {
  return child_->WaitForExit(limit);
}

void SippAgent::AskToFinish() {
  child_->Signal(SIGUSR1);
}

std::string SippAgent::Account() {
  const auto exit = child_->WaitForExit(std::chrono::milliseconds(0));
  std::string text = "  " + settings_.name + " (sipp " + settings_.scenario + ", port " + std::to_string(port_) +
                     "): " + (exit ? exit->ToString() : "still running") + "\n";
  for (const SipDialogue& dialogue : Dialogues()) text += "    " + dialogue.CallId() + ": " + dialogue.Flow() + "\n";
  const std::string errors = read_text_file(File("_errors.log"));
  if (!errors.empty()) text += "   its error file ends:\n" + last_lines(errors, 30);
  if (exit && !exit->Succeeded()) text += "   its output ends:\n" + last_lines(child_->Output(), 8);
  return text;
}

}  // namespace test_support
