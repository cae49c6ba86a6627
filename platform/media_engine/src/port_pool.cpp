#include "port_pool.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace media_engine {

PortPair::PortPair(std::shared_ptr<PortPool> pool, std::size_t index, UdpSocket rtp, UdpSocket rtcp,
                   SocketAddress address)
    : rtp_(std::move(rtp)), rtcp_(std::move(rtcp)), address_(address), pool_(std::move(pool)), index_(index) {}

PortPair::~PortPair() {
  // Closed before the pool may hand the ports out again.
  express_.Close();
  rtp_.Close();
  rtcp_.Close();
  pool_->Release(index_, used_);
}

namespace {

/// Whether the process has so many files open that this one is beyond that share of what it may have. The system gives
/// out the lowest number that is free, so a new file's number tells how many there are.
bool IsBeyond(int fd, unsigned sixteenths) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return false;
  return static_cast<rlim_t>(fd) >= limit.rlim_cur / 16 * sixteenths;
}

// Sockets without which a call goes on are opened up to the first, and given up from the second on.
constexpr unsigned kRoomForExpress = 14, kFewLeft = 15;

uint16_t EvenFrom(uint16_t port) {
  return port % 2 == 0 ? port : static_cast<uint16_t>(port + 1);
}

std::size_t PairsIn(uint16_t first, uint16_t last) {
  const uint32_t even = static_cast<uint32_t>(first) + first % 2;
  return last > even ? (last - even + 1u) / 2u : 0u;
}

}  // namespace

void PortPair::CloseExpress() {
  if (!express_.is_open()) return;
  express_.Close();
  pool_->room_for_express_.store(true, std::memory_order_relaxed);
}

bool PortPair::OpenExpress(const SocketAddress& peer) {
  if (pool_->FewDescriptorsLeft() || !pool_->RoomForExpress()) return false;
  if (express_.ConnectBeside(rtp_, address_, peer) != 0) return false;
  if (IsBeyond(express_.fd(), kRoomForExpress)) {
    pool_->room_for_express_.store(false, std::memory_order_relaxed);
    express_.Close();
  }
  express_peer_ = peer;
  return express_.is_open();
}

PortPool::PortPool(SocketAddress address, uint16_t first, uint16_t last, milliseconds quarantine,
                   std::shared_ptr<const Clock> clock)
    : address_(address),
      first_(EvenFrom(first)),
      last_(last),
      size_(PairsIn(first, last)),
      quarantine_(clock ? quarantine : milliseconds{0}),
      clock_(std::move(clock)),
      taken_(size_) {}

void PortPool::CountDescriptors(int open_descriptor) {
  const int lowest = fcntl(open_descriptor, F_DUPFD_CLOEXEC, 0);
  few_descriptors_left_.store(lowest < 0 || IsBeyond(lowest, kFewLeft), std::memory_order_relaxed);
  if (lowest >= 0) close(lowest);
}

std::unique_ptr<PortPair> PortPool::Acquire(std::string& reason) {
  std::size_t taken_by_others = 0;
  // Every pair at most once: what others hold stays marked until the search is over, so that it ends.
  std::vector<std::size_t> passed_over;
  std::unique_ptr<PortPair> pair;
  std::size_t index = 0;
  while (!pair && Reserve(index)) {
    UdpSocket rtp, rtcp;
    const Attempt attempt = BindPair(index, rtp, rtcp, reason);
    if (attempt != Attempt::kTaken) {
      const bool few = attempt == Attempt::kFailed || IsBeyond(rtcp.fd(), kFewLeft);
      few_descriptors_left_.store(few, std::memory_order_relaxed);
    }
    if (attempt == Attempt::kBound) {
      pair = std::make_unique<PortPair>(shared_from_this(), index, std::move(rtp), std::move(rtcp),
                                        address_.WithPort(PortOf(index)));
      break;
    }
    passed_over.push_back(index);
    if (attempt == Attempt::kFailed) break;
    ++taken_by_others;
  }
  for (std::size_t passed : passed_over) Release(passed, false);
  if (!pair && reason.empty()) reason = ExhaustedText(taken_by_others);
  return pair;
}

std::string PortPool::ExhaustedText(std::size_t taken_by_others) const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::string text = "no free RTP port pair in " + RangeText() + ": of " + std::to_string(size_) + " pairs " +
                     std::to_string(in_use_) + " serve calls and " + std::to_string(taken_by_others) +
                     " are held by other programs";
  if (resting_.empty()) return text;
  return text + ", " + std::to_string(resting_.size()) + " rest for " + std::to_string(quarantine_.count()) +
         " ms after their call";
}

std::size_t PortPool::in_use() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return in_use_;
}

bool PortPool::Reserve(std::size_t& index) {
  std::lock_guard<std::mutex> lock(mutex_);
  WakeRested();
  if (in_use_ + resting_.size() == size_) return false;
  while (taken_[next_]) next_ = (next_ + 1) % size_;
  index = next_;
  next_ = (next_ + 1) % size_;
  taken_[index] = true;
  ++in_use_;
  return true;
}

void PortPool::WakeRested() {
  if (resting_.empty()) return;
  const TimePoint now = clock_->Now();
  while (!resting_.empty() && resting_.front().until <= now) {
    taken_[resting_.front().index] = false;
    resting_.pop_front();
  }
}

void PortPool::Release(std::size_t index, bool rest) {
  room_for_express_.store(true, std::memory_order_relaxed);
  std::lock_guard<std::mutex> lock(mutex_);
  --in_use_;
  if (rest && quarantine_ > milliseconds{0}) {
    resting_.push_back({index, clock_->Now() + quarantine_});
  } else {
    taken_[index] = false;
  }
}

PortPool::Attempt PortPool::BindPair(std::size_t index, UdpSocket& rtp, UdpSocket& rtcp, std::string& reason) const {
  const SocketAddress rtp_address = address_.WithPort(PortOf(index));
  const SocketAddress rtcp_address = address_.WithPort(static_cast<uint16_t>(PortOf(index) + 1));
  const SocketAddress* address = &rtp_address;
  int error = rtp.Bind(*address);
  if (error == 0) {
    address = &rtcp_address;
    error = rtcp.Bind(*address);
  }
  if (error == 0) return Attempt::kBound;
  if (error == EADDRINUSE) return Attempt::kTaken;
  reason = "cannot bind " + address->Text() + ": " + std::strerror(error);
  return Attempt::kFailed;
}

std::string PortPool::RangeText() const {
  return std::to_string(first_) + "-" + std::to_string(last_) + " on " + address_.Host();
}

}  // namespace media_engine
