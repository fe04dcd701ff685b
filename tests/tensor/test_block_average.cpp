// Block averaging against series whose standard error of the mean is known.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "vorn/statistics.hpp"

namespace {

using vorn::BlockAverage;
using vorn::RunningSpread;

// x_t = phi x_{t-1} + e_t, unit normal e_t, started in the stationary state:
// var x = 1 / (1 - phi^2); for long series the variance of the mean tends
// to var x (1 + phi) / (1 - phi) / n = 1 / ((1 - phi)^2 n).
std::vector<double> ar1(double phi, long n, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::normal_distribution<double> normal(0.0, 1.0);
  std::vector<double> x(static_cast<std::size_t>(n));
  double v = normal(rng) / std::sqrt(1.0 - phi * phi);
  for (double& xi : x) {
    xi = v;
    v = phi * v + normal(rng);
  }
  return x;
}

double expected_se(double phi, long n) {
  return 1.0 / ((1.0 - phi) * std::sqrt(static_cast<double>(n)));
}

struct Ratios {
  double mean = 0.0, worst = 1.0;
};

// The estimate over the true value for many seeds: their mean and the one
// farthest from 1.
Ratios se_ratios(double phi, long n, int seeds) {
  Ratios r;
  for (int s = 0; s < seeds; ++s) {
    BlockAverage block;
    for (double x : ar1(phi, n, 1000u + static_cast<unsigned>(s))) block.add(x);
    const double ratio = block.se() / expected_se(phi, n);
    r.mean += ratio / seeds;
    if (std::abs(ratio - 1.0) > std::abs(r.worst - 1.0)) r.worst = ratio;
  }
  return r;
}

TEST(BlockAverage, WhiteNoiseGivesSdOverRootN) {
  // Uncorrelated values: every level estimates the same value, so the
  // plateau is found at once or soon; the level-0 value is sd / sqrt(n).
  const long n = 4096;
  BlockAverage block;
  RunningSpread spread;
  for (double x : ar1(0.0, n, 7u)) {
    block.add(x);
    spread.add(x);
  }
  EXPECT_EQ(block.count(), n);
  EXPECT_EQ(block.mean(), spread.mean());
  EXPECT_EQ(block.sd(), spread.sd());
  const std::vector<vorn::BlockLevel> levels = block.levels();
  ASSERT_FALSE(levels.empty());
  EXPECT_NEAR(levels[0].se, spread.sd() / std::sqrt(double(n)), 1e-15);
  EXPECT_EQ(levels[0].block_size, 1);
  EXPECT_EQ(levels.back().block_size, n / 4);
  EXPECT_EQ(levels.back().count, 4);
  // Within a few of the estimate's own error bars of sd / sqrt(n).
  const double naive = spread.sd() / std::sqrt(double(n));
  EXPECT_NEAR(block.se(), naive, 3.0 * naive / std::sqrt(2.0 * (n / 8 - 1)) + 1e-12);
  EXPECT_NEAR(block.effective_samples() / n, 1.0, 0.25);
}

TEST(BlockAverage, ExactLevelsOfASmallSeries) {
  // 1..8: block means of two: 1.5 3.5 5.5 7.5 (sd sqrt(20/3)), of four:
  // 2.5 6.5 (two blocks, not read).
  BlockAverage block;
  for (int i = 1; i <= 8; ++i) block.add(i);
  const std::vector<vorn::BlockLevel> levels = block.levels();
  ASSERT_EQ(levels.size(), 2u);
  EXPECT_NEAR(levels[0].se, std::sqrt(6.0 / 8.0), 1e-14);  // var of 1..8 is 6
  EXPECT_NEAR(levels[1].se, std::sqrt(20.0 / 3.0 / 4.0), 1e-14);
  EXPECT_NEAR(levels[1].se_error, levels[1].se / std::sqrt(6.0), 1e-14);
}

TEST(BlockAverage, ConstantSeries) {
  BlockAverage block;
  for (int i = 0; i < 100; ++i) block.add(2.5);
  EXPECT_EQ(block.se(), 0.0);
  EXPECT_EQ(block.effective_samples(), 100.0);
  BlockAverage empty;
  EXPECT_EQ(empty.se(), 0.0);
  EXPECT_EQ(empty.count(), 0);
}

TEST(BlockAverage, LogarithmicLevels) {
  BlockAverage block;
  for (int i = 0; i < (1 << 16); ++i) block.add(i % 3);
  // Block sizes 1 .. 2^14 read (at least four blocks).
  EXPECT_EQ(block.levels().size(), 15u);
}

// AR(1) series of 2^16 values, 100 seeds each. The spread of one estimate
// is about se / sqrt(2 n / B) at the plateau's block size B (a few per cent
// here), so the mean over the seeds is within a per cent or so of the
// estimator's bias; the plateau of a strongly correlated series comes at
// blocks only a few correlation times long, which leaves the estimate a few
// per cent low (the missing part is 2 phi / (B (1 - phi)^2) of the
// asymptotic variance).
TEST(BlockAverage, Ar1Uncorrelated) {
  const Ratios r = se_ratios(0.0, 1 << 16, 100);
  EXPECT_NEAR(r.mean, 1.0, 0.03);
  EXPECT_NEAR(r.worst, 1.0, 0.25);
}

TEST(BlockAverage, Ar1Half) {
  const Ratios r = se_ratios(0.5, 1 << 16, 100);
  EXPECT_NEAR(r.mean, 1.0, 0.04);
  EXPECT_NEAR(r.worst, 1.0, 0.3);
}

TEST(BlockAverage, Ar1Strong) {
  const Ratios r = se_ratios(0.9, 1 << 16, 100);
  EXPECT_NEAR(r.mean, 1.0, 0.08);
  EXPECT_NEAR(r.worst, 1.0, 0.35);
  // The naive estimate is sqrt((1 - phi) / (1 + phi)) of the truth: far off.
  BlockAverage block;
  for (double x : ar1(0.9, 1 << 16, 3u)) block.add(x);
  EXPECT_LT(block.levels()[0].se / expected_se(0.9, 1 << 16), 0.3);
  EXPECT_NEAR(block.effective_samples() / ((1 << 16) * 0.1 / 1.9), 1.0, 0.35);
}

}  // namespace
