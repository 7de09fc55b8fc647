// Times of a series of requests.
#pragma once

#include <cstddef>
#include <vector>

namespace zeltool {

class Statistics {
 public:
  void Add(double value) { values_.push_back(value); }
  size_t Count() const { return values_.size(); }
  // The smallest value that at least `fraction` (0 to 1) of all values do not exceed: 0 gives the minimum, 1
  // the maximum. There must be a value.
  double Quantile(double fraction) const;

 private:
  std::vector<double> values_;
};

}  // namespace zeltool
