/// What a record may ask for and rtpengine cannot do, told by name.
#pragma once

#include "kelvaro/jsr309/media_config.h"
#include "rtpengine/rtpengine_context.h"

namespace kelvaro::jsr309::rtpengine {

enum class Side { kLocal, kRemote };

/// Of what the configuration says of every media server, what the daemon's own options decide.
void NameIgnoredElements(RtpengineContext& context);
void NameUnsupportedSettings(const MediaConfig& config, Side side, RtpengineContext& context);

}  // namespace kelvaro::jsr309::rtpengine
