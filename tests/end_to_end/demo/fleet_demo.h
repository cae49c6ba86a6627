#pragma once

namespace kvx_demo {

/// The demo over two rtpengine daemons: the calls of the other one, and what becomes of a hundred when one of the
/// daemons is killed. The exit code.
int RunFleetDemo();

}  // namespace kvx_demo
