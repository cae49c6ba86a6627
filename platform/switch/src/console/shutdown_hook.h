#pragma once

namespace kvx_switch {

/// Calls what SetShutdownHook left; false when nothing was. Any thread.
bool CallShutdownHook();

}  // namespace kvx_switch
