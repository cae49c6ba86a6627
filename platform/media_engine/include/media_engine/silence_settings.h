/// What one side of an endpoint says about the packets that stand for silence.
///
/// Far ends that do not send during silence describe the background noise from time to time: in packets of a payload
/// type of their own (RFC 3389, comfort noise), or in short frames of the codec (silence insertion descriptors, SID).
/// Not every far end takes them, and one that does not hears clicks.
#pragma once

#include <optional>

namespace media_engine {

/// A field that is not set leaves what the endpoint has.
struct SilenceSettings {
  /// True: no comfort noise comes through from or to this far end, whichever side says so. False: comfort noise is in
  /// use, under the static payload type 13 when no codec "CN" is described. Not set: with a codec "CN" only.
  std::optional<bool> suppress_comfort_noise;
  std::optional<bool> g729_annex_b;  ///< false, on whichever side: the far end gets no SID frames of G.729; true
  std::optional<bool> g723_annex_a;  ///< the same for G.723.1
};

}  // namespace media_engine
