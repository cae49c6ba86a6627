/// What a run of the measurements leaves: the table, the same as JSON, and as a plot.
#pragma once

#include <string>
#include <vector>

#include "figures.h"

namespace bench {

/// Where, when and of what the figures are.
struct RunText {
  std::string date;
  std::string machine;
  std::string commit;
  std::string mode;  ///< "full" or "quick"
};

std::string TableOf(const std::vector<Comparison>& comparisons);
std::string JsonOf(const RunText& run, const std::vector<Comparison>& comparisons);
/// SVG: a bar a comparison, from 0 to the ratio, with a mark where the target is; logarithmic.
std::string PlotOf(const RunText& run, const std::vector<Comparison>& comparisons);

}  // namespace bench
