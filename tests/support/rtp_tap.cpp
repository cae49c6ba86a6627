#include "support/rtp_tap.h"

#include <poll.h>

#include <utility>

#include "support/sipp_messages.h"

namespace test_support {
namespace {

void replace(std::string& text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  if (at != std::string::npos) text.replace(at, from.size(), to);
}

/// From there to the end of the line.
void replace_rest_of_line(std::string& text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  if (at != std::string::npos) text.replace(at, text.find("\r\n", at + from.size()) - at, to);
}

}  // namespace

RtpTap::RtpTap(UdpAddress switch_address) : switch_(std::move(switch_address)), thread_([this] { Run(); }) {}

RtpTap::~RtpTap() {
  stop_ = true;
  thread_.join();
}

void RtpTap::Run() {
  while (!stop_) {
    pollfd polled[] = {{sip_.Descriptor(), POLLIN, 0},
                       {towards_phone_.Rtp().Descriptor(), POLLIN, 0},
                       {towards_phone_.Rtcp().Descriptor(), POLLIN, 0},
                       {towards_switch_.Rtp().Descriptor(), POLLIN, 0},
                       {towards_switch_.Rtcp().Descriptor(), POLLIN, 0}};
    poll(polled, std::size(polled), 20);
    HandSipOn();
    const std::lock_guard<std::mutex> lock(mutex_);
    HandMediaOn(towards_phone_, towards_switch_, phone_, far_);
    HandMediaOn(towards_switch_, towards_phone_, far_, phone_);
  }
}

void RtpTap::HandSipOn() {
  while (auto datagram = sip_.Receive()) {
    std::string message(datagram->data.begin(), datagram->data.end());
    const bool from_switch = datagram->from.ToString() == switch_.ToString();
    if (!from_switch) phone_sip_ = datagram->from;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (from_switch) {
        Rewrite(message, far_, towards_phone_.Port());
      } else {
        Rewrite(message, phone_, towards_switch_.Port());
      }
    }
    sip_.SendTo(from_switch ? phone_sip_ : switch_, {message.begin(), message.end()});
  }
}

void RtpTap::Rewrite(std::string& message, Side& side, std::uint16_t port) {
  const std::size_t end = message.find("\r\n\r\n");
  std::string body = end == std::string::npos ? "" : message.substr(end + 4);
  const auto audio = parse_sdp_audio(body);
  if (!audio) return;
  side.media = {audio->address, audio->port};
  side.crypto = audio->crypto;
  replace(body, "m=audio " + std::to_string(audio->port) + " ", "m=audio " + std::to_string(port) + " ");
  replace(body, "c=IN IP4 " + audio->address, "c=IN IP4 127.0.0.1");
  replace_rest_of_line(body, "a=rtcp:", "a=rtcp:" + std::to_string(port + 1));
  message.resize(end + 4);
  replace_rest_of_line(message, "\r\nContent-Length: ", "\r\nContent-Length: " + std::to_string(body.size()));
  message += body;
}

void RtpTap::HandMediaOn(RtpPhone& in, RtpPhone& out, Side& from, const Side& to) {
  while (auto datagram = in.Rtp().Receive()) {
    if (to.media.port != 0) out.Rtp().SendTo(to.media, datagram->data);
    from.sent.push_back(std::move(datagram->data));
  }
  while (auto datagram = in.Rtcp().Receive()) {
    const auto port = static_cast<std::uint16_t>(to.media.port + 1);
    if (to.media.port != 0) out.Rtcp().SendTo({to.media.address, port}, datagram->data);
  }
}

std::vector<std::vector<std::uint8_t>> RtpTap::FromPhone() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return phone_.sent;
}

std::vector<std::vector<std::uint8_t>> RtpTap::ToPhone() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return far_.sent;
}

std::string RtpTap::PhoneCrypto() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return phone_.crypto;
}

std::string RtpTap::SwitchCrypto() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return far_.crypto;
}

}  // namespace test_support
