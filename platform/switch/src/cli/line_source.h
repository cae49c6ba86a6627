#pragma once

#include <functional>
#include <memory>
#include <string>

#include "completion.h"

namespace kvx_cli {

/// Lines one after another, from a person or a pipe, while something else may have to be shown in between.
class LineSource {
 public:
  virtual ~LineSource() = default;
  /// False at the end of input.
  virtual bool Next(std::string& line) = 0;
  /// Shows whole lines without spoiling the one that is being typed.
  virtual void Show(const std::string& text) = 0;
};

/// What goes on beside the typing: a descriptor to look at (negative: none) and what to do when it can be read.
struct Background {
  std::function<int()> descriptor;
  std::function<void()> serve;
};

using Completer = std::function<Completion(const std::string& line)>;

/// Standard input as it comes, without prompt and editing.
std::unique_ptr<LineSource> make_piped_lines(Background background);
/// A prompt with line editing, completion by Tab and a history that is kept for the user.
std::unique_ptr<LineSource> make_edited_lines(const std::string& prompt, Completer complete, Background background);

}  // namespace kvx_cli
