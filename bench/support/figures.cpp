#include "figures.h"

#include <algorithm>

namespace bench {

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double Spread(const std::vector<double>& values) {
  if (values.empty()) return 0;
  const auto [least, most] = std::minmax_element(values.begin(), values.end());
  const double median = Median(values);
  return median == 0 ? 0 : (*most - *least) / median;
}

double Comparison::ratio() const {
  if (absolute) return Median(ours);
  const double under = Median(reference);
  return under == 0 ? 0 : Median(ours) / under;
}

bool Comparison::reached() const {
  return ran() && (at_most ? ratio() <= target : ratio() >= target);
}

}  // namespace bench
