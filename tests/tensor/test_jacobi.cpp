// Saupe matrix construction, Jacobi diagonalisation and eigensystem ordering.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "capture.hpp"
#include "core/fatal.hpp"
#include "tensor/jacobi.hpp"

namespace vorn {
namespace {

// Column markers: element [i][j] = 10 i + j, so moved columns can be traced.
void marked_columns(double v[4][4]) {
  for (int i = 1; i <= 3; ++i) {
    for (int j = 1; j <= 3; ++j) v[i][j] = 10.0 * i + j;
  }
}

void expect_columns(const double v[4][4], int c1, int c2, int c3) {
  const int expected[4] = {0, c1, c2, c3};
  for (int i = 1; i <= 3; ++i) {
    for (int j = 1; j <= 3; ++j) EXPECT_EQ(v[i][j], 10.0 * i + expected[j]) << i << "," << j;
  }
}

TEST(SaupeMatrix, FullMatrixFromFiveElements) {
  const double saupe[5] = {0.5, 0.25, 0.125, -0.0625, 0.75};
  double m[4][4] = {};
  saupe_matrix(saupe, m);
  EXPECT_EQ(m[1][1], -0.125);  // -0.5 (0.5 - 0.25)
  EXPECT_EQ(m[2][2], -0.375);  // -0.5 (0.5 + 0.25)
  EXPECT_EQ(m[3][3], 0.5);
  EXPECT_EQ(m[1][2], 0.125);
  EXPECT_EQ(m[2][1], 0.125);
  EXPECT_EQ(m[1][3], -0.0625);
  EXPECT_EQ(m[3][1], -0.0625);
  EXPECT_EQ(m[2][3], 0.75);
  EXPECT_EQ(m[3][2], 0.75);
  EXPECT_EQ(m[1][1] + m[2][2] + m[3][3], 0.0);
}

TEST(SaupeMatrix, ZeroTensorCarriesNegativeZeros) {
  const double saupe[5] = {0, 0, 0, 0, 0};
  double m[4][4] = {};
  saupe_matrix(saupe, m);
  EXPECT_TRUE(std::signbit(m[1][1]));  // -0.5 (0 - 0)
  EXPECT_TRUE(std::signbit(m[2][2]));  // -0.5 (0 + 0)
  EXPECT_FALSE(std::signbit(m[3][3]));
}

TEST(Jacobi, DiagonalInputNeedsNoRotationAndKeepsAxisOrder) {
  const double saupe[5] = {2, 0, 0, 0, 0};
  double a[4][4] = {};
  saupe_matrix(saupe, a);
  double d[4] = {};
  double v[4][4] = {};
  int nrot = -1;
  jacobimz(a, d, v, nrot);
  EXPECT_EQ(nrot, 0);
  EXPECT_EQ(d[1], -1.0);  // Sxx
  EXPECT_EQ(d[2], -1.0);  // Syy
  EXPECT_EQ(d[3], 2.0);   // Szz
  for (int i = 1; i <= 3; ++i) {
    for (int j = 1; j <= 3; ++j) EXPECT_EQ(v[i][j], i == j ? 1.0 : 0.0);
  }
  // Sorted by magnitude: (2, -1, -1) with columns z, y, x; the two -1 are
  // never compared against each other with an exchange.
  EXPECT_EQ(sort_eigensystem(d, v), 0);
  EXPECT_EQ(d[1], 2.0);
  EXPECT_EQ(d[2], -1.0);
  EXPECT_EQ(d[3], -1.0);
  const double z_y_x[4][4] = {{0, 0, 0, 0}, {0, 0, 0, 1}, {0, 0, 1, 0}, {0, 1, 0, 0}};
  for (int i = 1; i <= 3; ++i) {
    for (int j = 1; j <= 3; ++j) EXPECT_EQ(v[i][j], z_y_x[i][j]) << i << "," << j;
  }
}

TEST(Jacobi, ZeroMatrixReturnsAtOnceWithIdentity) {
  double a[4][4] = {};
  double d[4] = {9, 9, 9, 9};
  double v[4][4] = {};
  int nrot = -1;
  jacobimz(a, d, v, nrot);
  EXPECT_EQ(nrot, 0);
  for (int i = 1; i <= 3; ++i) {
    EXPECT_EQ(d[i], 0.0);
    for (int j = 1; j <= 3; ++j) EXPECT_EQ(v[i][j], i == j ? 1.0 : 0.0);
  }
}

// Only Sxy = 1: one rotation by 45 degrees in the x-y plane. With h = 0 the
// rotation has theta = 0, t = 1, c = s = 1/sqrt(2); d(x) -= 1, d(y) += 1.
TEST(Jacobi, SingleOffDiagonalElementOneRotation) {
  const double saupe[5] = {0, 0, 1, 0, 0};
  double a[4][4] = {};
  saupe_matrix(saupe, a);
  double d[4] = {};
  double v[4][4] = {};
  int nrot = 0;
  jacobimz(a, d, v, nrot);
  EXPECT_EQ(nrot, 1);
  EXPECT_EQ(d[1], -1.0);
  EXPECT_EQ(d[2], 1.0);
  EXPECT_EQ(d[3], 0.0);
  const double c = 1.0 / std::sqrt(2.0);
  EXPECT_NEAR(v[1][1], c, 1e-15);
  EXPECT_NEAR(v[2][1], -c, 1e-15);
  EXPECT_NEAR(v[1][2], c, 1e-15);
  EXPECT_NEAR(v[2][2], c, 1e-15);
  EXPECT_EQ(v[3][3], 1.0);
  EXPECT_EQ(v[3][1], 0.0);
  EXPECT_EQ(v[1][3], 0.0);
  // The element above the diagonal is consumed, the one below is kept.
  EXPECT_EQ(a[1][2], 0.0);
  EXPECT_EQ(a[2][1], 1.0);
  // Equal magnitudes of opposite sign keep the order that came out.
  EXPECT_EQ(sort_eigensystem(d, v), 0);
  EXPECT_EQ(d[1], -1.0);
  EXPECT_EQ(d[2], 1.0);
  EXPECT_EQ(d[3], 0.0);
  EXPECT_NEAR(v[2][1], -c, 1e-15);
}

TEST(Jacobi, NonConvergenceEndsThroughNrerror) {
  double a[4][4] = {};
  const double nan = std::nan("");
  a[1][1] = 1.0;
  a[2][2] = -1.0;
  a[1][2] = a[2][1] = nan;
  a[1][3] = a[3][1] = 0.5;
  double d[4] = {};
  double v[4][4] = {};
  int nrot = 0;
  try {
    jacobimz(a, d, v, nrot);
    FAIL() << "jacobimz returned on a NaN matrix";
  } catch (const FatalError& e) {
    EXPECT_EQ(e.text(),
              "Numerical Recipes run-time error...\nToo many iterations in routine jacobi\n"
              "...now exiting to system...\n");
    EXPECT_EQ(e.stream(), Stream::err);
    EXPECT_EQ(e.status(), 1);
  }
}

TEST(Jacobi, AllNanMatrixAlsoHitsTheSweepLimit) {
  double a[4][4];
  for (auto& row : a) {
    for (double& x : row) x = std::nan("");
  }
  double d[4] = {};
  double v[4][4] = {};
  int nrot = 0;
  EXPECT_THROW(jacobimz(a, d, v, nrot), FatalError);
}

// Random symmetric traceless matrices at two scales (order one and the
// 1e-3 typical of simulated Saupe elements): eigenpairs and orthonormality
// checked against the untouched input.
TEST(Jacobi, RandomTracelessMatricesGiveOrthonormalEigenpairs) {
  std::mt19937_64 rng(20240611);
  std::uniform_real_distribution<double> uni(-1.0, 1.0);
  for (const double scale : {1.0, 1e-3}) {
    for (int trial = 0; trial < 500; ++trial) {
      double saupe[5];
      for (double& s : saupe) s = scale * uni(rng);
      double input[4][4] = {};
      saupe_matrix(saupe, input);
      double a[4][4];
      for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) a[i][j] = input[i][j];
      }
      double d[4] = {};
      double v[4][4] = {};
      int nrot = 0;
      jacobimz(a, d, v, nrot);
      EXPECT_GT(nrot, 0);
      // Diagonal and lower triangle are left as they were.
      for (int i = 1; i <= 3; ++i) {
        for (int j = 1; j <= i; ++j) EXPECT_EQ(a[i][j], input[i][j]);
      }
      EXPECT_EQ(sort_eigensystem(d, v), 0);
      EXPECT_GE(std::fabs(d[1]), std::fabs(d[2]));
      EXPECT_GE(std::fabs(d[2]), std::fabs(d[3]));
      EXPECT_NEAR(d[1] + d[2] + d[3], 0.0, 1e-12 * scale);
      for (int k = 1; k <= 3; ++k) {
        for (int i = 1; i <= 3; ++i) {
          double av = 0.0;
          for (int j = 1; j <= 3; ++j) av += input[i][j] * v[j][k];
          EXPECT_NEAR(av, d[k] * v[i][k], 1e-12 * scale) << "trial " << trial;
        }
        for (int l = 1; l <= 3; ++l) {
          double dot = 0.0;
          for (int i = 1; i <= 3; ++i) dot += v[i][k] * v[i][l];
          EXPECT_NEAR(dot, k == l ? 1.0 : 0.0, 1e-12);
        }
      }
    }
  }
}

