/// The relays that are compared, behind one face: started for a set of far ends, and then left alone.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "../support/program.h"
#include "settings.h"

namespace bench {

/// The load's side of the calls; two neighbours are one call.
struct FarSide {
  std::vector<uint16_t> ports;
  uint16_t rtcp_port = 0;
  std::vector<std::string> keys;  ///< "SUITE:KEY" for each; empty: in the clear
};

enum class RelayKind {
  kFloor,
  kEngine,        ///< as it is by default
  kEngineAtOnce,  ///< without coalescing
  kRtpengine
};

class Relay {
 public:
  virtual ~Relay() = default;
  virtual std::string name() const = 0;
  /// Sets up the calls; where the relay receives from each far end.
  virtual std::vector<uint16_t> OpenCalls(const FarSide& far_side) = 0;
  virtual Program& program() = 0;
};

/// Started on the core of what is measured, without calls.
std::unique_ptr<Relay> StartRelay(RelayKind kind, const Settings& settings);
std::string NameOf(RelayKind kind);

/// rtpengine as all comparisons run it: userspace only, on loopback, without logging of single calls.
constexpr uint16_t kNgPort = 22222;
std::vector<std::string> RtpengineCommand(const Settings& settings);
void AwaitRtpengine();

}  // namespace bench
