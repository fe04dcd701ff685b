// The whole analysis chain: Saupe elements in, eigensystem, Euler triples,
// magnitude and the printed report out.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "capture.hpp"
#include "classic/analyze.hpp"
#include "classic/report.hpp"
#include "tensor/principal.hpp"

namespace vorn {
namespace {

struct Result {
  double eigVec[3][3] = {};
  double eigVal[3] = {};
  double da = 99.0;
  double dr = 99.0;
  double alpha[4] = {};
  double beta[4] = {};
  double gamma[4] = {};
  std::string text;
};

Result analyse(const double saupe[5]) {
  Result r;
  test::Capture out;
  EXPECT_EQ(
      analyzeSaupe(saupe, r.eigVec, r.eigVal, r.da, r.dr, r.alpha, r.beta, r.gamma, out.file()), 0);
  r.text = out.str();
  return r;
}

std::string report(const std::string& da_line, const std::string& alpha, const std::string& beta,
                   const std::string& gamma) {
  return "\nMagnitude of alignment tensor\n==============================\n" + da_line +
         "\n\n\nOrientation of alignment tensor\n"
         "(Euler angles [deg.] for 4 equivalent orientations)\n"
         "==================================================\n"
         "alpha   :  " +
         alpha + "\nbeta    :  " + beta + "\ngamma   :  " + gamma + "\n\n";
}

// Zero tensor: xx = yy = -0.0; Jacobi returns at once with v = identity;
// nothing is exchanged, so Z = x axis, Y = y axis; candidate ++ has columns
// (0,0,-1), (0,1,0), (1,0,0): beta = acos(0) = 90, alpha = acos(-1),
// gamma = acos(-1). da = (-0 - (0 + -0) 0.5) / 3 = -0.
TEST(AnalyzeSaupe, ZeroTensor) {
  const double saupe[5] = {0, 0, 0, 0, 0};
  const Result r = analyse(saupe);
  EXPECT_EQ(r.text,
            "\nMagnitude of alignment tensor\n==============================\n"
            "Da(NH) =  -0.0 [Hz]     R = Dr/Da = 0.000\n\n\n"
            "Orientation of alignment tensor\n"
            "(Euler angles [deg.] for 4 equivalent orientations)\n"
            "==================================================\n"
            "alpha   :   180.00     0.00     0.00   180.00  \n"
            "beta    :    90.00    90.00    90.00    90.00  \n"
            "gamma   :   180.00   180.00     0.00     0.00  \n\n");
  EXPECT_TRUE(std::signbit(r.eigVal[0]));
  EXPECT_TRUE(std::signbit(r.eigVal[1]));
  EXPECT_FALSE(std::signbit(r.eigVal[2]));
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) EXPECT_EQ(r.eigVec[i][j], i == j ? 1.0 : 0.0);
  }
  EXPECT_EQ(r.da, 0.0);
  EXPECT_TRUE(std::signbit(r.da));
  EXPECT_EQ(r.dr, 0.0);

  test::Capture out;
  print_eigensystem(2, saupe, r.eigVal, r.eigVec, out.file());
  EXPECT_EQ(out.str(),
            "\neigensystem\n===========\nsaupe matrix\n"
            "-0.000000e+00  0.000000e+00  0.000000e+00  \n"
            "0.000000e+00  -0.000000e+00  0.000000e+00  \n"
            "0.000000e+00  0.000000e+00  0.000000e+00  \n"
            "eigenvalues (Azz,Ayy,Axx)\n"
            "-0.000000e+00  -0.000000e+00  0.000000e+00  \n"
            "eigenvectors (z,y,x)\n"
            "1.000000e+00  0.000000e+00  0.000000e+00  \n"
            "0.000000e+00  1.000000e+00  0.000000e+00  \n"
            "0.000000e+00  0.000000e+00  1.000000e+00  \n\n");
}

