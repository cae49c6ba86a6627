/// The driver for media servers that live in this process.
#pragma once

#include "kelvaro/jsr309/driver.h"

#include <memory>

namespace kelvaro::jsr309 {

std::unique_ptr<MediaServerDriver> MakeEmbeddedDriver();

}  // namespace kelvaro::jsr309
