/// The driver for media servers that live in this process.
#pragma once

#include "kelvaro/jsr309/driver.h"
#include "media_engine/clock.h"

#include <memory>

namespace kelvaro::jsr309 {

/// A null clock is the system's monotonic one.
std::unique_ptr<MediaServerDriver> MakeEmbeddedDriver(std::shared_ptr<const media_engine::Clock> clock = nullptr);

}  // namespace kelvaro::jsr309
