#include "tensor/euler.hpp"

#include <cmath>

#include "tensor/jacobi.hpp"

namespace vorn {

namespace {

// Truncated value of pi used throughout the Euler-angle code, kept so that
// the printed angles stay the same to the last digit.
constexpr double kPi = 3.14159265;

}  // namespace

int eigVec2euler(int /*mirror*/, const double eigVec[4][4], double alphalist[4], double betalist[4],
                 double gammalist[4]) {
  double eigVec_temp[3][3];
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) eigVec_temp[i][j] = eigVec[i + 1][j + 1];
  }
  double eigVecXlist[4][3];
  double eigVecYlist[4][3];
  double eigVecZlist[4][3];
  const int n = make_eigVecList(eigVec_temp, eigVecXlist, eigVecYlist, eigVecZlist);
  for (int k = 0; k < n && k < 4; ++k) {
    double eigVec_temp2[4][4] = {};
    for (int j = 0; j < 3; ++j) {
      eigVec_temp2[j + 1][1] = eigVecXlist[k][j];
      eigVec_temp2[j + 1][2] = eigVecYlist[k][j];
      eigVec_temp2[j + 1][3] = eigVecZlist[k][j];
    }
    double w[4] = {};
    get_euler(eigVec_temp2, w);
    alphalist[k] = w[1];
    betalist[k] = w[2];
    gammalist[k] = w[3];
  }
  return 0;
}

int make_eigVecList(const double eigVec[3][3], double eigVecXlist[4][3], double eigVecYlist[4][3],
                    double eigVecZlist[4][3]) {
  for (int n = 0; n < 4; ++n) {
    for (int i = 0; i < 3; ++i) eigVecXlist[n][i] = eigVecYlist[n][i] = eigVecZlist[n][i] = 0.0;
  }
  // Signs of the y axis (eigenvector of Ayy) and the z axis (Azz) for the
  // four equivalent orientations, in storage order.
  static constexpr double kSign[4][2] = {{1.0, 1.0}, {-1.0, 1.0}, {1.0, -1.0}, {-1.0, -1.0}};
  int count = 0;
  for (int n = 0; n < 4; ++n) {
    double candidate[3][3];
    for (int i = 0; i < 3; ++i) {
      candidate[i][1] = kSign[n][0] * eigVec[i][1];
      candidate[i][2] = kSign[n][1] * eigVec[i][0];
    }
    // The x axis is rebuilt as y x z, so every candidate is a proper
    // rotation whatever the handedness of the eigenvector set.
    double x_axis[3];
    cross_productM2(1, 2, candidate, x_axis);
    for (int i = 0; i < 3; ++i) candidate[i][0] = x_axis[i];
    mirror_solutions(n, candidate, eigVecXlist, eigVecYlist, eigVecZlist);
    ++count;
  }
  return count;
}

int mirror_solutions(int n, const double eigVec[3][3], double eigVecXlist[4][3],
                     double eigVecYlist[4][3], double eigVecZlist[4][3]) {
  double copy[3][3];
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) copy[i][j] = eigVec[i][j];
  }
  add_eigVec_List(eigVecXlist, eigVecYlist, eigVecZlist, n, copy);
  return 1;
}

int add_eigVec_List(double eigVecXlist[4][3], double eigVecYlist[4][3], double eigVecZlist[4][3],
                    int n, const double eigVec[3][3]) {
  // The lists hold four candidates; any other index is refused rather than
  // written past the end.
  if (n < 0 || n > 3) return 0;
  for (int i = 0; i < 3; ++i) {
    eigVecXlist[n][i] = eigVec[i][0];
    eigVecYlist[n][i] = eigVec[i][1];
    eigVecZlist[n][i] = eigVec[i][2];
  }
  return 1;
}

int cross_productM2(int n, int m, const double eigVec[3][3], double product[3]) {
  // Column indices outside the 3 x 3 matrix are refused, product untouched.
  if (n < 0 || n > 2 || m < 0 || m > 2) return 0;
  const double a0 = eigVec[0][n];
  const double a1 = eigVec[1][n];
  const double a2 = eigVec[2][n];
  const double b0 = eigVec[0][m];
  const double b1 = eigVec[1][m];
  const double b2 = eigVec[2][m];
  product[0] = a1 * b2 - a2 * b1;
  product[1] = a2 * b0 - a0 * b2;
  product[2] = a0 * b1 - a1 * b0;
  return 1;
}

int get_euler(const double m[4][4], double w[4]) {
  double normalised[4][4] = {};
  for (int j = 1; j <= 3; ++j) {
    const double length = std::sqrt(m[1][j] * m[1][j] + m[2][j] * m[2][j] + m[3][j] * m[3][j]);
    for (int i = 1; i <= 3; ++i) normalised[i][j] = m[i][j] / length;
  }
  inv_euler(normalised, w);
  return 0;
}

void inv_euler(const double m[4][4], double w[4]) {
  w[1] = w[2] = w[3] = 0.0;
  // No clamping of the acos arguments: a rounding excursion beyond +-1 gives
  // NaN, as it always has.
  const double beta = std::acos(m[3][3]);
  w[2] = beta * 180.0 / kPi;
  const double sin_beta = std::sin(beta);
  double alpha;
  double gamma;
  if (std::fabs(sin_beta) > 1e-10) {
    alpha = std::acos(m[3][1] / sin_beta) * 180.0 / kPi;
    if (m[3][2] / sin_beta < 0) alpha = 360.0 - alpha;
    gamma = std::acos(-m[1][3] / sin_beta) * 180.0 / kPi;
    if (m[2][3] / sin_beta < 0) gamma = 360.0 - gamma;
  } else {
    // beta at 0 or 180 degrees: only alpha + gamma (or alpha - gamma) is
    // defined, so gamma is set to 0 and alpha carries the rotation.
    const double s = (m[3][3] < 0) ? -1.0 : 1.0;
    alpha = std::acos(s * m[1][1]) * 180.0 / kPi;
    if (s * m[1][2] < 0) alpha = 360.0 - alpha;
    gamma = 0.0;
  }
  w[1] = alpha;
  w[3] = gamma;
}

int euler2polar(const double alphalist[4], const double betalist[4], const double gammalist[4],
                double thetaGlist[4], double phiGlist[4], double omegaGlist[4]) {
  for (int k = 0; k < 4; ++k) {
    const double a = alphalist[k] * kPi / 180.0;
    const double b = betalist[k] * kPi / 180.0;
    const double g = gammalist[k] * kPi / 180.0;
    const double phiG = (a - g) / 2.0 + 1.570796325;
    const double thetaG = std::atan(std::tan(b / 2.0) / std::sin((a + g) / 2.0));
    double t = std::acos(std::cos((a + g) / 2.0) * std::cos(b / 2.0));
    const double q = std::sin((g - a) / 2.0) * std::sin(b / 2.0) / std::cos(phiG);
    // The sine here is taken of gamma in degrees; kept for compatibility.
    if (!(q > 0 && std::sin(gammalist[k]) * std::sin(t) > 0)) t = 6.2831853 - t;
    double omega = 2 * t;
    if (omega >= 6.2831853) omega = omega - 6.2831853;
    thetaGlist[k] = thetaG * 180.0 / kPi;
    phiGlist[k] = phiG * 180.0 / kPi;
    omegaGlist[k] = omega * 180.0 / kPi;
  }
  return 0;
}

}  // namespace vorn
