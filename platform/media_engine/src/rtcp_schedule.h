/// When an endpoint reports (RFC 3550, sections 6.2, 6.3 and A.7).
///
/// Reports share a twentieth of what the media uses, but come no more often than every five seconds or so. Every
/// interval is drawn at random, half to one and a half times what was computed: endpoints that began together would
/// report together for ever. When the time has come the interval is drawn once more with what is known by then, and the
/// report is put off if that says so (6.3.6).
///
/// Threads: none of its own; used by the thread that owns the endpoint.
#pragma once

#include <cstddef>
#include <cstdint>

#include "media_engine/clock.h"
#include "media_engine/description.h"

namespace media_engine {

/// Yields 32 random bits.
using RandomSource = uint32_t (*)();

/// Who takes part, as far as is known. We are one of the members.
struct RtcpLoad {
  unsigned members = 1;
  unsigned senders = 0;
  bool we_sent = false;
  double bandwidth = 0;  // for all RTCP of the session, in octets per second
};

constexpr std::size_t kIpv4AndUdpHeaders = 20 + 8;
constexpr std::size_t kIpv6AndUdpHeaders = 40 + 8;

/// A twentieth of what a stream of the codec takes with its headers. Octets per second; never 0.
double RtcpBandwidth(const Codec* codec, std::size_t ip_and_udp_headers);

/// The interval before it is randomised. average_size in octets, headers included. Seconds.
double RtcpInterval(const RtcpLoad& load, double average_size, bool initial);

class RtcpSchedule {
 public:
  explicit RtcpSchedule(RandomSource random) : random_(random) {}

  bool started() const { return started_; }
  /// When it expires, once it is started.
  TimePoint next() const { return next_; }
  /// Whether Expire has anything to decide.
  bool HasExpired(TimePoint now) const { return started_ && now >= next_; }
  /// first_size: about how long our first packet will be.
  void Start(const RtcpLoad& load, std::size_t first_size, TimePoint now);
  /// Whether a report goes now. False: not yet, or put off.
  bool Expire(const RtcpLoad& load, TimePoint now);
  /// One has gone, or would have if anything could be sent; size 0 then.
  void Reported(const RtcpLoad& load, std::size_t size, TimePoint now);
  void Received(std::size_t size) { Average(size); }
  /// The far end has left, which leaves ourselves: what is due comes earlier (6.3.4).
  void FarEndLeft(TimePoint now);

 private:
  void Average(std::size_t size) { average_size_ += (static_cast<double>(size) - average_size_) / 16; }
  TimePoint::duration Draw(const RtcpLoad& load) const;

  RandomSource random_;
  TimePoint last_{}, next_{};
  double average_size_ = 0;
  unsigned members_ = 1;  // when next_ was computed
  bool started_ = false;
  bool initial_ = true;  // nothing sent yet
};

}  // namespace media_engine
