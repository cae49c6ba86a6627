/// The driver for rtpengine daemons, controlled over their "ng" protocol.
#pragma once

#include "kelvaro/jsr309/driver.h"

#include <memory>

namespace kelvaro::jsr309 {

std::unique_ptr<MediaServerDriver> MakeRtpengineDriver();

}  // namespace kelvaro::jsr309
