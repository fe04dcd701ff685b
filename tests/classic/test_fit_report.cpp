// The classic reports of the comparison with measured couplings and of the
// SVD fit.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "capture.hpp"
#include "classic/fit_report.hpp"
#include "core/fatal.hpp"
#include "vorn/classic.hpp"

namespace vorn {
namespace {

const double kSaupe[5] = {8.0e-4, -3.0e-4, 1.5e-4, -2.0e-4, 4.0e-4};

const std::string kHeader =
    "\nComparison of predicted residual dipolar couplings with measured ones [Hz]\n"
    "==========================================================================\n";
const std::string kListingHead =
    "resid  [DC type]    predicted    measured     pred. - meas.\n"
    "-----  ---------    ---------    --------     -------------\n";

float di_val(int type) { return static_cast<float>(classic_coupling_scale(type)); }

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
  CouplingArrays c;
  int n = 0;
  void add(int residue, double value, int type, double x, double y, double z) {
    ++n;
    c.dc_res[n] = residue;
    c.dc[n] = value;
    c.dcmax[n] = type;
    c.coor_x[n] = x;
    c.coor_y[n] = y;
    c.coor_z[n] = z;
  }
};

std::vector<std::string> split_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

TEST(CompMeasPred, ListingAndStatisticsByHand) {
  // Four N-H couplings along the axes and one type-2 coupling.
  const double s[5] = {1.0e-3, 2.0e-4, 0.0, 0.0, 0.0};
  Table t;
  t.add(3, 20.0, 0, 0, 0, 1);    // predicted Szz diVal = 21.523...
  t.add(4, -12.0, 0, 1, 0, 0);   // (-0.5 Szz + 0.5 S2) diVal = -8.609
  t.add(5, -13.0, 0, 0, 1, 0);   // (-0.5 Szz - 0.5 S2) diVal = -12.914
  t.add(6, 5.0, 2, 0, 0, 2);     // Szz diVal(2) = -4.28475
  t.add(7, 1000.0, 0, 0, 0, 1);  // no measured value
  test::Capture out;
  comp_meas_pred(s, t.n, t.c, out.file());
  const std::string text = out.str();

  // Independent statistics on the N-H scale.
  std::vector<double> meas, pred;
  for (int i = 1; i <= 4; ++i) {
    const int type = t.c.dcmax[i];
    meas.push_back(t.c.dc[i] / classic_norm_factor(type));
    pred.push_back(
        static_cast<float>(predict(t.c.coor_x[i], t.c.coor_y[i], t.c.coor_z[i], type, s)) /
        classic_norm_factor(type));
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

  const std::string stats =
      "[statistics over all dipolar couplings normalized to 1D(NH)]\n" +
      format("rmsd: %.2f [Hz]   corr r = %.2f   Q = %.2f\n", rmsd, r, q) +
      format("linear regression:      offset:\t%.2f +/- %.2f [Hz]  slope: %.2f +/- %.2f\n\n",
             offset, siga, slope, sigb);
  std::string listing;
  for (int i = 1; i <= 4; ++i) {
    const double p = predict(t.c.coor_x[i], t.c.coor_y[i], t.c.coor_z[i], t.c.dcmax[i], s);
    listing += format("%d        [%d]        p: %8.2f   m:%8.2f     diff:%7.2f\n", t.c.dc_res[i],
                      t.c.dcmax[i], p, t.c.dc[i], p - t.c.dc[i]);
  }
  listing +=
      format("7        [0]        p: %8.2f   m:     --      diff:    --\n", predict(0, 0, 1, 0, s));
  EXPECT_EQ(text, kHeader + stats + kListingHead + listing);
  // The type-2 line is in its own Hz: Szz diVal(2) = -4.28.
  EXPECT_NE(text.find("6        [2]        p:    -4.28   m:    5.00     diff:  -9.28\n"),
            std::string::npos);
}

TEST(CompMeasPred, ThousandIsNotMeasuredButJustBelowIs) {
  const double s[5] = {1.0e-3, 0.0, 0.0, 0.0, 0.0};
  Table t;
  t.add(1, 10.0, 0, 0, 0, 1);
  t.add(2, -5.0, 0, 1, 0, 0);
  t.add(3, 1.0, 0, 0, 1, 1);
  t.add(4, 1000.0, 0, 0, 0, 1);
  t.add(5, 2500.0, 0, 0, 0, 1);
  Table u = t;  // same entries with 999.99 counted as measured
  u.c.dc[4] = 999.99;
  test::Capture a, b;
  comp_meas_pred(s, t.n, t.c, a.file());
  comp_meas_pred(s, u.n, u.c, b.file());
  const std::vector<std::string> la = split_lines(a.str());
  const std::vector<std::string> lb = split_lines(b.str());
  ASSERT_EQ(la.size(), 14u);
  EXPECT_EQ(la[12], "4        [0]        p:    21.52   m:     --      diff:    --");
  EXPECT_EQ(la[13], "5        [0]        p:    21.52   m:     --      diff:    --");
  EXPECT_EQ(lb[12], "4        [0]        p:    21.52   m:  999.99     diff:-978.47");
  // The entry at 1000.0 does not enter the statistics: the same block as
  // for the three measured entries alone.
  Table three;
  for (int i = 1; i <= 3; ++i)
    three.add(t.c.dc_res[i], t.c.dc[i], 0, t.c.coor_x[i], t.c.coor_y[i], t.c.coor_z[i]);
  test::Capture c;
  comp_meas_pred(s, three.n, three.c, c.file());
  const std::vector<std::string> lc = split_lines(c.str());
  EXPECT_EQ(la[4], lc[4]);
  EXPECT_EQ(la[5], lc[5]);
  EXPECT_NE(lb[4], lc[4]) << "999.99 is measured and changes the statistics";
}

TEST(CompMeasPred, ConstantOffsetGivesZeroRmsdButNonZeroQ) {
  const double s[5] = {1.0e-3, 2.0e-4, 0.0, 0.0, 0.0};
  Table t;
  const double vectors[4][3] = {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  for (int i = 0; i < 4; ++i) {
    // The prediction as the comparison stores it (single precision); 3 Hz
    // below it is exact in single precision too, so every difference is 3.
    const float p = static_cast<float>(
        classic_back_calculate({s[0], s[1], s[2], s[3], s[4]},
                               Vec3{vectors[i][0], vectors[i][1], vectors[i][2]}, di_val(0)));
    const double measured = static_cast<double>(p) - 3.0;
    ASSERT_EQ(static_cast<double>(static_cast<float>(measured)), measured);
    t.add(i + 1, measured, 0, vectors[i][0], vectors[i][1], vectors[i][2]);
  }
  test::Capture out;
  comp_meas_pred(s, t.n, t.c, out.file());
  const std::vector<std::string> lines = split_lines(out.str());
  double sm2 = 0;
  for (int i = 1; i <= 4; ++i) sm2 += t.c.dc[i] * t.c.dc[i];
  const double q = std::sqrt(4 * 9.0 / sm2);
  EXPECT_EQ(lines[4], format("rmsd: 0.00 [Hz]   corr r = 1.00   Q = %.2f", q));
  EXPECT_GT(q, 0.1);
  EXPECT_EQ(lines[5], "linear regression:      offset:\t3.00 +/- 0.00 [Hz]  slope: 1.00 +/- 0.00");
}

TEST(CompMeasPred, ZeroVectorsPredictMinusHalfSzz) {
  const double s[5] = {4.561235e-04, 6.74679e-05, 3.325749e-04, 7.181710e-04, 4.394025e-04};
  Table t;
  const double measured[] = {8.17, -8.27, -10.49, -9.87, -9.15, 7.53};
  for (int i = 0; i < 6; ++i) t.add(i + 2, measured[i], 0, 0, 0, 0);
  test::Capture out;
  comp_meas_pred(s, t.n, t.c, out.file());
  const std::vector<std::string> lines = split_lines(out.str());
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
  EXPECT_EQ(lines[4].substr(0, 15), format("rmsd: %.2f [Hz]", rmsd));
  EXPECT_NE(lines[4].find(format("Q = %.2f", std::sqrt(dd / sum2))), std::string::npos);
  EXPECT_TRUE(lines[4].find("corr r = 0.00") != std::string::npos ||
              lines[4].find("corr r = -0.00") != std::string::npos)
      << lines[4];
  EXPECT_EQ(lines[5], "linear regression:      offset:\t-4.91 +/- 0.00 [Hz]  slope: 0.00 +/- 0.00");
  EXPECT_EQ(lines[9], "2        [0]        p:    -4.91   m:    8.17     diff: -13.08");
}

TEST(CompMeasPred, AllMeasuredZeroPrintsQZero) {
  const double s[5] = {1.0e-3, 0.0, 0.0, 0.0, 0.0};
  Table t;
  t.add(1, 0.0, 0, 0, 0, 1);
  t.add(2, 0.0, 0, 1, 0, 0);
  t.add(3, 0.0, 1, 0, 1, 1);
  test::Capture out;
  comp_meas_pred(s, t.n, t.c, out.file());
  const std::vector<std::string> lines = split_lines(out.str());
  const std::string& stats = lines[4];
  EXPECT_EQ(stats.substr(stats.size() - 8), "Q = 0.00");
}

void expect_betacf_error_after_header(const Table& t) {
  const double s[5] = {1.0e-3, 0.0, 0.0, 0.0, 0.0};
  test::Capture out;
  try {
    comp_meas_pred(s, t.n, t.c, out.file());
    ADD_FAILURE() << "no error";
  } catch (const FatalError& error) {
    EXPECT_EQ(error.text(),
              "Numerical Recipes run-time error...\na or b too big, or MAXIT too small in "
              "betacf\n...now exiting to system...\n");
    EXPECT_EQ(error.stream(), Stream::err);
    EXPECT_EQ(error.status(), 1);
  }
  EXPECT_EQ(out.str(), kHeader);
}

TEST(CompMeasPred, FewerThanThreeMeasuredEndAfterTheHeader) {
  Table one;
  one.add(1, 5.0, 0, 0, 0, 1);
  one.add(2, 1000.0, 0, 1, 0, 0);
  expect_betacf_error_after_header(one);
  Table two;
  two.add(1, 5.0, 0, 0, 0, 1);
  two.add(2, -3.0, 1, 1, 0, 0);
  two.add(3, 1200.0, 0, 1, 0, 0);
  expect_betacf_error_after_header(two);
  Table none;
  none.add(1, 1000.0, 0, 0, 0, 1);
  none.add(2, 3000.0, 0, 1, 0, 0);
  expect_betacf_error_after_header(none);
  expect_betacf_error_after_header(Table{});
}

TEST(CompMeasPred, MoreThan399CouplingsAreAllListed) {
  const double s[5] = {1.0e-3, 2.0e-4, 1.0e-4, 0.0, 0.0};
  Table t;
  for (int i = 1; i <= 450; ++i) {
    const double x = std::cos(0.1 * i), y = std::sin(0.37 * i), z = 0.5;
    t.add(i, predict(x, y, z, 0, s) + 0.01 * (i % 7), 0, x, y, z);
  }
  test::Capture out;
  comp_meas_pred(s, t.n, t.c, out.file());
  const std::vector<std::string> lines = split_lines(out.str());
  ASSERT_EQ(lines.size(), 9u + 450u);
  EXPECT_EQ(lines.back().substr(0, 3), "450");
}

// ---------------------------------------------------------------------------
// What the SVD fit prints.

const std::string kRangeHeading =
    "Predicted residual dipolar couplings not within the experimental range:\n";

std::string svd_text(const ClassicSvdFit& fit) {
  test::Capture out;
  print_svd_fit(fit, out.file());
  return out.str();
}

TEST(PrintSvdFit, RowCountAndRangeHeading) {
  ClassicSvdFit fit;
  fit.rows = 305;
  fit.order_in_range = true;
  EXPECT_EQ(svd_text(fit), "# of DC: 305\n" + kRangeHeading);
  // A tensor outside the physical range: no heading, no listing.
  fit.order_in_range = false;
  fit.outside.push_back({3, 1.0, 1.0f, 2.0f, 0.0f, 5.0});
  EXPECT_EQ(svd_text(fit), "# of DC: 305\n");
}

TEST(PrintSvdFit, FailedDecompositionAndSingularDesign) {
  ClassicSvdFit fit;
  fit.rows = 63;
  fit.info = 5;
  fit.order_in_range = true;
  EXPECT_EQ(svd_text(fit), "# of DC: 63\nsvd barfed, info 5\n" + kRangeHeading);
  fit.info = 0;
  fit.rows = 6;
  fit.singular = true;
  EXPECT_EQ(svd_text(fit),
            "# of DC: 6\n the a matrix is singular above expactation\n" + kRangeHeading);
  fit.info = 2;
  fit.order_in_range = false;
  EXPECT_EQ(svd_text(fit),
            "# of DC: 6\nsvd barfed, info 2\n the a matrix is singular above expactation\n");
}

TEST(PrintSvdFit, RowsOutsideTheirRangeInOrder) {
  ClassicSvdFit fit;
  fit.rows = 305;
  fit.order_in_range = true;
  // Measured, dc, dc + e, back-calculated, dc - e: the two '>' whatever the
  // side of the violation.
  fit.outside.push_back({66, 26.298000335693359, 26.298f, 29.303272f, 23.292728f, 23.095089});
  fit.outside.push_back({70, -4.5, -4.5f, -3.0f, -6.0f, -2.5});
  EXPECT_EQ(svd_text(fit), "# of DC: 305\n" + kRangeHeading +
                               "66: 26.298000  26.298000  29.303272  >  23.095089  >  23.292728\n"
                               "70: -4.500000  -4.500000  -3.000000  >  -2.500000  >  -6.000000\n");
}

}  // namespace
}  // namespace vorn