// Szz = 2: d = (-1, -1, 2) sorted to (2, -1, -1), columns z, y, x. The
// candidates are the identity and the three half-turns about z, y, x.
TEST(AnalyzeSaupe, AxiallySymmetricDiagonalTensor) {
  const double saupe[5] = {2, 0, 0, 0, 0};
  const Result r = analyse(saupe);
  EXPECT_EQ(
      r.text,
      report("Da(NH) =  21523.1 [Hz]     R = Dr/Da = 0.000", "   0.00   180.00     0.00   180.00  ",
             "   0.00     0.00   180.00   180.00  ", "   0.00     0.00     0.00     0.00  "));
  EXPECT_EQ(r.eigVal[0], 2.0);
  EXPECT_EQ(r.eigVal[1], -1.0);
  EXPECT_EQ(r.eigVal[2], -1.0);
  EXPECT_EQ(r.eigVec[2][0], 1.0);
  EXPECT_EQ(r.eigVec[1][1], 1.0);
  EXPECT_EQ(r.eigVec[0][2], 1.0);
  EXPECT_EQ(r.da, 1.0);
  EXPECT_EQ(r.dr, 0.0);

  test::Capture out;
  print_eigensystem(1, saupe, r.eigVal, r.eigVec, out.file());
  EXPECT_EQ(out.str(),
            "\neigensystem\n===========\n"
            "eigenvalues (Azz,Ayy,Axx)\n"
            "2.000000e+00  -1.000000e+00  -1.000000e+00  \n"
            "eigenvectors (z,y,x)\n"
            "0.000000e+00  0.000000e+00  1.000000e+00  \n"
            "0.000000e+00  1.000000e+00  0.000000e+00  \n"
            "1.000000e+00  0.000000e+00  0.000000e+00  \n\n");
}

// Szz = 1, Sxx-Syy = 1: d = (-0, -1, 1) in axis order x, y, z. Sorting:
// (-1, -0, 1) -> unchanged -> (-1, 1, -0), columns y, z, x. So Azz = -1 and
// Da is negative. Z = y axis, Y = z axis: candidate ++ has columns
// (-1,0,0), (0,0,1), (0,1,0) -> (90, 90, 90); -+ flips alpha to 270, +- flips
// gamma to 270.
TEST(AnalyzeSaupe, OppositeSignTieFromDiagonalInput) {
  const double saupe[5] = {1, 1, 0, 0, 0};
  const Result r = analyse(saupe);
  EXPECT_EQ(r.text,
            report("Da(NH) =  -10761.6 [Hz]     R = Dr/Da = 0.667",
                   "  90.00   270.00    90.00   270.00  ", "  90.00    90.00    90.00    90.00  ",
                   "  90.00    90.00   270.00   270.00  "));
  EXPECT_EQ(r.eigVal[0], -1.0);
  EXPECT_EQ(r.eigVal[1], 1.0);
  EXPECT_EQ(r.eigVal[2], 0.0);
  EXPECT_EQ(r.da, -0.5);
  EXPECT_EQ(r.dr, -1.0 / 3.0);

  // All signs inverted: d = (-0, 1, -1) -> (1, -1, -0), same axes, Da > 0.
  const double inverted[5] = {-1, -1, 0, 0, 0};
  const Result s = analyse(inverted);
  EXPECT_EQ(
      s.text,
      report("Da(NH) =  10761.6 [Hz]     R = Dr/Da = 0.667", "  90.00   270.00    90.00   270.00  ",
             "  90.00    90.00    90.00    90.00  ", "  90.00    90.00   270.00   270.00  "));
  EXPECT_EQ(s.da, 0.5);
}

// Only Sxy = 1: one 45-degree rotation, d = (-1, 1, 0) kept in that order,
// Z = (c, -c, 0), Y = (c, c, 0). Candidate ++: x' = Y x Z = (0, 0, -1), so
// beta = 90, alpha = acos(-1) = 180, gamma = acos(-c) = 135 with m23 < 0
// -> 225. The sign flips give (0, 90, 225), (0, 90, 45), (180, 90, 45).
TEST(AnalyzeSaupe, OppositeSignTieFromOneRotation) {
  const double saupe[5] = {0, 0, 1, 0, 0};
  const Result r = analyse(saupe);
  EXPECT_EQ(r.text,
            report("Da(NH) =  -10761.6 [Hz]     R = Dr/Da = 0.667",
                   " 180.00     0.00     0.00   180.00  ", "  90.00    90.00    90.00    90.00  ",
                   " 225.00   225.00    45.00    45.00  "));
  EXPECT_EQ(r.eigVal[0], -1.0);
  EXPECT_EQ(r.eigVal[1], 1.0);
}

