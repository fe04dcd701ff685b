// Running mean and spread of a series of values, and the standard error of
// the mean of a correlated series by block averaging.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

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

// One block size of a block analysis: `count` blocks of `block_size`
// consecutive values, the standard error of the mean their spread gives
// (sd of the block means / sqrt(count)) and that estimate's own standard
// error (se / sqrt(2 (count - 1))).
struct BlockLevel {
  long block_size = 1;
  long count = 0;
  double se = 0.0;
  double se_error = 0.0;
};

// The standard error of the mean of a serially correlated series (the
// models of a simulation's ensemble) by the blocking transformation of
// Flyvbjerg and Petersen (J. Chem. Phys. 91, 461 (1989)): the series is
// halved repeatedly into the means of pairs of neighbours; the naive
// standard error of each halved series grows with the block size until the
// blocks outlast the correlation, then stays. The transformation runs value
// by value: each level keeps the running mean and spread of its block means
// and the one block mean waiting for its neighbour, so memory is O(log n).
// Level 0 is the series itself; its mean and sd are those of RunningSpread
// for the same values, to the bit.
class BlockAverage {
 public:
  void add(double x) {
    double v = x;
    for (std::size_t k = 0;; ++k) {
      if (k == levels_.size()) levels_.emplace_back();
      Level& level = levels_[k];
      level.spread.add(v);
      if (!level.waiting) {
        level.pending = v;
        level.waiting = true;
        return;
      }
      v = 0.5 * (level.pending + v);
      level.waiting = false;
    }
  }

  long count() const { return levels_.empty() ? 0 : levels_[0].spread.count(); }
  double mean() const { return levels_.empty() ? 0.0 : levels_[0].spread.mean(); }
  double sd() const { return levels_.empty() ? 0.0 : levels_[0].spread.sd(); }

  // The levels worth reading: the series itself (from two values on) and
  // every blocking with at least four blocks (block sizes up to n / 4).
  std::vector<BlockLevel> levels() const {
    std::vector<BlockLevel> out;
    for (std::size_t k = 0; k < levels_.size(); ++k) {
      const long m = levels_[k].spread.count();
      if (m < 2 || (k > 0 && m < 4)) break;
      BlockLevel level;
      level.block_size = 1L << k;
      level.count = m;
      level.se = levels_[k].spread.sd() / std::sqrt(static_cast<double>(m));
      level.se_error = level.se / std::sqrt(2.0 * static_cast<double>(m - 1));
      out.push_back(level);
    }
    return out;
  }

  // The index into levels() of the plateau: the first level whose successor
  // does not exceed it by more than its error bar. None (-1) while the
  // estimate still rises at the last level read (the blocks are not yet
  // longer than the correlation; the estimate is then a lower bound).
  int plateau() const {
    const std::vector<BlockLevel> all = levels();
    for (std::size_t k = 0; k + 1 < all.size(); ++k) {
      if (all[k + 1].se <= all[k].se + all[k].se_error) return static_cast<int>(k);
    }
    return -1;
  }

  // The standard error of the mean: the plateau's, else (no plateau) the
  // largest of the levels read; 0 below two values.
  double se() const {
    const std::vector<BlockLevel> all = levels();
    if (all.empty()) return 0.0;
    const int p = plateau();
    if (p >= 0) return all[static_cast<std::size_t>(p)].se;
    double largest = 0.0;
    for (const BlockLevel& level : all) largest = std::max(largest, level.se);
    return largest;
  }

  // The number of independent values worth as much as the series: var / se^2
  // (n for uncorrelated values); n when the series does not vary.
  double effective_samples() const {
    const double e = se();
    if (e <= 0.0) return static_cast<double>(count());
    const double s = sd();
    return s * s / (e * e);
  }

 private:
  struct Level {
    RunningSpread spread;
    double pending = 0.0;
    bool waiting = false;
  };
  std::vector<Level> levels_;
};

}  // namespace vorn
