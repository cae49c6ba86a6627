/// The driver for media servers that live in this process.
#pragma once

#include "kelvaro/jsr309/driver.h"
#include "media_engine/clock.h"

#include <memory>

namespace kelvaro::jsr309 {

/// A clock of the caller's for what its servers measure (silences, the rest of ports, the time of packets); null: the
/// system's monotonic one.
std::unique_ptr<MediaServerDriver> MakeEmbeddedDriver(std::shared_ptr<const media_engine::Clock> clock = nullptr);

}  // namespace kelvaro::jsr309
