// Candidate frames of the four equivalent orientations and their Euler
// angles.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "capture.hpp"
#include "tensor/euler.hpp"
#include "tensor/jacobi.hpp"

namespace vorn {
namespace {

constexpr double kPiTrunc = 3.14159265;
// acos(-1) in the degrees of this code: 180 x pi / 3.14159265.
const double k180 = std::acos(-1.0) * 180.0 / kPiTrunc;
const double k90 = std::acos(0.0) * 180.0 / kPiTrunc;

double rad(double degrees) { return degrees * kPiTrunc / 180.0; }
double true_rad(double degrees) { return degrees * std::acos(-1.0) / 180.0; }

// z-y-z rotation R = Rz(psi) Ry(theta) Rz(phi) of the orientation sampling,
// written out element by element (1-based), angles in radians.
void dreh_m(double theta, double phi, double psi, double r[4][4]) {
  const double ct = std::cos(theta), st = std::sin(theta);
  const double cf = std::cos(phi), sf = std::sin(phi);
  const double cp = std::cos(psi), sp = std::sin(psi);
  r[1][1] = cp * ct * cf - sp * sf;
  r[1][2] = cp * ct * sf + sp * cf;
  r[1][3] = -cp * st;
  r[2][1] = -sp * ct * cf - cp * sf;
  r[2][2] = -sp * ct * sf + cp * cf;
  r[2][3] = sp * st;
  r[3][1] = st * cf;
  r[3][2] = st * sf;
  r[3][3] = ct;
}

void cross(const double a[3], const double b[3], double c[3]) {
  c[0] = a[1] * b[2] - a[2] * b[1];
  c[1] = a[2] * b[0] - a[0] * b[2];
  c[2] = a[0] * b[1] - a[1] * b[0];
}

// Candidate n as a 1-based matrix from the three lists.
void candidate(const double xl[4][3], const double yl[4][3], const double zl[4][3], int n,
               double m[4][4]) {
  for (int j = 0; j < 3; ++j) {
    m[j + 1][1] = xl[n][j];
    m[j + 1][2] = yl[n][j];
    m[j + 1][3] = zl[n][j];
  }
}

TEST(CrossProductM2, RightHandedProductOfTwoColumns) {
  const double m[3][3] = {{1, 4, 0}, {2, 5, 0}, {3, 6, 0}};
  double p[3] = {};
  EXPECT_EQ(cross_productM2(0, 1, m, p), 1);
  EXPECT_EQ(p[0], 2.0 * 6 - 3.0 * 5);
  EXPECT_EQ(p[1], 3.0 * 4 - 1.0 * 6);
  EXPECT_EQ(p[2], 1.0 * 5 - 2.0 * 4);
  const double unit[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  EXPECT_EQ(cross_productM2(1, 2, unit, p), 1);  // y x z = x
  EXPECT_EQ(p[0], 1.0);
  EXPECT_EQ(p[1], 0.0);
  EXPECT_EQ(p[2], 0.0);
  EXPECT_EQ(cross_productM2(2, 1, unit, p), 1);  // z x y = -x
  EXPECT_EQ(p[0], -1.0);
}

TEST(CrossProductM2, ColumnOutsideMatrixIsRefused) {
  const double unit[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  double p[3] = {7, 7, 7};
  EXPECT_EQ(cross_productM2(3, 1, unit, p), 0);
  EXPECT_EQ(cross_productM2(0, -1, unit, p), 0);
  EXPECT_EQ(p[0], 7.0);
  EXPECT_EQ(p[2], 7.0);
}

TEST(AddEigVecList, StoresColumnsAsRowN) {
  double xl[4][3] = {}, yl[4][3] = {}, zl[4][3] = {};
  const double m[3][3] = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
  EXPECT_EQ(add_eigVec_List(xl, yl, zl, 2, m), 1);
  EXPECT_EQ(xl[2][0], 1.0);
  EXPECT_EQ(xl[2][1], 4.0);
  EXPECT_EQ(xl[2][2], 7.0);
  EXPECT_EQ(yl[2][0], 2.0);
  EXPECT_EQ(yl[2][2], 8.0);
  EXPECT_EQ(zl[2][0], 3.0);
  EXPECT_EQ(zl[2][2], 9.0);
  EXPECT_EQ(xl[1][0], 0.0);
  EXPECT_EQ(xl[3][0], 0.0);
  EXPECT_EQ(add_eigVec_List(xl, yl, zl, 4, m), 0);
  EXPECT_EQ(add_eigVec_List(xl, yl, zl, -1, m), 0);
}

TEST(MirrorSolutions, AddsExactlyTheOneSolutionGiven) {
  double xl[4][3] = {}, yl[4][3] = {}, zl[4][3] = {};
  const double m[3][3] = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
  EXPECT_EQ(mirror_solutions(3, m, xl, yl, zl), 1);
  EXPECT_EQ(xl[3][1], 4.0);
  EXPECT_EQ(yl[3][1], 5.0);
  EXPECT_EQ(zl[3][1], 6.0);
  for (int n = 0; n < 3; ++n) {
    for (int i = 0; i < 3; ++i) EXPECT_EQ(xl[n][i] + yl[n][i] + zl[n][i], 0.0);
  }
}

TEST(MakeEigVecList, FourSignPairsAndRebuiltXAxis) {
  // Columns: Z (Azz), Y (Ayy), and a deliberately wrong x column that must
  // not be used.
  const double s = 1.0 / std::sqrt(2.0);
  const double ev[3][3] = {{0.0, s, 99.0}, {s, 0.0, 99.0}, {s, -s, 99.0}};
  double xl[4][3], yl[4][3], zl[4][3];
  for (int n = 0; n < 4; ++n) {
    for (int i = 0; i < 3; ++i) xl[n][i] = yl[n][i] = zl[n][i] = 5.0;
  }
  EXPECT_EQ(make_eigVecList(ev, xl, yl, zl), 4);
  const double signs[4][2] = {{1, 1}, {-1, 1}, {1, -1}, {-1, -1}};
  for (int n = 0; n < 4; ++n) {
    double y[3], z[3], x[3];
    for (int i = 0; i < 3; ++i) {
      y[i] = signs[n][0] * ev[i][1];
      z[i] = signs[n][1] * ev[i][0];
    }
    cross(y, z, x);
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(yl[n][i], y[i]) << n;
      EXPECT_EQ(zl[n][i], z[i]) << n;
      EXPECT_EQ(xl[n][i], x[i]) << n;
    }
  }
}

TEST(InvEuler, IdentityGivesZeroAnglesInDegenerateBranch) {
  const double m[4][4] = {{0, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
  double w[4] = {0, 9, 9, 9};
  inv_euler(m, w);
  EXPECT_EQ(w[1], 0.0);
  EXPECT_EQ(w[2], 0.0);
  EXPECT_EQ(w[3], 0.0);
}

TEST(InvEuler, BetaOneEightyUsesNegatedFirstRow) {
  // Y and Z negated, x unchanged: diag(1, -1, -1).
  const double m[4][4] = {{0, 0, 0, 0}, {0, 1, -0.0, -0.0}, {0, 0, -1, -0.0}, {0, 0, -0.0, -1}};
  double w[4] = {};
  inv_euler(m, w);
  EXPECT_EQ(w[1], k180);  // s = -1, acos(-1 x 1)
  EXPECT_EQ(w[2], k180);
  EXPECT_EQ(w[3], 0.0);
  // The truncated pi shows: 180 x pi / 3.14159265 is above 180.
  EXPECT_GT(w[2], 180.0000002);
  EXPECT_LT(w[2], 180.0000003);
}

TEST(InvEuler, DegenerateBranchAlphaSignFromM12) {
  for (const double phi : {30.0, -30.0}) {
    double m[4][4] = {};
    dreh_m(0.0, rad(phi), 0.0, m);
    double w[4] = {};
    inv_euler(m, w);
    EXPECT_NEAR(w[1], phi > 0 ? 30.0 : 330.0, 1e-9);
    EXPECT_EQ(w[2], 0.0);
    EXPECT_EQ(w[3], 0.0);
  }
}

TEST(InvEuler, BetaNinetyUsesGeneralBranch) {
  // Columns x' = (0,0,-1), y = (0,1,0), z = (1,0,0): m33 = 0, sin(beta) = 1.
  const double m[4][4] = {{0, 0, 0, 0}, {0, 0, 0, 1}, {0, 0, 1, 0}, {0, -1, 0, 0}};
  double w[4] = {};
  inv_euler(m, w);
  EXPECT_EQ(w[2], k90);
  EXPECT_EQ(w[1], k180);  // acos(m31) = acos(-1); m32 = 0 is non-negative
  EXPECT_EQ(w[3], k180);  // acos(-m13) = acos(-1); m23 = 0
}

TEST(InvEuler, GeneralBranchQuadrantsFromM32AndM23) {
  double m[4][4] = {};
  dreh_m(rad(40.0), rad(300.0), rad(200.0), m);
  double w[4] = {};
  inv_euler(m, w);
  // Wrapped angles (360 - x) carry the truncated-pi scale error of x,
  // a few 1e-7 degrees.
  EXPECT_NEAR(w[1], 300.0, 1e-6);
  EXPECT_NEAR(w[2], 40.0, 1e-6);
  EXPECT_NEAR(w[3], 200.0, 1e-6);
  dreh_m(rad(120.0), rad(60.0), rad(10.0), m);
  inv_euler(m, w);
  EXPECT_NEAR(w[1], 60.0, 1e-6);
  EXPECT_NEAR(w[2], 120.0, 1e-6);
  EXPECT_NEAR(w[3], 10.0, 1e-6);
}

TEST(InvEuler, ExactZeroSignTestCountsAsNonNegative) {
  // m32 = -0.0 and m23 = -0.0: no 360 - angle.
  const double m[4][4] = {{0, 0, 0, 0}, {0, 0, 0, -1}, {0, 0, 1, -0.0}, {0, 1, -0.0, 0}};
  double w[4] = {};
  inv_euler(m, w);
  EXPECT_EQ(w[1], 0.0);  // acos(1)
  EXPECT_EQ(w[3], 0.0);  // acos(-(-1))
}

TEST(InvEuler, AcosArgumentNotClamped) {
  const double m[4][4] = {{0, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1.0 + 1e-12}};
  double w[4] = {};
  inv_euler(m, w);
  EXPECT_TRUE(std::isnan(w[2]));
}

TEST(GetEuler, NormalisesColumnsFirst) {
  double r[4][4] = {};
  dreh_m(rad(70.0), rad(25.0), rad(310.0), r);
  double scaled[4][4] = {};
  const double factor[4] = {0, 2.0, 0.25, 7.0};
  for (int i = 1; i <= 3; ++i) {
    for (int j = 1; j <= 3; ++j) scaled[i][j] = r[i][j] * factor[j];
  }
  double w[4] = {};
  EXPECT_EQ(get_euler(scaled, w), 0);
  EXPECT_NEAR(w[1], 25.0, 1e-6);
  EXPECT_NEAR(w[2], 70.0, 1e-6);
  EXPECT_NEAR(w[3], 310.0, 1e-6);
}

TEST(EigVec2Euler, IdentityAxesGiveTheFourOrientationsInSignOrder) {
  const double ev[4][4] = {{0, 0, 0, 0}, {0, 0, 0, 1}, {0, 0, 1, 0}, {0, 1, 0, 0}};
  double alpha[4], beta[4], gamma[4];
  EXPECT_EQ(eigVec2euler(1, ev, alpha, beta, gamma), 0);
  // No candidate fails: get_euler returns 0 for each and gives its triple.
  double ev0[3][3];
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) ev0[i][j] = ev[i + 1][j + 1];
  }
  double xl[4][3], yl[4][3], zl[4][3];
  ASSERT_EQ(make_eigVecList(ev0, xl, yl, zl), 4);
  for (int k = 0; k < 4; ++k) {
    double c[4][4] = {};
    candidate(xl, yl, zl, k, c);
    double w[4] = {};
    EXPECT_EQ(get_euler(c, w), 0) << k;
    EXPECT_EQ(w[1], alpha[k]) << k;
    EXPECT_EQ(w[2], beta[k]) << k;
    EXPECT_EQ(w[3], gamma[k]) << k;
  }
  // ++: identity; -+: diag(-1,-1,1); +-: diag(-1,1,-1); --: diag(1,-1,-1).
  const double ea[4] = {0.0, k180, 0.0, k180};
  const double eb[4] = {0.0, 0.0, k180, k180};
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(alpha[k], ea[k]) << k;
    EXPECT_EQ(beta[k], eb[k]) << k;
    EXPECT_EQ(gamma[k], 0.0) << k;
  }
}

TEST(EigVec2Euler, FrameOfKnownAnglesAndMirrorFlagNotConsulted) {
  // Eigenvector columns z, y, x taken from a rotation of known angles:
  // candidate ++ is that rotation again and gives its angles back.
  double c[4][4] = {};
  dreh_m(rad(50.0), rad(20.0), rad(130.0), c);
  double ev[4][4] = {};
  for (int i = 1; i <= 3; ++i) {
    ev[i][1] = c[i][3];
    ev[i][2] = c[i][2];
    ev[i][3] = c[i][1];
  }
  double a1[4], b1[4], g1[4], a0[4], b0[4], g0[4];
  EXPECT_EQ(eigVec2euler(1, ev, a1, b1, g1), 0);
  EXPECT_EQ(eigVec2euler(0, ev, a0, b0, g0), 0);
  EXPECT_NEAR(a1[0], 20.0, 1e-6);
  EXPECT_NEAR(b1[0], 50.0, 1e-6);
  EXPECT_NEAR(g1[0], 130.0, 1e-6);
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(a1[k], a0[k]);
    EXPECT_EQ(b1[k], b0[k]);
    EXPECT_EQ(g1[k], g0[k]);
  }
}

// Every candidate is a proper rotation, and every Euler triple rebuilds its
// candidate through R = Rz(psi) Ry(theta) Rz(phi) with theta = beta,
// phi = alpha, psi = gamma; the candidate is R itself (its columns are the
// tensor axes in the molecular frame), not its transpose.
TEST(EigVec2Euler, TriplesRebuildTheirProperRotationCandidates) {
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> uni(-1.0, 1.0);
  int transpose_differs = 0;
  for (int trial = 0; trial < 500; ++trial) {
    double saupe[5];
    for (double& s : saupe) s = 1e-3 * uni(rng);
    double a[4][4] = {};
    saupe_matrix(saupe, a);
    double d[4] = {};
    double v[4][4] = {};
    int nrot = 0;
    jacobimz(a, d, v, nrot);
    sort_eigensystem(d, v);

    double ev0[3][3];
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) ev0[i][j] = v[i + 1][j + 1];
    }
    double xl[4][3], yl[4][3], zl[4][3];
    ASSERT_EQ(make_eigVecList(ev0, xl, yl, zl), 4);
    double alpha[4], beta[4], gamma[4];
    EXPECT_EQ(eigVec2euler(1, v, alpha, beta, gamma), 0);

