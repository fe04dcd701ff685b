// Predicted couplings and the comparison statistics (the printed block is
// the classic front end's: tests/classic/test_fit_report.cpp).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "core/fatal.hpp"
#include "couplings/classic_types.hpp"
#include "fit/compare.hpp"

namespace vorn {
namespace {

const double kSaupe[5] = {8.0e-4, -3.0e-4, 1.5e-4, -2.0e-4, 4.0e-4};

float di_val(int type) { return static_cast<float>(maxDIPCOUP[type] * radiusInCubeDCTypes[type]); }

// Prediction by the projection of the unit vector on the tensor, written out
// independently.
double predict(double x, double y, double z, int type, const double s[5]) {
  const double r = std::sqrt(x * x + y * y + z * z);
  if (r > 0) {
    x /= r;
    y /= r;
    z /= r;
  }
  const double p = s[0] * (1.5 * z * z - 0.5) + s[1] * 0.5 * (x * x - y * y) + s[2] * 2 * x * y +
                   s[3] * 2 * x * z + s[4] * 2 * y * z;
  return p * static_cast<double>(di_val(type));
}

struct Table {
  std::vector<ClassicCoupling> c;
  void add(int residue, double value, int type, double x, double y, double z) {
    c.push_back({residue, value, type, Vec3{x, y, z}});
  }
};

// The statistics as the classic report prints them (two decimals).
std::string stats_line(double rmsd, double r, double q) {
  return format("rmsd: %.2f [Hz]   corr r = %.2f   Q = %.2f", rmsd, r, q);
}
std::string stats_line(const ClassicComparison& c) { return stats_line(c.rmsd, c.r, c.q); }
std::string regression_line(double offset, double offset_sd, double slope, double slope_sd) {
  return format("offset:\t%.2f +/- %.2f [Hz]  slope: %.2f +/- %.2f", offset, offset_sd, slope,
                slope_sd);
}
std::string regression_line(const ClassicComparison& c) {
  return regression_line(c.offset, c.offset_sd, c.slope, c.slope_sd);
}
// A predicted or measured value as the listing prints it.
std::string hz(double value) { return format("%8.2f", value); }

TEST(FindD, ZeroVectorPredictsMinusHalfSzz) {
  const double d = findD(0.0, 0.0, 0.0, 21523.0, kSaupe);
  EXPECT_DOUBLE_EQ(d, -0.5 * kSaupe[0] * 21523.0);
}

TEST(FindD, AxesAndGeneralVector) {
  const double di = 1000.0;
  EXPECT_DOUBLE_EQ(findD(0, 0, 2.5, di, kSaupe), kSaupe[0] * di);
  EXPECT_DOUBLE_EQ(findD(-3, 0, 0, di, kSaupe), (-0.5 * kSaupe[0] + 0.5 * kSaupe[1]) * di);
  EXPECT_DOUBLE_EQ(findD(0, 0.1, 0, di, kSaupe), (-0.5 * kSaupe[0] - 0.5 * kSaupe[1]) * di);
  // Unit vector (1, 2, 2) / 3, by hand: c1 = (3 * 4/9 - 1) / 2 = 1/6,
  // c2 = (1/9 - 4/9) / 2 = -1/6, c3 = 4/9, c4 = 4/9, c5 = 8/9.
  const double expected =
      (kSaupe[0] / 6 - kSaupe[1] / 6 + kSaupe[2] * 4 / 9 + kSaupe[3] * 4 / 9 + kSaupe[4] * 8 / 9) *
      di;
  EXPECT_NEAR(findD(1, 2, 2, di, kSaupe), expected, 1e-15);
  EXPECT_NEAR(findD(10, 20, 20, di, kSaupe), expected, 1e-15) << "length does not matter";
}

TEST(CompareCouplings, PredictionsAndStatisticsByHand) {
  // Four N-H couplings along the axes and one type-2 coupling.
  const double s[5] = {1.0e-3, 2.0e-4, 0.0, 0.0, 0.0};
  Table t;
  t.add(3, 20.0, 0, 0, 0, 1);    // predicted Szz diVal = 21.523...
  t.add(4, -12.0, 0, 1, 0, 0);   // (-0.5 Szz + 0.5 S2) diVal = -8.609
  t.add(5, -13.0, 0, 0, 1, 0);   // (-0.5 Szz - 0.5 S2) diVal = -12.914
  t.add(6, 5.0, 2, 0, 0, 2);     // Szz diVal(2) = -4.28475
  t.add(7, 1000.0, 0, 0, 0, 1);  // no measured value
  const ClassicComparison c = compare_couplings(s, t.c);
  EXPECT_EQ(c.measured, 4);
  ASSERT_EQ(c.predicted.size(), 5u);

  // Independent statistics on the N-H scale.
  std::vector<double> meas, pred;
  for (int i = 0; i < 4; ++i) {
    const ClassicCoupling& m = t.c[i];
    meas.push_back(m.value_hz / dcNORMFACTORS[m.type]);
    pred.push_back(static_cast<float>(predict(m.vector.x, m.vector.y, m.vector.z, m.type, s)) /
                   dcNORMFACTORS[m.type]);
  }
  double sd = 0, sd2 = 0, sm2 = 0, mm = 0, mp = 0;
  for (size_t i = 0; i < 4; ++i) {
    const double d = pred[i] - meas[i];
    sd += d;
    sd2 += d * d;
    sm2 += meas[i] * meas[i];
    mm += meas[i] / 4;
    mp += pred[i] / 4;
  }
  const double rmsd = std::sqrt(sd2 / 4 - (sd / 4) * (sd / 4));
  const double q = std::sqrt(sd2 / sm2);
  double sxx = 0, syy = 0, sxy = 0;
  for (size_t i = 0; i < 4; ++i) {
    sxx += (meas[i] - mm) * (meas[i] - mm);
    syy += (pred[i] - mp) * (pred[i] - mp);
    sxy += (meas[i] - mm) * (pred[i] - mp);
  }
  const double r = sxy / std::sqrt(sxx * syy);
  const double slope = sxy / sxx;
  const double offset = mp - slope * mm;
  double chi2 = 0;
  for (size_t i = 0; i < 4; ++i) chi2 += std::pow(pred[i] - offset - slope * meas[i], 2);
  const double sigdat = std::sqrt(chi2 / 2);
  const double sigb = sigdat / std::sqrt(sxx);
  const double siga = sigdat * std::sqrt(1.0 / 4 + mm * mm / sxx);

  EXPECT_EQ(stats_line(c), stats_line(rmsd, r, q));
  EXPECT_EQ(regression_line(c), regression_line(offset, siga, slope, sigb));
  for (int i = 0; i < 5; ++i) {
    const ClassicCoupling& m = t.c[i];
    const double p = predict(m.vector.x, m.vector.y, m.vector.z, m.type, s);
    EXPECT_EQ(hz(c.predicted[i]), hz(p)) << i;
    if (i < 4)
      EXPECT_EQ(format("%7.2f", c.predicted[i] - m.value_hz), format("%7.2f", p - m.value_hz));
    EXPECT_NEAR(c.predicted[i], p, 1e-5 * std::fabs(p)) << i;
  }
  EXPECT_EQ(hz(c.predicted[4]), hz(predict(0, 0, 1, 0, s)));
  // The type-2 prediction is in its own Hz: Szz diVal(2) = -4.28.
  EXPECT_EQ(hz(c.predicted[3]), "   -4.28");
  EXPECT_EQ(format("%7.2f", c.predicted[3] - 5.0), "  -9.28");
}

TEST(CompareCouplings, ThousandIsNotMeasuredButJustBelowIs) {
  const double s[5] = {1.0e-3, 0.0, 0.0, 0.0, 0.0};
  Table t;
  t.add(1, 10.0, 0, 0, 0, 1);
  t.add(2, -5.0, 0, 1, 0, 0);
  t.add(3, 1.0, 0, 0, 1, 1);
  t.add(4, 1000.0, 0, 0, 0, 1);
  t.add(5, 2500.0, 0, 0, 0, 1);
  Table u = t;  // same entries with 999.99 counted as measured
  u.c[3].value_hz = 999.99;
  const ClassicComparison a = compare_couplings(s, t.c);
  const ClassicComparison b = compare_couplings(s, u.c);
  ASSERT_EQ(a.predicted.size(), 5u);
  EXPECT_EQ(a.measured, 3);
  EXPECT_EQ(b.measured, 4);
  // Entries without a measured value are still predicted.
  EXPECT_EQ(hz(a.predicted[3]), "   21.52");
  EXPECT_EQ(hz(a.predicted[4]), "   21.52");
  EXPECT_EQ(hz(b.predicted[3]), "   21.52");
  EXPECT_EQ(format("%7.2f", b.predicted[3] - 999.99), "-978.47");
  // The entry at 1000.0 does not enter the statistics: the same as for the
  // three measured entries alone.
  Table three;
  for (int i = 0; i < 3; ++i) three.c.push_back(t.c[i]);
  const ClassicComparison c = compare_couplings(s, three.c);
  EXPECT_EQ(stats_line(a), stats_line(c));
  EXPECT_EQ(regression_line(a), regression_line(c));
  EXPECT_EQ(a.rmsd, c.rmsd);
  EXPECT_EQ(a.r, c.r);
  EXPECT_EQ(a.q, c.q);
  EXPECT_NE(stats_line(b), stats_line(c)) << "999.99 is measured and changes the statistics";
}

TEST(CompareCouplings, ConstantOffsetGivesZeroRmsdButNonZeroQ) {
  const double s[5] = {1.0e-3, 2.0e-4, 0.0, 0.0, 0.0};
  Table t;
  const double vectors[4][3] = {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  for (int i = 0; i < 4; ++i) {
    // The prediction as the comparison stores it (single precision); 3 Hz
    // below it is exact in single precision too, so every difference is 3.
    const float p =
        static_cast<float>(findD(vectors[i][0], vectors[i][1], vectors[i][2], di_val(0), s));
    const double measured = static_cast<double>(p) - 3.0;
    ASSERT_EQ(static_cast<double>(static_cast<float>(measured)), measured);
    t.add(i + 1, measured, 0, vectors[i][0], vectors[i][1], vectors[i][2]);
  }
  const ClassicComparison c = compare_couplings(s, t.c);
  double sm2 = 0;
  for (const ClassicCoupling& m : t.c) sm2 += m.value_hz * m.value_hz;
  const double q = std::sqrt(4 * 9.0 / sm2);
  EXPECT_EQ(stats_line(c), format("rmsd: 0.00 [Hz]   corr r = 1.00   Q = %.2f", q));
  EXPECT_GT(q, 0.1);
  EXPECT_EQ(regression_line(c), "offset:\t3.00 +/- 0.00 [Hz]  slope: 1.00 +/- 0.00");
}

TEST(CompareCouplings, ZeroVectorsPredictMinusHalfSzz) {
  const double s[5] = {4.561235e-04, 6.74679e-05, 3.325749e-04, 7.181710e-04, 4.394025e-04};
  Table t;
  const double measured[] = {8.17, -8.27, -10.49, -9.87, -9.15, 7.53};
  for (int i = 0; i < 6; ++i) t.add(i + 2, measured[i], 0, 0, 0, 0);
  const ClassicComparison c = compare_couplings(s, t.c);
  const std::string stats = stats_line(c);
  const double p = -0.5 * s[0] * di_val(0);
  ASSERT_EQ(format("%.2f", p), "-4.91");
  // Constant predictions: the spread is that of the measurements, r is 0.
  double sum = 0, sum2 = 0, dd = 0, mm = 0;
  for (double m : measured) {
    sum += m;
    sum2 += m * m;
    dd += (p - m) * (p - m);
  }
  mm = sum / 6;
  const double rmsd = std::sqrt(sum2 / 6 - mm * mm);
  EXPECT_EQ(stats.substr(0, 15), format("rmsd: %.2f [Hz]", rmsd));
  EXPECT_NE(stats.find(format("Q = %.2f", std::sqrt(dd / sum2))), std::string::npos);
  EXPECT_TRUE(stats.find("corr r = 0.00") != std::string::npos ||
              stats.find("corr r = -0.00") != std::string::npos)
      << stats;
  EXPECT_EQ(regression_line(c), "offset:\t-4.91 +/- 0.00 [Hz]  slope: 0.00 +/- 0.00");
  EXPECT_EQ(hz(c.predicted[0]), "   -4.91");
  EXPECT_EQ(format("%7.2f", c.predicted[0] - 8.17), " -13.08");
}

TEST(CompareCouplings, AllMeasuredZeroGivesQZero) {
  const double s[5] = {1.0e-3, 0.0, 0.0, 0.0, 0.0};
  Table t;
  t.add(1, 0.0, 0, 0, 0, 1);
  t.add(2, 0.0, 0, 1, 0, 0);
  t.add(3, 0.0, 1, 0, 1, 1);
  const ClassicComparison c = compare_couplings(s, t.c);
  const std::string stats = stats_line(c);
  EXPECT_EQ(stats.substr(stats.size() - 8), "Q = 0.00");
  EXPECT_EQ(c.q, 0.0);
}

void expect_betacf_error(const Table& t) {
  const double s[5] = {1.0e-3, 0.0, 0.0, 0.0, 0.0};
  try {
    compare_couplings(s, t.c);
    ADD_FAILURE() << "no error";
  } catch (const FatalError& error) {
    EXPECT_EQ(error.text(),
              "Numerical Recipes run-time error...\na or b too big, or MAXIT too small in "
              "betacf\n...now exiting to system...\n");
    EXPECT_EQ(error.stream(), Stream::err);
    EXPECT_EQ(error.status(), 1);
  }
}

TEST(CompareCouplings, FewerThanThreeMeasuredThrowFromTheCorrelation) {
  Table one;
  one.add(1, 5.0, 0, 0, 0, 1);
  one.add(2, 1000.0, 0, 1, 0, 0);
  expect_betacf_error(one);
  Table two;
  two.add(1, 5.0, 0, 0, 0, 1);
  two.add(2, -3.0, 1, 1, 0, 0);
  two.add(3, 1200.0, 0, 1, 0, 0);
  expect_betacf_error(two);
  Table none;
  none.add(1, 1000.0, 0, 0, 0, 1);
  none.add(2, 3000.0, 0, 1, 0, 0);
  expect_betacf_error(none);
  expect_betacf_error(Table{});
}

TEST(CompareCouplings, MoreThan399CouplingsAreAllPredicted) {
  const double s[5] = {1.0e-3, 2.0e-4, 1.0e-4, 0.0, 0.0};
  Table t;
  for (int i = 1; i <= 450; ++i) {
    const double x = std::cos(0.1 * i), y = std::sin(0.37 * i), z = 0.5;
    t.add(i, predict(x, y, z, 0, s) + 0.01 * (i % 7), 0, x, y, z);
  }
  const ClassicComparison c = compare_couplings(s, t.c);
  ASSERT_EQ(c.predicted.size(), 450u);
  EXPECT_EQ(c.measured, 450);
  EXPECT_EQ(hz(c.predicted.back()),
            hz(predict(t.c.back().vector.x, t.c.back().vector.y, 0.5, 0, s)));
}

}  // namespace
}  // namespace vorn
