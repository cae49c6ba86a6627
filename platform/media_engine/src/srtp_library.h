/// The one instance of libsrtp2 that the process has.
#pragma once

#include <string>

namespace media_engine {

/// Starts the library when it is first asked for, unless a host that uses it too has done so; who started it stops it,
/// here at the end of the process or of the shared object that this is linked into. False, with why, when the library
/// fails its own tests: there is no SRTP then. Threads: from any.
bool SrtpLibraryReady(std::string& reason);

}  // namespace media_engine