    for (int k = 0; k < 4; ++k) {
      double c[4][4] = {};
      candidate(xl, yl, zl, k, c);
      // No candidate fails: get_euler returns 0 and gives the triple.
      double w[4] = {};
      EXPECT_EQ(get_euler(c, w), 0);
      EXPECT_EQ(w[1], alpha[k]);
      EXPECT_EQ(w[2], beta[k]);
      EXPECT_EQ(w[3], gamma[k]);
      // Orthonormal columns and determinant +1.
      for (int p = 1; p <= 3; ++p) {
        for (int q = 1; q <= 3; ++q) {
          double dot = 0.0;
          for (int i = 1; i <= 3; ++i) dot += c[i][p] * c[i][q];
          EXPECT_NEAR(dot, p == q ? 1.0 : 0.0, 1e-12);
        }
      }
      const double det = c[1][1] * (c[2][2] * c[3][3] - c[2][3] * c[3][2]) -
                         c[1][2] * (c[2][1] * c[3][3] - c[2][3] * c[3][1]) +
                         c[1][3] * (c[2][1] * c[3][2] - c[2][2] * c[3][1]);
      EXPECT_NEAR(det, 1.0, 1e-12);

      EXPECT_GE(alpha[k], 0.0);
      EXPECT_LT(alpha[k], 360.0);
      EXPECT_GE(beta[k], 0.0);
      EXPECT_LE(beta[k], 180.0000003);
      EXPECT_GE(gamma[k], 0.0);
      EXPECT_LT(gamma[k], 360.0);

      // Back to radians with the true pi: the truncated constant only scales
      // the degrees by 1 + 1.1e-9 (below 1e-8 rad even after a 360 wrap).
      double r[4][4] = {};
      dreh_m(true_rad(beta[k]), true_rad(alpha[k]), true_rad(gamma[k]), r);
      double worst_transpose = 0.0;
      for (int i = 1; i <= 3; ++i) {
        for (int j = 1; j <= 3; ++j) {
          EXPECT_NEAR(r[i][j], c[i][j], 2e-8) << "trial " << trial << " candidate " << k;
          worst_transpose = std::max(worst_transpose, std::fabs(r[j][i] - c[i][j]));
        }
      }
      if (worst_transpose > 1e-3) ++transpose_differs;
    }
    // The four candidates: (sy, sz) = ++, -+, +-, --.
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(yl[1][i], -yl[0][i]);
      EXPECT_EQ(zl[1][i], zl[0][i]);
      EXPECT_EQ(yl[2][i], yl[0][i]);
      EXPECT_EQ(zl[2][i], -zl[0][i]);
      EXPECT_EQ(yl[3][i], -yl[0][i]);
      EXPECT_EQ(zl[3][i], -zl[0][i]);
    }
  }
  // Reading the candidate as the transpose would not rebuild it.
  EXPECT_GT(transpose_differs, 1900);
}

