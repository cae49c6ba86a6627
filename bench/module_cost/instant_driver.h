/// Media servers that answer at once: what is measured with them is everything else.
#pragma once

#include <string>

namespace bench {

/// Registers the driver under the name "instant". Servers of it accept everything and give every endpoint the same
/// ports; nothing is bound or sent.
void RegisterInstantDriver();

/// The control library's configuration with one such server, of that capacity.
std::string InstantConfiguration(std::size_t capacity);

}  // namespace bench
