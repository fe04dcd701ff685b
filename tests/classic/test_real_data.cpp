// The comparison and the fit on real data, as the classic program reads,
// fits and reports them: ubiquitin couplings measured in a bicelle medium
// (five coupling types) on model 1 of the NMR structure.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "capture.hpp"
#include "classic/dc_file.hpp"
#include "classic/fit_report.hpp"
#include "core/fatal.hpp"
#include "real_data_support.hpp"
#include "vorn/classic.hpp"
#include "vorn/settings.hpp"

namespace vorn {
namespace {

std::vector<std::string> split_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

struct DataSet {
  AtomArrays atoms;
  int natoms = 0;
  CouplingArrays couplings;
  int ndc = 0;
  int dab_sign = 0;
};

// Reads the coupling file and the vectors from the structure; with
// no_protons the hydrogens are left out, as in an X-ray structure.
DataSet load(const char* dc_file, bool no_protons = false) {
  DataSet d;
  d.natoms = test::read_atoms(test::data_path("structures/ubq_1d3z_m1.pdb"), d.atoms);
  if (no_protons) {
    int kept = 0;
    for (int j = 1; j <= d.natoms; ++j) {
      if (d.atoms.atom[j] == 551 || d.atoms.atom[j] == 476) continue;
      ++kept;
      d.atoms.x[kept] = d.atoms.x[j];
      d.atoms.y[kept] = d.atoms.y[j];
      d.atoms.z[kept] = d.atoms.z[j];
      d.atoms.atom[kept] = d.atoms.atom[j];
      d.atoms.res_nr[kept] = d.atoms.res_nr[j];
    }
    d.natoms = kept;
  }
  int flags[10] = {0, 0, 0, 1, 0, 0, 0, 0, 0, 0};
  FILE* files[10] = {};
  files[3] = std::fopen(test::data_path(dc_file).c_str(), "r");
  if (files[3] == nullptr) return d;
  d.dab_sign = 1;
  d.ndc = reading_DCfile(flags, files, d.couplings, d.dab_sign);
  reading_vectors(d.ndc, d.couplings, d.natoms, d.atoms);
  return d;
}

// Eigenvalues of a symmetric 3 by 3 matrix by the trigonometric solution of
// its characteristic polynomial, ordered by decreasing magnitude.
std::array<double, 3> eigenvalues(const double m[3][3]) {
  const double q = (m[0][0] + m[1][1] + m[2][2]) / 3.0;
  const double p1 = m[0][1] * m[0][1] + m[0][2] * m[0][2] + m[1][2] * m[1][2];
  const double p2 = (m[0][0] - q) * (m[0][0] - q) + (m[1][1] - q) * (m[1][1] - q) +
                    (m[2][2] - q) * (m[2][2] - q) + 2.0 * p1;
  const double p = std::sqrt(p2 / 6.0);
  double b[3][3];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) b[i][j] = (m[i][j] - (i == j ? q : 0.0)) / p;
  const double det = b[0][0] * (b[1][1] * b[2][2] - b[1][2] * b[2][1]) -
                     b[0][1] * (b[1][0] * b[2][2] - b[1][2] * b[2][0]) +
                     b[0][2] * (b[1][0] * b[2][1] - b[1][1] * b[2][0]);
  const double r = std::clamp(det / 2.0, -1.0, 1.0);
  const double phi = std::acos(r) / 3.0;
  const double pi = 3.14159265358979323846;
  std::array<double, 3> e = {q + 2 * p * std::cos(phi), q + 2 * p * std::cos(phi + 2 * pi / 3),
                             0.0};
  e[2] = 3 * q - e[0] - e[1];
  std::sort(e.begin(), e.end(), [](double a, double c) { return std::fabs(a) > std::fabs(c); });
  return e;
}

TEST(RealData, FitOfTheBicelleCouplings) {
  DataSet d = load("couplings/ubq_2mjb_t500_bicelleA.dc");
  ASSERT_EQ(d.ndc, 305);
  double lowest = 0.0, highest = 0.0;
  for (int i = 1; i <= d.ndc; ++i) {
    const double v = d.couplings.dc[i] / classic_norm_factor(d.couplings.dcmax[i]);
    lowest = std::min(lowest, v);
    highest = std::max(highest, v);
  }
  EXPECT_EQ(d.dab_sign, std::fabs(lowest) > std::fabs(highest) ? -1 : 1);
  Settings settings;
  const ClassicSvdFit fit =
      classic_svd_fit(classic_couplings(d.ndc, d.couplings), settings.nherror);
  EXPECT_EQ(fit.rows, 305);
  const double saupe[5] = {fit.saupe[0], fit.saupe[1], fit.saupe[2], fit.saupe[3], fit.saupe[4]};
  test::Capture fit_out;
  print_svd_fit(fit, fit_out.file());
  const std::vector<std::string> lines = split_lines(fit_out.str());
  ASSERT_GE(lines.size(), 3u);
  // As printed by an independent implementation of the same rules.
  EXPECT_EQ(lines[0], "# of DC: 305");
  EXPECT_EQ(lines[1], "Predicted residual dipolar couplings not within the experimental range:");
  EXPECT_EQ(lines[2], "66: 26.298000  26.298000  29.303272  >  23.095089  >  23.292728");

  // Plausibility of the fitted tensor: Da(NH) about +10 Hz, R about 0.16.
  const double full[3][3] = {{-0.5 * (saupe[0] - saupe[1]), saupe[2], saupe[3]},
                             {saupe[2], -0.5 * (saupe[0] + saupe[1]), saupe[4]},
                             {saupe[3], saupe[4], saupe[0]}};
  const std::array<double, 3> a = eigenvalues(full);
  const double da = 21523.110491698444 * a[0] / 2.0;
  const double rhombicity = std::fabs(a[2] - a[1]) / (1.5 * std::fabs(a[0]));
  std::printf("fitted Da(NH) = %.4f Hz, R = %.4f, eigenvalues %.6e %.6e %.6e\n", da, rhombicity,
              a[0], a[1], a[2]);
  EXPECT_GT(da, 9.0);
  EXPECT_LT(da, 10.5);
  EXPECT_GT(rhombicity, 0.12);
  EXPECT_LT(rhombicity, 0.20);
  EXPECT_NEAR(a[0] + a[1] + a[2], 0.0, 1e-12);

  // Quality factor on the N-H scale, computed here from the tensor.
  double diff2 = 0.0, meas2 = 0.0;
  for (int i = 1; i <= d.ndc; ++i) {
    const int type = d.couplings.dcmax[i];
    const double x = d.couplings.coor_x[i], y = d.couplings.coor_y[i], z = d.couplings.coor_z[i];
    const double r = std::sqrt(x * x + y * y + z * z);
    const double ux = x / r, uy = y / r, uz = z / r;
    const double p = (saupe[0] * (1.5 * uz * uz - 0.5) + saupe[1] * 0.5 * (ux * ux - uy * uy) +
                      2 * saupe[2] * ux * uy + 2 * saupe[3] * ux * uz + 2 * saupe[4] * uy * uz) *
                     classic_coupling_scale(type) / classic_norm_factor(type);
    const double meas = d.couplings.dc[i] / classic_norm_factor(type);
    diff2 += (p - meas) * (p - meas);
    meas2 += meas * meas;
  }
  const double q = std::sqrt(diff2 / meas2);
  std::printf("Q (N-H scale) = %.4f\n", q);

  test::Capture cmp;
  comp_meas_pred(saupe, d.ndc, d.couplings, cmp.file());
  const std::vector<std::string> c = split_lines(cmp.str());
  ASSERT_EQ(c.size(), 9u + 305u);
  EXPECT_EQ(c[4], "rmsd: 1.73 [Hz]   corr r = 1.00   Q = 0.11");
  EXPECT_EQ(c[5], "linear regression:      offset:\t0.00 +/- 0.05 [Hz]  slope: 0.90 +/- 0.00");
  EXPECT_NE(c[4].find(format("Q = %.2f", q)), std::string::npos);
  EXPECT_EQ(c[9], "2        [0]        p:     8.08   m:    8.17     diff:  -0.09");
}

TEST(RealData, ComparisonOfAGivenTensor) {
  // The simulated tensor of the independent implementation's bicelle run
  // (its printed Saupe matrix) and the block it printed for it.
  const DataSet d = load("couplings/ubq_2mjb_t500_bicelleA.dc");
  const double saupe[5] = {9.105075e-04, -4.667780e-04 - -4.437295e-04, 4.878501e-05, 3.119747e-04,
                           -6.723455e-04};
  test::Capture cmp;
  comp_meas_pred(saupe, d.ndc, d.couplings, cmp.file());
  const std::vector<std::string> c = split_lines(cmp.str());
  ASSERT_EQ(c.size(), 9u + 305u);
  EXPECT_EQ(c[4], "rmsd: 4.69 [Hz]   corr r = 0.98   Q = 0.29");
  EXPECT_EQ(c[5], "linear regression:      offset:\t0.11 +/- 0.21 [Hz]  slope: 1.19 +/- 0.01");
  EXPECT_EQ(c[9], "2        [0]        p:    11.40   m:    8.17     diff:   3.23");
  EXPECT_EQ(c.back(), "70        [4]        p:     2.78   m:    1.26     diff:   1.52");
}

TEST(RealData, StructureWithoutProtonsGivesZeroVectors) {
  const DataSet d = load("couplings/ubq_2mjb_t500_bicelleA_nh.dc", true);
  ASSERT_EQ(d.ndc, 63);
  for (int i = 1; i <= d.ndc; ++i) {
    ASSERT_EQ(d.couplings.coor_x[i], 0.0);
    ASSERT_EQ(d.couplings.coor_y[i], 0.0);
    ASSERT_EQ(d.couplings.coor_z[i], 0.0);
  }
  const double saupe[5] = {4.561235e-04, -1.943278e-04 - -2.617957e-04, 3.325749e-04, 7.181710e-04,
                           4.394025e-04};
  test::Capture cmp;
  comp_meas_pred(saupe, d.ndc, d.couplings, cmp.file());
  const std::vector<std::string> c = split_lines(cmp.str());
  EXPECT_EQ(c[4], "rmsd: 7.11 [Hz]   corr r = -0.00   Q = 0.88");
  EXPECT_EQ(c[5], "linear regression:      offset:\t-4.91 +/- 0.00 [Hz]  slope: 0.00 +/- 0.00");
  ASSERT_EQ(c.size(), 9u + 63u);
  for (size_t i = 9; i < c.size(); ++i)
    ASSERT_NE(c[i].find("]        p:    -4.91   m:"), std::string::npos) << c[i];

  Settings settings;
  const ClassicSvdFit fit =
      classic_svd_fit(classic_couplings(d.ndc, d.couplings), settings.nherror);
  test::Capture fit_out;
  print_svd_fit(fit, fit_out.file());
  EXPECT_EQ(fit_out.str(),
            "# of DC: 63\nsvd barfed, info 5\n"
            "Predicted residual dipolar couplings not within the experimental range:\n");
  for (double s : fit.saupe) EXPECT_TRUE(std::isnan(s));
}

}  // namespace
}  // namespace vorn
