#include "support/rtp_fax.h"

#include <algorithm>
#include <random>
#include <thread>
#include <vector>

namespace test_support {
namespace {

using Clock = std::chrono::steady_clock;
using Datagram = std::vector<std::uint8_t>;
using std::chrono::milliseconds;

class FaxDirection {
 public:
  FaxDirection(UdpSocket& from, const UdpAddress& to, UdpSocket& at) : from_(from), to_(to), at_(at) {}

  void Send(std::mt19937& random, std::size_t length) {
    Datagram datagram(length);
    for (std::uint8_t& octet : datagram) octet = static_cast<std::uint8_t>(random());
    from_.SendTo(to_, datagram);
    under_way_.push_back(std::move(datagram));
    ++result_.sent;
  }

  void Listen() {
    while (auto heard = at_.Receive()) {
      const auto found = std::find(under_way_.begin(), under_way_.end(), heard->data);
      if (found == under_way_.end()) {
        ++result_.foreign;
      } else {
        under_way_.erase(found);
        ++result_.identical;
      }
    }
  }

  bool Complete() const { return under_way_.empty(); }
  const FaxResult& Result() const { return result_; }

 private:
  UdpSocket& from_;
  const UdpAddress to_;
  UdpSocket& at_;
  std::vector<Datagram> under_way_;
  FaxResult result_;
};

}  // namespace

std::string FaxResult::ToString() const {
  return std::to_string(sent) + " datagrams sent, " + std::to_string(identical) + " arrived as sent, " +
         std::to_string(foreign) + " others";
}

FaxResults exchange_fax(RtpPhone& caller, const UdpAddress& caller_to, RtpPhone& callee, const UdpAddress& callee_to,
                        std::size_t count, std::size_t longest, milliseconds patience) {
  std::mt19937 random{std::random_device{}()};
  FaxDirection to_callee(caller.Rtp(), caller_to, callee.Rtp());
  FaxDirection to_caller(callee.Rtp(), callee_to, caller.Rtp());
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t length = 1 + i * (longest - 1) / std::max<std::size_t>(count - 1, 1);
    to_callee.Send(random, length);
    to_caller.Send(random, length);
    std::this_thread::sleep_for(milliseconds(5));
    to_callee.Listen();
    to_caller.Listen();
  }
  const auto deadline = Clock::now() + patience;
  while (Clock::now() < deadline && !(to_callee.Complete() && to_caller.Complete())) {
    std::this_thread::sleep_for(milliseconds(5));
    to_callee.Listen();
    to_caller.Listen();
  }
  return {to_callee.Result(), to_caller.Result()};
}

}  // namespace test_support
