// The singular value decomposition and its vector kernels.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "fit/dsvdc.hpp"

namespace vorn {
namespace {

struct Svd {
  std::vector<double> s, e, u, v;
  integer info = -1;
};

// Decomposes the n by p column-major matrix a with job 21 (a is copied).
Svd decompose(std::vector<double> a, integer n, integer p) {
  Svd r;
  const integer ncu = std::min(n, p);
  r.s.assign(static_cast<size_t>(std::min(n + 1, p)), 0.0);
  r.e.assign(static_cast<size_t>(p), 0.0);
  r.u.assign(static_cast<size_t>(n * ncu), 0.0);
  r.v.assign(static_cast<size_t>(p * p), 0.0);
  std::vector<double> work(static_cast<size_t>(n), 0.0);
  integer ldx = n, nn = n, pp = p, ldu = n, ldv = p, job = 21;
  dsvdc_(a.data(), &ldx, &nn, &pp, r.s.data(), r.e.data(), r.u.data(), &ldu, r.v.data(), &ldv,
         work.data(), &job, &r.info);
  return r;
}

double max_abs(const std::vector<double>& a) {
  double m = 0.0;
  for (double v : a) m = std::max(m, std::fabs(v));
  return m;
}

// Checks A = U diag(s) V^T, orthonormal columns of U and V, s descending and
// non-negative.
void check_decomposition(const std::vector<double>& a, integer n, integer p, const Svd& r) {
  ASSERT_EQ(r.info, 0);
  const integer k = std::min(n, p);
  const double scale = std::max(1.0, max_abs(a));
  for (integer i = 0; i < n; ++i) {
    for (integer j = 0; j < p; ++j) {
      double sum = 0.0;
      for (integer l = 0; l < k; ++l) sum += r.u[i + l * n] * r.s[l] * r.v[j + l * p];
      ASSERT_NEAR(sum, a[i + j * n], 1e-12 * scale) << "element " << i << "," << j;
    }
  }
  for (integer l = 0; l < k; ++l) {
    for (integer m = 0; m < k; ++m) {
      double uu = 0.0;
      for (integer i = 0; i < n; ++i) uu += r.u[i + l * n] * r.u[i + m * n];
      ASSERT_NEAR(uu, l == m ? 1.0 : 0.0, 1e-12) << "U columns " << l << "," << m;
    }
  }
  for (integer l = 0; l < p; ++l) {
    for (integer m = 0; m < p; ++m) {
      double vv = 0.0;
      for (integer i = 0; i < p; ++i) vv += r.v[i + l * p] * r.v[i + m * p];
      ASSERT_NEAR(vv, l == m ? 1.0 : 0.0, 1e-12) << "V columns " << l << "," << m;
    }
  }
  for (integer l = 0; l < k; ++l) {
    EXPECT_GE(r.s[l], 0.0);
    if (l > 0) {
      EXPECT_GE(r.s[l - 1], r.s[l]);
    }
  }
}

TEST(Dsvdc, RandomMatricesAreReproduced) {
  std::mt19937_64 rng(20240611);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  for (integer n : {6, 7, 10, 23, 64, 160, 161, 255, 400}) {
    std::vector<double> a(static_cast<size_t>(n * 5));
    for (double& x : a) x = uniform(rng);
    SCOPED_TRACE(n);
    check_decomposition(a, n, 5, decompose(a, n, 5));
  }
}

TEST(Dsvdc, SingularValuesMatchTheGramMatrixTrace) {
  // Sum of s^2 = Frobenius norm^2, independent of the vectors.
  std::mt19937_64 rng(7);
  std::normal_distribution<double> normal(0.0, 3.0);
  std::vector<double> a(40 * 5);
  for (double& x : a) x = normal(rng);
  const Svd r = decompose(a, 40, 5);
  double frob = 0.0, ss = 0.0;
  for (double x : a) frob += x * x;
  for (double s : r.s) ss += s * s;
  EXPECT_NEAR(ss, frob, 1e-10 * frob);
}

TEST(Dsvdc, KnownDiagonalCase) {
  // Columns e1 * 3, e2 * (-5), e3 * 0, e4 * 2, e5 * 1 in an 8-row matrix.
  const integer n = 8;
  std::vector<double> a(n * 5, 0.0);
  a[0 + 0 * n] = 3.0;
  a[1 + 1 * n] = -5.0;
  a[3 + 3 * n] = 2.0;
  a[4 + 4 * n] = 1.0;
  const Svd r = decompose(a, n, 5);
  check_decomposition(a, n, 5, r);
  EXPECT_NEAR(r.s[0], 5.0, 1e-15);
  EXPECT_NEAR(r.s[1], 3.0, 1e-15);
  EXPECT_NEAR(r.s[2], 2.0, 1e-15);
  EXPECT_NEAR(r.s[3], 1.0, 1e-15);
  EXPECT_NEAR(r.s[4], 0.0, 1e-15);
}

TEST(Dsvdc, RankDeficientMatrices) {
  std::mt19937_64 rng(99);
  std::uniform_real_distribution<double> uniform(-2.0, 2.0);
  const integer n = 12;
  // Rank 2: every column a combination of two random vectors.
  std::vector<double> b1(n), b2(n);
  for (integer i = 0; i < n; ++i) {
    b1[i] = uniform(rng);
    b2[i] = uniform(rng);
  }
  std::vector<double> a(n * 5);
  for (integer j = 0; j < 5; ++j) {
    const double c1 = uniform(rng), c2 = uniform(rng);
    for (integer i = 0; i < n; ++i) a[i + j * n] = c1 * b1[i] + c2 * b2[i];
  }
  const Svd r = decompose(a, n, 5);
  check_decomposition(a, n, 5, r);
  for (int l = 2; l < 5; ++l) EXPECT_LT(r.s[l], 1e-13 * r.s[0]);
  // A zero column and a constant column.
  std::vector<double> c(n * 5, 0.0);
  for (integer i = 0; i < n; ++i) c[i + 1 * n] = 1.0;
  const Svd rc = decompose(c, n, 5);
  check_decomposition(c, n, 5, rc);
  EXPECT_NEAR(rc.s[0], std::sqrt(12.0), 1e-14);
}

TEST(Dsvdc, WideMatrixStaysInsideItsStorage) {
  const integer n = 3;
  std::vector<double> a = {1, 2, 3, -1, 0.5, 2, 0, 1, 1, 4, -2, 0.25, 1, 1, -1};
  check_decomposition(a, n, 5, decompose(a, n, 5));
}

TEST(Dsvdc, NotANumberNeverConvergesAndReportsTheLastValue) {
  for (integer n : {6, 63}) {
    std::vector<double> a(static_cast<size_t>(n * 5), std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(decompose(a, n, 5).info, 5) << n;
  }
  // One NaN element is enough.
  std::vector<double> b(10 * 5, 1.0);
  b[17] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(decompose(b, 10, 5).info, 5);
}

TEST(Blas, Drotg) {
  double a = 3.0, b = 4.0, c = 0.0, s = 0.0;
  drotg_(&a, &b, &c, &s);
  EXPECT_DOUBLE_EQ(a, 5.0);
  EXPECT_DOUBLE_EQ(c, 0.6);
  EXPECT_DOUBLE_EQ(s, 0.8);
  EXPECT_DOUBLE_EQ(b, 1.0 / 0.6);  // |b| >= |a|: z = 1 / c
  a = -4.0;
  b = 3.0;
  drotg_(&a, &b, &c, &s);
  EXPECT_DOUBLE_EQ(a, -5.0);  // sign of the larger input
  EXPECT_DOUBLE_EQ(c, 0.8);
  EXPECT_DOUBLE_EQ(s, -0.6);
  EXPECT_DOUBLE_EQ(b, -0.6);  // |a| > |b|: z = s
  a = 0.0;
  b = 0.0;
  drotg_(&a, &b, &c, &s);
  EXPECT_EQ(a, 0.0);
  EXPECT_EQ(b, 0.0);
  EXPECT_EQ(c, 1.0);
  EXPECT_EQ(s, 0.0);
}

TEST(Blas, Dnrm2AvoidsOverflowAndUnderflow) {
  integer n = 2, one = 1;
  double big[] = {3e200, 4e200};
  EXPECT_DOUBLE_EQ(dnrm2_(&n, big, &one), 5e200);
  double tiny[] = {3e-200, -4e-200};
  EXPECT_DOUBLE_EQ(dnrm2_(&n, tiny, &one), 5e-200);
  integer three = 3, two = 2;
  double strided[] = {1.0, 100.0, 2.0, 100.0, 2.0};
  EXPECT_DOUBLE_EQ(dnrm2_(&three, strided, &two), 3.0);
  integer zero = 0;
  EXPECT_EQ(dnrm2_(&zero, strided, &one), 0.0);
}

TEST(Blas, VectorKernels) {
  integer n = 3, one = 1, two = 2, minus_one = -1;
  double x[] = {1.0, 2.0, 3.0};
  double y[] = {10.0, 20.0, 30.0};
  double alpha = 2.0;
  daxpy_(&n, &alpha, x, &one, y, &one);
  EXPECT_EQ(y[0], 12.0);
  EXPECT_EQ(y[2], 36.0);
  EXPECT_EQ(ddot_(&n, x, &one, y, &one), 12.0 + 48.0 + 108.0);
  // A negative stride runs the vector backwards.
  EXPECT_EQ(ddot_(&n, x, &one, y, &minus_one), 36.0 + 2 * 24.0 + 3 * 12.0);
  double half = 0.5;
  dscal_(&n, &half, y, &one);
  EXPECT_EQ(y[1], 12.0);
  double p[] = {1.0, -1.0, 2.0, -1.0, 3.0};
  double q[] = {7.0, 8.0, 9.0};
  dswap_(&n, p, &two, q, &one);
  EXPECT_EQ(p[0], 7.0);
  EXPECT_EQ(p[2], 8.0);
  EXPECT_EQ(p[4], 9.0);
  EXPECT_EQ(p[1], -1.0);
  EXPECT_EQ(q[2], 3.0);
  double rx[] = {1.0, 0.0};
  double ry[] = {0.0, 1.0};
  double c = 0.6, s = 0.8;
  integer m = 2;
  drot_(&m, rx, &one, ry, &one, &c, &s);
  EXPECT_DOUBLE_EQ(rx[0], 0.6);
  EXPECT_DOUBLE_EQ(rx[1], 0.8);
  EXPECT_DOUBLE_EQ(ry[0], -0.8);
  EXPECT_DOUBLE_EQ(ry[1], 0.6);
  double mag = -2.5, sg = 0.0;
  EXPECT_EQ(d_sign(&mag, &sg), 2.5);
  sg = -1e-300;
  EXPECT_EQ(d_sign(&mag, &sg), -2.5);
}

}  // namespace
}  // namespace vorn