TEST(SortEigensystem, OrdersByDecreasingMagnitudeWithColumns) {
  double d[4] = {0, 1, 2, 3};
  double v[4][4];
  marked_columns(v);
  EXPECT_EQ(sort_eigensystem(d, v), 0);
  // (1,2,3) -> (2,1,3) -> (3,1,2) -> (3,2,1)
  EXPECT_EQ(d[1], 3.0);
  EXPECT_EQ(d[2], 2.0);
  EXPECT_EQ(d[3], 1.0);
  expect_columns(v, 3, 2, 1);
}

TEST(SortEigensystem, SignsKeptMagnitudesCompared) {
  double d[4] = {0, 0.5, -3.0, 2.0};
  double v[4][4];
  marked_columns(v);
  sort_eigensystem(d, v);
  // (0.5,-3,2) -> (-3,0.5,2) -> no -> (-3,2,0.5)
  EXPECT_EQ(d[1], -3.0);
  EXPECT_EQ(d[2], 2.0);
  EXPECT_EQ(d[3], 0.5);
  expect_columns(v, 2, 3, 1);
}

TEST(SortEigensystem, OppositeSignTieKeepsOrder) {
  for (const double sign : {1.0, -1.0}) {
    double d[4] = {0, sign, -sign, 0.0};
    double v[4][4];
    marked_columns(v);
    sort_eigensystem(d, v);
    EXPECT_EQ(d[1], sign);
    EXPECT_EQ(d[2], -sign);
    EXPECT_EQ(d[3], 0.0);
    expect_columns(v, 1, 2, 3);
  }
}

TEST(SortEigensystem, ZeroFirstThenTieOfOppositeSigns) {
  // (0,-1,1): step 1 exchanges -> (-1,0,1); step 2 |1| > |-1| is false;
  // step 3 exchanges -> (-1,1,0).
  double d[4] = {0, 0.0, -1.0, 1.0};
  double v[4][4];
  marked_columns(v);
  sort_eigensystem(d, v);
  EXPECT_EQ(d[1], -1.0);
  EXPECT_EQ(d[2], 1.0);
  EXPECT_EQ(d[3], 0.0);
  expect_columns(v, 2, 3, 1);
}

TEST(SortEigensystem, SignedZerosAreNotExchanged) {
  double d[4] = {0, -0.0, -0.0, 0.0};
  double v[4][4];
  marked_columns(v);
  sort_eigensystem(d, v);
  EXPECT_TRUE(std::signbit(d[1]));
  EXPECT_TRUE(std::signbit(d[2]));
  EXPECT_FALSE(std::signbit(d[3]));
  expect_columns(v, 1, 2, 3);
}

}  // namespace
}  // namespace vorn