TEST(Euler2Polar, FormulaWithDegreeSineQuirk) {
  // alpha = 0, beta = 90, gamma = 90: q > 0 and sin(90 rad) > 0, t kept.
  // alpha = 0, beta = 90, gamma = 10: sin(10 rad) < 0 although sin(10 deg)
  // > 0, so t := 2 pi - t and omega = 2 (2 pi - t) - 2 pi.
  // alpha = 90, beta = 90, gamma = 0: sin(0) = 0 fails the test as well.
  const double alpha[4] = {0.0, 0.0, 90.0, 0.0};
  const double beta[4] = {90.0, 90.0, 90.0, 90.0};
  const double gamma[4] = {90.0, 10.0, 0.0, 90.0};
  double thetaG[4], phiG[4], omegaG[4];
  EXPECT_EQ(euler2polar(alpha, beta, gamma, thetaG, phiG, omegaG), 0);

  const double deg = 180.0 / std::acos(-1.0);
  EXPECT_NEAR(thetaG[0], std::atan(std::sqrt(2.0)) * deg, 1e-5);
  EXPECT_NEAR(phiG[0], 45.0, 1e-5);
  EXPECT_NEAR(omegaG[0], 120.0, 1e-5);

  const double t10 = std::acos(std::cos(5.0 / deg) * std::cos(45.0 / deg)) * deg;
  EXPECT_NEAR(thetaG[1], std::atan(1.0 / std::sin(5.0 / deg)) * deg, 1e-5);
  EXPECT_NEAR(phiG[1], 85.0, 1e-5);
  EXPECT_NEAR(omegaG[1], 360.0 - 2.0 * t10, 1e-5);

  EXPECT_NEAR(phiG[2], 135.0, 1e-5);
  EXPECT_NEAR(omegaG[2], 240.0, 1e-5);
}

}  // namespace
}  // namespace vorn
