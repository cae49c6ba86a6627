#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kvx_cli {

/// How a line that is being typed can go on.
struct Completion {
  std::vector<std::string> candidates;
  size_t remove = 0;   ///< characters before the cursor that `insert` stands for
  std::string insert;  ///< empty: nothing certain to add
};

/// Reads what the command "console_complete" writes: a candidate per line, and, when they agree on more than was
/// typed, a line "write=<characters to remove>:<text to add>".
Completion parse_completion(const std::string& output);

}  // namespace kvx_cli
