// Magnitude and rhombicity, the tensor report and the eigensystem listing.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "capture.hpp"
#include "classic/analyze.hpp"
#include "classic/report.hpp"
#include "tensor/principal.hpp"

namespace vorn {
namespace {

const char kOrientationHead[] =
    "\nOrientation of alignment tensor\n"
    "(Euler angles [deg.] for 4 equivalent orientations)\n"
    "==================================================\n";

std::string magnitude(const std::string& line) {
  return "\nMagnitude of alignment tensor\n==============================\n" + line;
}

std::string report(double da, double dr, const double alpha[4], const double beta[4],
                   const double gamma[4]) {
  test::Capture out;
  EXPECT_EQ(print_analyzation(da, dr, alpha, beta, gamma, out.file()), 0);
  return out.str();
}

const double kZero4[4] = {0, 0, 0, 0};
const std::string kZeroAngles = std::string(kOrientationHead) +
                                "alpha   :     0.00     0.00     0.00     0.00  \n"
                                "beta    :     0.00     0.00     0.00     0.00  \n"
                                "gamma   :     0.00     0.00     0.00     0.00  \n\n";

TEST(PcaTensor, OppositeSignPairGivesHalfAndThird) {
  const double ev[3] = {1.0, -1.0, 0.0};
  double da = 0, dr = 0;
  EXPECT_EQ(pca_tensor(ev, da, dr), 0);
  EXPECT_EQ(da, 0.5);  // (1 - (0 - 1) / 2) / 3
  EXPECT_EQ(dr, 1.0 / 3.0);
  const double inv[3] = {-1.0, 1.0, 0.0};
  pca_tensor(inv, da, dr);
  EXPECT_EQ(da, -0.5);
  EXPECT_EQ(dr, -1.0 / 3.0);
}

TEST(PcaTensor, TracelessAxialIsHalfAzz) {
  const double ev[3] = {2.0, -1.0, -1.0};
  double da = 0, dr = 7;
  pca_tensor(ev, da, dr);
  EXPECT_EQ(da, 1.0);
  EXPECT_EQ(dr, 0.0);
}

TEST(PcaTensor, ResortsUnsortedInput) {
  // (0, 1, -2) -> (1, 0, -2) -> (-2, 0, 1) -> (-2, 1, 0).
  const double ev[3] = {0.0, 1.0, -2.0};
  double da = 0, dr = 0;
  pca_tensor(ev, da, dr);
  EXPECT_EQ(da, (-2.0 - (0.0 + 1.0) * 0.5) / 3.0);
  EXPECT_EQ(dr, (0.0 - 1.0) / 3.0);
}

TEST(PrintAnalyzation, OppositeSignPairAndItsInverse) {
  // 0.5 x 21523.110491698444 = 10761.555...; (1/3) / 0.5 = 0.6667.
  EXPECT_EQ(report(0.5, 1.0 / 3.0, kZero4, kZero4, kZero4),
            magnitude("Da(NH) =  10761.6 [Hz]     R = Dr/Da = 0.667\n\n") + kZeroAngles);
  EXPECT_EQ(report(-0.5, -1.0 / 3.0, kZero4, kZero4, kZero4),
            magnitude("Da(NH) =  -10761.6 [Hz]     R = Dr/Da = 0.667\n\n") + kZeroAngles);
}

TEST(PrintAnalyzation, AxialTensorPrintsZeroRhombicity) {
  EXPECT_EQ(report(1.0, 0.0, kZero4, kZero4, kZero4),
            magnitude("Da(NH) =  21523.1 [Hz]     R = Dr/Da = 0.000\n\n") + kZeroAngles);
}

TEST(PrintAnalyzation, NegativeDaPrintsNegativeCoupling) {
  EXPECT_EQ(report(-0.001, 0.0002, kZero4, kZero4, kZero4),
            magnitude("Da(NH) =  -21.5 [Hz]     R = Dr/Da = -0.200\n\n") + kZeroAngles);
}

TEST(PrintAnalyzation, ZeroDaPrintsZeroRatioInsteadOfDividing) {
  EXPECT_EQ(report(0.0, 0.25, kZero4, kZero4, kZero4),
            magnitude("Da(NH) =  0.0 [Hz]     R = Dr/Da = 0.000\n\n") + kZeroAngles);
  EXPECT_EQ(report(-0.0, 0.0, kZero4, kZero4, kZero4),
            magnitude("Da(NH) =  -0.0 [Hz]     R = Dr/Da = 0.000\n\n") + kZeroAngles);
}

TEST(PrintAnalyzation, ValuesNarrowedToSinglePrecision) {
  // da x 21523.11... = 1234.450005 in double (would print 1234.5); as a float
  // it is 1234.449951171875 and prints 1234.4. R = 0.3125000001 in double
  // (0.313) is exactly 0.3125 as a float and prints 0.312.
  const double da = 1234.450005 / 21523.110491698444;
  ASSERT_EQ(std::to_string(da * 21523.110491698444), "1234.450005");
  EXPECT_EQ(report(da, 0.3125000001 * da, kZero4, kZero4, kZero4),
            magnitude("Da(NH) =  1234.4 [Hz]     R = Dr/Da = 0.312\n\n") + kZeroAngles);
}

TEST(PrintAnalyzation, AngleRowsInListOrder) {
  const double alpha[4] = {263.2149, 83.2149, 276.7851, 96.7851};
  const double beta[4] = {0.0, 180.0000002, -5.5, 1234.567};
  const double gamma[4] = {359.994, 12.3456, 0.004, 66.5};
  EXPECT_EQ(report(1.0, 0.0, alpha, beta, gamma),
            magnitude("Da(NH) =  21523.1 [Hz]     R = Dr/Da = 0.000\n\n") + kOrientationHead +
                "alpha   :   263.21    83.21   276.79    96.79  \n"
                "beta    :     0.00   180.00    -5.50  1234.57  \n"
                "gamma   :   359.99    12.35     0.00    66.50  \n\n");
}

class PrintEigensystem : public ::testing::Test {
 protected:
  std::string print(int flag) {
    test::Capture out;
    print_eigensystem(flag, saupe_, eigVal_, eigVec_, out.file());
    return out.str();
  }
  const double saupe_[5] = {0.5, 0.25, 0.125, -0.0625, 0.75};
  const double eigVal_[3] = {1.5, -1.0, -0.5};
  const double eigVec_[3][3] = {{0.25, -0.5, 1.0}, {0.75, 0.0, -2.0}, {-0.125, 3.0, 1e-3}};
  // xx = -0.5 (0.5 - 0.25), yy = -0.5 (0.5 + 0.25), zz = 0.5.
  const std::string saupe_block_ =
      "saupe matrix\n"
      "-1.250000e-01  1.250000e-01  -6.250000e-02  \n"
      "1.250000e-01  -3.750000e-01  7.500000e-01  \n"
      "-6.250000e-02  7.500000e-01  5.000000e-01  \n";
  const std::string head_ = "\neigensystem\n===========\n";
  const std::string eigen_block_ =
      "eigenvalues (Azz,Ayy,Axx)\n"
      "1.500000e+00  -1.000000e+00  -5.000000e-01  \n"
      "eigenvectors (z,y,x)\n"
      "2.500000e-01  -5.000000e-01  1.000000e+00  \n"
      "7.500000e-01  0.000000e+00  -2.000000e+00  \n"
      "-1.250000e-01  3.000000e+00  1.000000e-03  \n"
      "\n";
};

TEST_F(PrintEigensystem, ZeroAndNegativeFlagsPrintNothing) {
  EXPECT_EQ(print(0), "");
  EXPECT_EQ(print(-1), "");
}

TEST_F(PrintEigensystem, FlagOnePrintsEigensystemWithoutMatrix) {
  EXPECT_EQ(print(1), head_ + eigen_block_);
}

TEST_F(PrintEigensystem, FlagTwoAddsSaupeMatrix) {
  EXPECT_EQ(print(2), head_ + saupe_block_ + eigen_block_);
}

TEST_F(PrintEigensystem, OtherPositiveFlagsActLikeOne) {
  EXPECT_EQ(print(3), head_ + eigen_block_);
  EXPECT_EQ(print(100), head_ + eigen_block_);
}

}  // namespace
}  // namespace vorn
