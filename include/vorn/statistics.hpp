// Running mean and spread of a series of values.
#pragma once

#include <cmath>

namespace vorn {

// Mean and sample standard deviation (n - 1; 0 below two values) updated
// value by value (Welford), free of the cancellation of sums of squares when
// the spread is tiny against the mean. The result depends on the order of
// the values only through rounding; the same order gives the same bits.
class RunningSpread {
 public:
  void add(double x) {
    ++n_;
    const double delta = x - mean_;
    mean_ += delta / n_;
    m2_ += delta * (x - mean_);
  }
  int count() const { return n_; }
  double mean() const { return mean_; }
  double sd() const { return n_ < 2 ? 0.0 : std::sqrt(m2_ / (n_ - 1)); }

 private:
  int n_ = 0;
  double mean_ = 0.0;
  double m2_ = 0.0;
};

}  // namespace vorn
