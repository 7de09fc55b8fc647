#include "Statistics.h"

#include <algorithm>
#include <cmath>

namespace zeltool {

double Statistics::Quantile(double fraction) const {
  std::vector<double> sorted = values_;
  std::sort(sorted.begin(), sorted.end());
  const auto rank = static_cast<size_t>(std::ceil(fraction * static_cast<double>(sorted.size())));
  return sorted[std::max<size_t>(rank, 1) - 1];
}

}  // namespace zeltool
