/// Things that can be joined, so that the media of the one reaches the other.
#pragma once

#include <boost/weak_ptr.hpp>

#include <cstdint>

namespace kelvaro::jsr309 {

/// Which way media flows in a join, seen from the network side of the connection on which Join is called.
enum Direction : int32_t {
  kDuplex = 0,        ///< both ways
  kReceive = 1,       ///< what this connection's far end sends reaches the other; nothing comes back
  kSend = 2,          ///< what the other's far end sends goes out here; nothing goes the other way
  kAudioNoVideo = 3,  ///< audio both ways, no video
  kVideoNoAudio = 4,  ///< joined, video both ways, no audio
  kDisable = 5,       ///< joined, no media
};

class Joinable;
using JoinableWeakPtr = boost::weak_ptr<Joinable>;

class Joinable {
 public:
  virtual ~Joinable() = default;
  /// Joins with another of the same media session. A pair that is already joined changes its direction; a former join
  /// of either with a third is dissolved. False when either is closed or lost, when they are the same endpoint or not
  /// in one session, when their codecs cannot be carried into each other, or when the server does not answer in time;
  /// a pair that could not be joined is left unjoined. The weak pointer is locked during the call only.
  virtual bool Join(Direction direction, const JoinableWeakPtr& other) = 0;
  /// Dissolves the join with the other. False when the two are not joined.
  virtual bool Unjoin(const JoinableWeakPtr& other) = 0;
};

}  // namespace kelvaro::jsr309
