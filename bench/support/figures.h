/// Several rounds' values of one figure, and what two of them say of each other.
#pragma once

#include <string>
#include <vector>

namespace bench {

/// Of an even count, the mean of the two in the middle; 0 of none.
double Median(std::vector<double> values);
/// Largest less smallest, as a share of the median; 0 of none.
double Spread(const std::vector<double>& values);

/// One line of the table at the end: ours beside a reference, the ratio of the medians, and what it should be.
struct Comparison {
  std::string id;         ///< short, for files
  std::string what;       ///< "forwarding rate, 1,000 legs"
  std::string unit;       ///< of both sides' values
  std::string ours_name;  ///< who the sides are
  std::string reference_name;
  std::vector<double> ours, reference;
  double target = 0;
  bool at_most = false;   ///< the ratio shall be the target at most; else at least
  bool absolute = false;  ///< no reference: the target is for our median itself
  std::string note;       ///< what limits it, who was the limit, what was not measured
  std::string failure;    ///< why it did not run; empty when it did

  bool ran() const { return failure.empty() && !ours.empty() && (absolute || !reference.empty()); }
  double ratio() const;
  bool reached() const;
};

}  // namespace bench
