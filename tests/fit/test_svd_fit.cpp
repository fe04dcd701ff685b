// Fit rows and the singular value decomposition fit of the alignment tensor.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "capture.hpp"
#include "core/fatal.hpp"
#include "couplings/classic_types.hpp"
#include "fit/svd_fit.hpp"
#include "real_data_support.hpp"
#include "vorn/settings.hpp"

namespace vorn {
namespace {

using Vec3 = std::array<double, 3>;
using Tensor = std::array<double, 5>;  // Szz, Sxx - Syy, Sxy, Sxz, Syz

double di_val(int type) { return maxDIPCOUP[type] * radiusInCubeDCTypes[type]; }

// Coupling of a unit direction for a tensor, in units of the maximal coupling.
double projection(const Vec3& v, const Tensor& s) {
  const double r = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  const double x = v[0] / r, y = v[1] / r, z = v[2] / r;
  return s[0] * (1.5 * z * z - 0.5) + s[1] * 0.5 * (x * x - y * y) + 2 * s[2] * x * y +
         2 * s[3] * x * z + 2 * s[4] * y * z;
}

// The unknowns of the fit (Syy, Szz, Sxy, Sxz, Syz) of a five-element tensor.
std::array<double, 5> unknowns(const Tensor& s) {
  return {-(s[0] + s[1]) / 2, s[0], s[2], s[3], s[4]};
}

struct Rows {
  FitRows r;
  void add(const Vec3& v, double dc, int type, double nherror = 1.5) {
    r.x1.push_back(static_cast<float>(v[0]));
    r.y1.push_back(static_cast<float>(v[1]));
    r.z1.push_back(static_cast<float>(v[2]));
    r.x2.push_back(0.0f);
    r.y2.push_back(0.0f);
    r.z2.push_back(0.0f);
    r.dc2.push_back(static_cast<float>(dc));
    r.dcmax_val.push_back(static_cast<float>(di_val(type)));
    r.error.push_back(static_cast<float>(std::fabs(nherror / dcNORMFACTORS[type])));
  }
  int size() const { return static_cast<int>(r.dc2.size()); }
};

// What a fit reports besides the tensor (printed by the classic front end,
// tests/classic/test_fit_report.cpp): the rows used, the decomposition
// status, the singularity flag and, when the tensor is in the physical
// range, the rows outside their experimental range.
void expect_report(const ClassicSvdFit& fit, int rows, long info, bool singular,
                   bool order_in_range, size_t outside) {
  EXPECT_EQ(fit.rows, rows);
  EXPECT_EQ(fit.info, info);
  EXPECT_EQ(fit.singular, singular);
  EXPECT_EQ(fit.order_in_range, order_in_range);
  EXPECT_EQ(fit.outside.size(), outside);
}

// Real internuclear vectors with their DC types: the couplings of the
// ubiquitin data set on model 1 of its NMR structure.
struct RealVectors {
  std::vector<Vec3> v;
  std::vector<int> type;
  RealVectors() {
    const std::vector<test::PdbAtom> atoms =
        test::read_pdb_atoms(test::data_path("structures/ubq_1d3z_m1.pdb"));
    for (const ClassicCoupling& c :
         test::read_couplings(test::data_path("couplings/ubq_2mjb_t500_bicelleA.dc"), atoms)) {
      const Vec3 vec = {c.vector.x, c.vector.y, c.vector.z};
      if (vec[0] == 0.0 && vec[1] == 0.0 && vec[2] == 0.0) continue;
      v.push_back(vec);
      type.push_back(c.type);
    }
  }
};

// A coupling of the classic kind along a direction.
ClassicCoupling coupling(int residue, double value, int type, const Vec3& v) {
  return {residue, value, type, vorn::Vec3{v[0], v[1], v[2]}};
}

const RealVectors& real_vectors() {
  static const RealVectors vectors;
  return vectors;
}

// Independent least-squares solution of A x = b (5 unknowns) by the normal
// equations in long double; also returns the covariance factor (A^T A)^-1.
struct LeastSquares {
  std::array<long double, 5> x{};
  std::array<std::array<long double, 5>, 5> inverse{};
};
LeastSquares normal_equations(const std::vector<std::array<long double, 5>>& a,
                              const std::vector<long double>& b) {
  long double m[5][11] = {};
  for (size_t i = 0; i < a.size(); ++i) {
    for (int j = 0; j < 5; ++j) {
      for (int k = 0; k < 5; ++k) m[j][k] += a[i][j] * a[i][k];
      m[j][5] += a[i][j] * b[i];
    }
  }
  for (int j = 0; j < 5; ++j) m[j][6 + j] = 1.0L;
  for (int col = 0; col < 5; ++col) {
    int pivot = col;
    for (int r = col + 1; r < 5; ++r)
      if (std::fabs(m[r][col]) > std::fabs(m[pivot][col])) pivot = r;
    for (int k = 0; k < 11; ++k) std::swap(m[col][k], m[pivot][k]);
    for (int r = 0; r < 5; ++r) {
      if (r == col) continue;
      const long double f = m[r][col] / m[col][col];
      for (int k = 0; k < 11; ++k) m[r][k] -= f * m[col][k];
    }
  }
  LeastSquares result;
  for (int j = 0; j < 5; ++j) {
    result.x[j] = m[j][5] / m[j][j];
    for (int k = 0; k < 5; ++k) result.inverse[j][k] = m[j][6 + k] / m[j][j];
  }
  return result;
}

// Design row of a direction: (y^2 - x^2, z^2 - x^2, 2xy, 2xz, 2yz).
std::array<long double, 5> design_row(const Vec3& v) {
  const long double r =
      std::sqrt(static_cast<long double>(v[0]) * v[0] + static_cast<long double>(v[1]) * v[1] +
                static_cast<long double>(v[2]) * v[2]);
  const long double x = v[0] / r, y = v[1] / r, z = v[2] / r;
  return {y * y - x * x, z * z - x * x, 2 * x * y, 2 * x * z, 2 * y * z};
}

TEST(SetupSvd, RowsOfTheUsableCouplings) {
  const double nherror = 2.0;
  std::vector<ClassicCoupling> c;
  const double values[] = {
      5.0, 1000.0, 999.99, -3.25, 2500.0, std::numeric_limits<double>::quiet_NaN(), 1.0};
  const int types[] = {0, 1, 2, 3, 4, 0, 4};
  for (int i = 1; i <= 7; ++i) {
    c.push_back(coupling(10 + i, values[i - 1], types[i - 1], {0.1 * i, -1.0 / 3.0, 1.0 + i}));
  }
  FitRows rows;
  rows.dc2.assign(20, 99.0f);  // stale content is replaced
  ASSERT_EQ(setup_svd(nherror, c, rows), 4);
  ASSERT_EQ(rows.dc2.size(), 4u);
  const int used[] = {1, 3, 4, 7};
  for (int m = 0; m < 4; ++m) {
    const int i = used[m];
    const int type = types[i - 1];
    EXPECT_EQ(rows.x1[m], static_cast<float>(0.1 * i)) << m;
    EXPECT_EQ(rows.y1[m], static_cast<float>(-1.0 / 3.0)) << m;
    EXPECT_EQ(rows.z1[m], static_cast<float>(1.0 + i)) << m;
    EXPECT_EQ(rows.x2[m], 0.0f);
    EXPECT_EQ(rows.y2[m], 0.0f);
    EXPECT_EQ(rows.z2[m], 0.0f);
    EXPECT_EQ(rows.dc2[m], static_cast<float>(values[i - 1])) << m;
    EXPECT_EQ(rows.dcmax_val[m], static_cast<float>(maxDIPCOUP[type] * radiusInCubeDCTypes[type]));
    EXPECT_EQ(rows.error[m], static_cast<float>(std::fabs(2.0 / dcNORMFACTORS[type]))) << m;
    EXPECT_GT(rows.error[m], 0.0f);
  }
  EXPECT_EQ(rows.dc2[1], 999.99f) << "just below 1000.0 is kept";
}

TEST(SetupSvd, FiveAndSixUsableCouplings) {
  const Settings settings;  // the default error
  std::vector<ClassicCoupling> c;
  for (int i = 1; i <= 7; ++i) c.push_back(coupling(0, i == 3 ? 1000.0 : 1.0 * i, 0, {0, 0, 1.0}));
  const std::span<const ClassicCoupling> all(c);
  FitRows rows;
  EXPECT_EQ(setup_svd(settings.nherror, all.first(6), rows), 5);
  EXPECT_EQ(setup_svd(settings.nherror, all, rows), 6);
  EXPECT_EQ(setup_svd(settings.nherror, all.first(0), rows), 0);
  EXPECT_TRUE(rows.dc2.empty());
}

TEST(SvdSimple, RecoversAKnownTensorFromRealVectors) {
  const RealVectors& real = real_vectors();
  ASSERT_GE(real.v.size(), 300u);
  const Tensor truth = {5.7e-4, -7.6e-5, -3.0e-5, 1.5e-4, -5.8e-4};
  const std::array<double, 5> x_true = unknowns(truth);
  for (size_t m : {10u, 37u, 120u, 305u, 400u}) {
    Rows rows;
    for (size_t i = 0; i < m; ++i) {
      // Spread the picks over the whole set, all five types mixed.
      const size_t k = (i * 7) % real.v.size();
      rows.add(real.v[k], projection(real.v[k], truth) * di_val(real.type[k]), real.type[k]);
    }
    ClassicSvdFit fit;
    ASSERT_EQ(svd_simple(rows.size(), rows.r, fit), static_cast<int>(m));
    const SaupeElements& saupe = fit.saupe;
    const std::array<double, 5> x_fit =
        unknowns({saupe[0], saupe[1], saupe[2], saupe[3], saupe[4]});
    for (int j = 0; j < 5; ++j)
      EXPECT_NEAR(x_fit[j], x_true[j], 1e-6 * 5.8e-4) << "m " << m << " unknown " << j;
    for (int j = 0; j < 5; ++j) EXPECT_NEAR(saupe[j], truth[j], 2e-6 * 5.8e-4) << m;
    // No failure, not singular, and noise-free: in the physical range with
    // nothing outside dc +/- e.
    expect_report(fit, static_cast<int>(m), 0, false, true, 0);
  }
}

TEST(SvdSimple, NoisyDataAgreeWithTheNormalEquationsAndTheirErrors) {
  const RealVectors& real = real_vectors();
  const Tensor truth = {8.9e-4, -2.2e-4, 1.2e-4, -3.0e-4, 4.1e-4};
  const std::array<double, 5> x_true = unknowns(truth);
  std::mt19937_64 rng(12345);
  std::normal_distribution<double> noise(0.0, 1.0);
  const double sigma_hz = 0.8;
  Rows rows;
  std::vector<std::array<long double, 5>> a;
  std::vector<long double> b;
  std::vector<long double> sigma_b;
  for (size_t k = 0; k < real.v.size(); ++k) {
    const int type = real.type[k];
    const double dc = projection(real.v[k], truth) * di_val(type) +
                      sigma_hz * std::fabs(1.0 / dcNORMFACTORS[type]) * noise(rng);
    rows.add(real.v[k], dc, type);
    a.push_back(design_row(real.v[k]));
    b.push_back(static_cast<long double>(static_cast<float>(dc)) /
                static_cast<float>(di_val(type)));
    sigma_b.push_back(sigma_hz * std::fabs(1.0 / dcNORMFACTORS[type]) / std::fabs(di_val(type)));
  }
  ClassicSvdFit fit;
  svd_simple(rows.size(), rows.r, fit);
  const SaupeElements& saupe = fit.saupe;
  const std::array<double, 5> x_fit = unknowns({saupe[0], saupe[1], saupe[2], saupe[3], saupe[4]});
  const LeastSquares ls = normal_equations(a, b);
  // Covariance of the unweighted fit with per-row noise: C A^T S A C.
  for (int j = 0; j < 5; ++j) {
    long double var = 0.0L;
    for (size_t i = 0; i < a.size(); ++i) {
      long double g = 0.0L;
      for (int k = 0; k < 5; ++k) g += ls.inverse[j][k] * a[i][k];
      var += g * g * sigma_b[i] * sigma_b[i];
    }
    const double sd = std::sqrt(static_cast<double>(var));
    EXPECT_NEAR(x_fit[j], static_cast<double>(ls.x[j]), 1e-6 * 8.9e-4) << j;
    EXPECT_NEAR(x_fit[j], x_true[j], 4.0 * sd) << j << " sd " << sd;
    EXPECT_GT(sd, 0.0);
  }
}

TEST(SvdSimple, OutlierIsListedWithItsRowNumber) {
  const RealVectors& real = real_vectors();
  const Tensor truth = {5.7e-4, -7.6e-5, -3.0e-5, 1.5e-4, -5.8e-4};
  const Settings settings;
  std::vector<ClassicCoupling> c;
  for (size_t k = 0; k < 150; ++k) {
    const int type = real.type[k];
    double value = projection(real.v[k], truth) * di_val(type);
    if (k == 3 || k == 20 || k == 41) value = 1000.0;  // left out of the fit
    if (k == 57) value += 12.0;                        // outlier
    c.push_back(coupling(static_cast<int>(k) + 1, value, type, real.v[k]));
  }
  FitRows rows;
  const int m = setup_svd(settings.nherror, c, rows);
  ASSERT_EQ(m, 147);
  ClassicSvdFit fit;
  svd_simple(m, rows, fit);
  expect_report(fit, 147, 0, false, true, 1);
  ASSERT_EQ(fit.outside.size(), 1u);
  const ClassicSvdFit::Outside& o = fit.outside[0];
  // Coupling 58 (k = 57) is row 54: three entries at 1000.0 came before it.
  const int row = 54;
  const float dc = rows.dc2[row];
  const float e = rows.error[row];
  EXPECT_EQ(o.row, row);
  EXPECT_EQ(o.measured, static_cast<double>(dc));
  EXPECT_EQ(o.dc, dc);
  EXPECT_EQ(o.upper, dc + e);
  EXPECT_EQ(o.lower, dc - e);
  // The back-calculation is the least-squares prediction.
  const double predicted = o.back_calculated;
  std::vector<std::array<long double, 5>> a;
  std::vector<long double> b;
  for (int i = 0; i < m; ++i) {
    const Vec3 v = {rows.x1[i], rows.y1[i], rows.z1[i]};
    a.push_back(design_row(v));
    b.push_back(static_cast<long double>(rows.dc2[i]) / rows.dcmax_val[i]);
  }
  const LeastSquares ls = normal_equations(a, b);
  long double p = 0.0L;
  for (int j = 0; j < 5; ++j) p += a[row][j] * ls.x[j];
  p *= rows.dcmax_val[row];
  EXPECT_NEAR(predicted, static_cast<double>(p), 1e-4);
  EXPECT_LT(predicted, dc - e);
}

TEST(SvdSimple, TensorOutsideThePhysicalRangeSuppressesTheListing) {
  const RealVectors& real = real_vectors();
  const Tensor truth = {1.2, 0.1, 0.0, 0.0, 0.0};  // Szz beyond 1.0
  Rows rows;
  for (size_t k = 0; k < 40; ++k)
    rows.add(real.v[k], projection(real.v[k], truth) * di_val(real.type[k]) + (k == 5 ? 50.0 : 0),
             real.type[k]);
  ClassicSvdFit fit;
  svd_simple(rows.size(), rows.r, fit);
  // Out of the physical range: no listing (the outlier of row 5 is not
  // looked for).
  expect_report(fit, 40, 0, false, false, 0);
  EXPECT_GT(fit.saupe[0], 1.0) << "the tensor is returned all the same";
}

// Rows along the given directions, each with coupling value (in units of
// the maximal N-H coupling) b.
Rows axis_rows(const std::vector<Vec3>& directions, double b) {
  Rows rows;
  for (const Vec3& v : directions) rows.add(v, b * static_cast<float>(di_val(0)), 0);
  return rows;
}

ClassicSvdFit fit_of(const Rows& rows) {
  ClassicSvdFit fit;
  svd_simple(rows.size(), rows.r, fit);
  return fit;
}

TEST(SvdSimple, AllVectorsAlongOneAxisGiveTheMinimumNormTensor) {
  for (int m : {6, 8, 9, 10}) {
    const Rows rows = axis_rows(std::vector<Vec3>(m, Vec3{0.0, 0.0, 1.02}), 2.0e-4);
    const ClassicSvdFit fit = fit_of(rows);
    const SaupeElements& saupe = fit.saupe;
    // Rank 1: four singular values discarded; |5 - m| < 4 only for m < 9.
    EXPECT_EQ(fit.singular, m < 9) << m;
    EXPECT_EQ(fit.info, 0);
    // Minimum norm: Syy = Sxy = Sxz = Syz = 0, Szz = 2e-4, so Sxx = -Szz.
    // (Single-precision couplings: 1e-10 is 5e-7 relative.)
    EXPECT_NEAR(saupe[0], 2.0e-4, 1e-10) << m;
    EXPECT_NEAR(saupe[1], -2.0e-4, 1e-10) << m;
    for (int j = 2; j < 5; ++j) EXPECT_NEAR(saupe[j], 0.0, 1e-12) << m;
  }
}

TEST(SvdSimple, SingularityMessageAgainstRowsMinusUnknowns) {
  const double h = std::sqrt(0.5);
  // x, y and the xy diagonal span three of the five directions.
  const std::vector<Vec3> rank3 = {{1, 0, 0}, {0, 1, 0}, {h, h, 0},
                                   {2, 0, 0}, {0, 3, 0}, {-h, -h, 0}};
  EXPECT_TRUE(fit_of(axis_rows(rank3, 1e-4)).singular);
  // With the xz diagonal four directions: one discarded value, |5 - 6| = 1.
  const std::vector<Vec3> rank4 = {{1, 0, 0}, {0, 1, 0}, {h, h, 0},
                                   {h, 0, h}, {0, 3, 0}, {-h, -h, 0}};
  EXPECT_FALSE(fit_of(axis_rows(rank4, 1e-4)).singular);
  // Rank 3 has two discarded values: seven rows, |5 - 7| = 2, no message.
  std::vector<Vec3> rank3_long = rank3;
  rank3_long.push_back({1, 1, 0});
  EXPECT_FALSE(fit_of(axis_rows(rank3_long, 1e-4)).singular);
}

TEST(SvdSimple, ZeroVectorsMakeTheDecompositionFail) {
  Rows rows;
  for (int i = 0; i < 63; ++i) rows.add({0.0, 0.0, 0.0}, 0.5 * i - 10.0, 0);
  const ClassicSvdFit fit = fit_of(rows);
  // NaN rows: no convergence on the fifth value; NaN passes the range check
  // and no row compares outside.
  expect_report(fit, 63, 5, false, true, 0);
  for (double s : fit.saupe) EXPECT_TRUE(std::isnan(s));
}

TEST(SvdSimple, NoRowsGiveTheZeroTensor) {
  Rows rows;
  ClassicSvdFit fit;
  fit.saupe = {1, 1, 1, 1, 1};  // replaced by the call
  fit.outside.resize(2);
  svd_simple(rows.size(), rows.r, fit);
  expect_report(fit, 0, 0, false, true, 0);
  for (double s : fit.saupe) EXPECT_EQ(s, 0.0);
}

TEST(SvdSimple, RowCountBeyondTheRowsIsClamped) {
  const Rows rows = axis_rows(std::vector<Vec3>(6, Vec3{0.0, 0.0, 1.0}), 1e-4);
  ClassicSvdFit fit;
  EXPECT_EQ(svd_simple(10, rows.r, fit), 6);
  EXPECT_EQ(fit.rows, 6);
}

TEST(RangeCheck, BoundsPass) {
  // Row by row: xx xy xz / yx yy yz / zx zy zz.
  const double on_bounds[9] = {1.0, 0.0, 0.0, 0.75, -0.5, 0.0, -0.75, 0.75, -0.5};
  EXPECT_TRUE(order_in_range(on_bounds));
  const double diag_high[9] = {0, 0, 0, 0, 1.0000001, 0, 0, 0, 0};
  EXPECT_FALSE(order_in_range(diag_high));
  const double diag_low[9] = {0, 0, 0, 0, 0, 0, 0, 0, -0.5000001};
  EXPECT_FALSE(order_in_range(diag_low));
  const double off_high[9] = {0, 0, 0, 0, 0, 0, 0.7500001, 0, 0};
  EXPECT_FALSE(order_in_range(off_high));
  const double off_low[9] = {0, 0, 0, 0, 0, 0, 0, -0.7500001, 0};
  EXPECT_FALSE(order_in_range(off_low));
  // Only (y,x), (z,x), (z,y) are tested among the off-diagonal elements.
  const double upper_only[9] = {0, 5.0, -5.0, 0, 0, 5.0, 0, 0, 0};
  EXPECT_TRUE(order_in_range(upper_only));
  const double nan_matrix[9] = {NAN, NAN, NAN, NAN, NAN, NAN, NAN, NAN, NAN};
  EXPECT_TRUE(order_in_range(nan_matrix));
}

TEST(RangeCheck, BackCalculationOnTheBoundsIsInside) {
  const float dc = 26.298f;
  const float e = 3.005272f;
  EXPECT_FALSE(outside_experimental_range(static_cast<double>(dc + e), dc, e));
  EXPECT_FALSE(outside_experimental_range(static_cast<double>(dc - e), dc, e));
  EXPECT_TRUE(outside_experimental_range(static_cast<double>(dc + e) + 1e-6, dc, e));
  EXPECT_TRUE(outside_experimental_range(static_cast<double>(dc - e) - 1e-6, dc, e));
  EXPECT_FALSE(outside_experimental_range(std::nan(""), dc, e));
  // The bounds are formed in single precision: 1 +/- 2e-8 round to 1, so a
  // prediction of 1.00000001 is outside although within the double bounds.
  EXPECT_TRUE(outside_experimental_range(1.00000001, 1.0f, 2e-8f));
  EXPECT_TRUE(outside_experimental_range(0.99999999, 1.0f, 2e-8f));
}

}  // namespace
}  // namespace vorn
