// Physical dipolar couplings: constants and back-calculation.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "vorn/classic.hpp"
#include "vorn/couplings.hpp"
#include "vorn/error.hpp"
#include "vorn/tensor.hpp"

namespace vorn {
namespace {

TEST(DipolarConstant, TextbookValues) {
  // The N-H constant is 21.7 kHz at 1.04 A and positive (15N has a negative
  // gyromagnetic ratio); C-H at 1.09 A is about -46.7 kHz. 13C-13C at the
  // CA-C' bond length 1.525 A: 1e-7 * (6.728284e7)^2 * 1.0546e-34 /
  // (pi * 3.5466e-30 m^3) = 4.285 kHz, negative; the classic program's
  // CA-C constant (an independent table) is the same to 0.1 Hz.
  EXPECT_NEAR(dipolar_constant_hz("N", "H", 1.04), 21700.0, 60.0);
  EXPECT_NEAR(dipolar_constant_hz("C", "H", 1.09), -46700.0, 150.0);
  EXPECT_NEAR(dipolar_constant_hz("C", "C", 1.525), -4285.0, 2.0);
  EXPECT_NEAR(dipolar_constant_hz("C", "C", 1.525), classic_coupling_scale(2), 0.1);
  EXPECT_GT(dipolar_constant_hz("C", "N", 1.33), 0.0);
  EXPECT_LT(dipolar_constant_hz("P", "H", 2.5), 0.0);
  // Symmetric and an inverse cube of the distance.
  EXPECT_DOUBLE_EQ(dipolar_constant_hz("N", "H", 1.02), dipolar_constant_hz("H", "N", 1.02));
  EXPECT_NEAR(dipolar_constant_hz("N", "H", 2.04) * 8.0, dipolar_constant_hz("N", "H", 1.02), 1e-9);
}

TEST(DipolarConstant, BadInputThrows) {
  EXPECT_THROW(dipolar_constant_hz("X", "H", 1.0), Error);
  EXPECT_THROW(dipolar_constant_hz("N", "H", 0.0), Error);
  EXPECT_THROW(dipolar_constant_hz("N", "H", -1.0), Error);
  EXPECT_THROW(gyromagnetic_ratio("Q"), Error);
}

TEST(DipolarCoupling, AxialAndRhombicHandCases) {
  const double dmax = 1000.0;
  // Szz = 1: along z the full constant, perpendicular -1/2, at the magic
  // angle nothing.
  const SaupeElements axial{1, 0, 0, 0, 0};
  EXPECT_NEAR(dipolar_coupling_hz(axial, {0, 0, 2}, dmax), 1000.0, 1e-9);
  EXPECT_NEAR(dipolar_coupling_hz(axial, {3, 0, 0}, dmax), -500.0, 1e-9);
  const double magic = std::acos(1.0 / std::sqrt(3.0));
  EXPECT_NEAR(dipolar_coupling_hz(axial, {std::sin(magic), 0, std::cos(magic)}, dmax), 0.0, 1e-9);
  // Sxx - Syy = 1 (Sxx = 1/2, Syy = -1/2): along x +1/2, along y -1/2.
  const SaupeElements rhombic{0, 1, 0, 0, 0};
  EXPECT_NEAR(dipolar_coupling_hz(rhombic, {1, 0, 0}, dmax), 500.0, 1e-9);
  EXPECT_NEAR(dipolar_coupling_hz(rhombic, {0, 1, 0}, dmax), -500.0, 1e-9);
  // Sxy = 1 along the xy diagonal: 2 Sxy x y = 1.
  EXPECT_NEAR(dipolar_coupling_hz({0, 0, 1, 0, 0}, {1, 1, 0}, dmax), 1000.0, 1e-9);
  EXPECT_THROW(dipolar_coupling_hz(axial, {0, 0, 0}, dmax), Error);
}

TEST(DipolarCoupling, EqualsTheFullMatrixProductAndTheClassicProjection) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  for (int trial = 0; trial < 200; ++trial) {
    const SaupeElements s{u(rng), u(rng), u(rng), u(rng), u(rng)};
    const Vec3 v{u(rng), u(rng), u(rng)};
    const auto m = saupe_matrix(s);
    const double n = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
    const double c[3] = {v.x / n, v.y / n, v.z / n};
    double sum = 0.0;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) sum += m[i][j] * c[i] * c[j];
    const double d = dipolar_coupling_hz(s, v, 2.5);
    EXPECT_NEAR(d, 2.5 * sum, 1e-12);
    EXPECT_NEAR(d, classic_back_calculate(s, v, 2.5), 1e-12);
  }
}

}  // namespace
}  // namespace vorn
