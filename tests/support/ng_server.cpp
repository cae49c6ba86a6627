#include "support/ng_server.h"

#include <poll.h>

#include <utility>

#include "support/process_child.h"

namespace test_support {

using namespace kelvaro::jsr309::rtpengine;

NgServer::NgServer(Script script, std::uint16_t port, bool ipv6)
    : script_(std::move(script)), socket_(port, ipv6), thread_([this] { Run(); }) {}

NgServer::~NgServer() {
  stopping_ = true;
  thread_.join();
}

std::vector<NgServer::Frame> NgServer::Requests() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

bool NgServer::Await(std::size_t requests, std::chrono::milliseconds limit) const {
  return wait_until(limit, [&] { return Requests().size() >= requests; });
}

void NgServer::Send(const std::string& datagram) {
  const std::lock_guard<std::mutex> lock(mutex_);
  socket_.SendTo(asker_, {datagram.begin(), datagram.end()});
}

NgServer::Answers NgServer::Reply(const Frame& request, const Dictionary& message) {
  return {FrameNg(request.cookie, message)};
}

void NgServer::Run() {
  while (!stopping_) {
    pollfd waiting{socket_.Descriptor(), POLLIN, 0};
    if (poll(&waiting, 1, 5) <= 0) continue;
    std::optional<UdpDatagram> datagram;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      datagram = socket_.Receive();
    }
    if (datagram) Take(*datagram);
  }
}

void NgServer::Take(const UdpDatagram& datagram) {
  std::string error;
  const std::optional<Frame> request =
      ParseNg({reinterpret_cast<const char*>(datagram.data.data()), datagram.data.size()}, error);
  if (!request) return;
  int number = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    asker_ = datagram.from;
    requests_.push_back(*request);
    number = static_cast<int>(requests_.size());
  }
  for (const std::string& answer : script_(*request, number)) Send(answer);
}

}  // namespace test_support