TEST(AnalyzeSaupe, HandsBackThePcaComponents) {
  const double saupe[5] = {3e-4, -1e-4, 2e-4, -5e-5, 1.5e-4};
  const Result r = analyse(saupe);
  double da = 0, dr = 0;
  pca_tensor(r.eigVal, da, dr);
  EXPECT_EQ(r.da, da);
  EXPECT_EQ(r.dr, dr);
  EXPECT_NEAR(r.da, r.eigVal[0] / 2.0, 1e-15);
}

// A tensor from an independent calculation, given to 7 digits; agreement is
// expected to within the last printed digit or so.
TEST(AnalyzeSaupe, AgreesWithIndependentReference) {
  const double saupe[5] = {9.105075e-04, -4.667780e-04 - (-4.437295e-04), 4.878501e-05,
                           3.119747e-04, -6.723455e-04};
  const Result r = analyse(saupe);
  EXPECT_NEAR(r.da * 21523.110491698444, 13.2, 0.051);
  EXPECT_NEAR(r.dr / r.da, 0.210, 0.00051);
  const double alpha[4] = {263.21, 83.21, 276.79, 96.79};
  const double beta[4] = {23.38, 23.38, 156.62, 156.62};
  const double gamma[4] = {246.50, 246.50, 66.50, 66.50};
  for (int k = 0; k < 4; ++k) {
    EXPECT_NEAR(r.alpha[k], alpha[k], 0.006) << k;
    EXPECT_NEAR(r.beta[k], beta[k], 0.006) << k;
    EXPECT_NEAR(r.gamma[k], gamma[k], 0.006) << k;
  }
  const double eigVal[3] = {1.230855e-03, -8.088297e-04, -4.220252e-04};
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(r.eigVal[i], eigVal[i], 2e-9) << i;
  const double eigVec[3][3] = {{1.582232e-01, 4.718852e-01, 8.673464e-01},
                               {-3.639239e-01, -7.887030e-01, 4.954866e-01},
                               {9.178915e-01, -3.940456e-01, 4.693918e-02}};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) EXPECT_NEAR(r.eigVec[i][j], eigVec[i][j], 3e-7) << i << j;
  }
  EXPECT_NE(r.text.find("Da(NH) =  13.2 [Hz]     R = Dr/Da = 0.210\n"), std::string::npos);
}

// Moved here with report_step, now part of the classic report.
TEST(ReportStep, PrintsOnlyOnFailure) {
  test::Capture out;
  report_step(0, "pca_tensor", out.file());
  EXPECT_EQ(out.str(), "");
  report_step(1, "pca_tensor", out.file());
  report_step(-3, "sort_eigensystem", out.file());
  EXPECT_EQ(out.str(), "pca_tensor: error occured\nsort_eigensystem: error occured\n");
}

// The engine's analysis (which replaced saupe2euler) takes no stream and
// has no scratch lists: it hands back the same eigensystem and Euler triples
// that the classic analysis reports, and the classic analysis prints nothing
// but its report.
TEST(AnalyseSaupe, SilentEngineStepAgreesWithClassicAnalysis) {
  const double saupe[5] = {2, 0, 0, 0, 0};
  const TensorAnalysis a = analyse_saupe(saupe);
  EXPECT_EQ(a.eigenvalues[0], 2.0);
  EXPECT_EQ(a.beta[2], std::acos(-1.0) * 180.0 / 3.14159265);

  const Result r = analyse(saupe);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(r.eigVal[i], a.eigenvalues[i]) << i;
    for (int j = 0; j < 3; ++j) EXPECT_EQ(r.eigVec[i][j], a.eigenvectors[i][j]) << i << j;
  }
  for (int k = 0; k < 4; ++k) {
    EXPECT_EQ(r.alpha[k], a.alpha[k]) << k;
    EXPECT_EQ(r.beta[k], a.beta[k]) << k;
    EXPECT_EQ(r.gamma[k], a.gamma[k]) << k;
  }
  EXPECT_EQ(r.da, a.da);
  EXPECT_EQ(r.dr, a.dr);

  test::Capture out;
  EXPECT_EQ(print_analyzation(a.da, a.dr, a.alpha, a.beta, a.gamma, out.file()), 0);
  EXPECT_EQ(r.text, out.str());
  EXPECT_EQ(r.text.find("error occured"), std::string::npos);
}

}  // namespace
}  // namespace vorn
