#include "tensor/report.hpp"

#include <cmath>

#include "tensor/analyze.hpp"
#include "tensor/jacobi.hpp"

namespace vorn {

namespace {

// Converts the axial order-matrix component into the axial N-H dipolar
// coupling in Hz.
constexpr double kDaNH = 21523.110491698444;

void print_row(const double values[], int count, FILE* out) {
  for (int i = 0; i < count; ++i) std::fprintf(out, "%7.2f  ", values[i]);
}

}  // namespace

int pca_tensor(const double eigVal[3], double& da, double& dr) {
  double d[3] = {eigVal[0], eigVal[1], eigVal[2]};
  const auto exchange = [&d](int p, int q) {
    if (std::fabs(d[q]) > std::fabs(d[p])) {
      const double t = d[p];
      d[p] = d[q];
      d[q] = t;
    }
  };
  exchange(0, 1);
  exchange(0, 2);
  exchange(1, 2);
  da = (d[0] - (d[2] + d[1]) * 0.5) / 3.0;
  dr = (d[2] - d[1]) / 3.0;
  return 0;
}

int print_analyzation([[maybe_unused]] const double saupe[5],
                      [[maybe_unused]] const double eigVec[3][3],
                      [[maybe_unused]] const double eigVal[3], double da, double dr,
                      [[maybe_unused]] const double psiList[8],
                      [[maybe_unused]] const double thetaList[8],
                      [[maybe_unused]] const double phiList[8], const double alphalist[4],
                      const double betalist[4], const double gammalist[4],
                      [[maybe_unused]] const double thetaGlist[4],
                      [[maybe_unused]] const double phiGlist[4],
                      [[maybe_unused]] const double omegaGlist[4], FILE* out) {
  // Both printed figures are single precision.
  const float daHz = static_cast<float>(da * kDaNH);
  const float R = (da == 0.0) ? 0.0f : static_cast<float>(dr / da);
  std::fprintf(out, "\nMagnitude of alignment tensor\n");
  std::fprintf(out, "==============================\n");
  std::fprintf(out, "Da(NH) =  %.1f [Hz]     R = Dr/Da = %.3f\n\n", static_cast<double>(daHz),
               static_cast<double>(R));
  std::fprintf(out, "\nOrientation of alignment tensor\n");
  std::fprintf(out, "(Euler angles [deg.] for 4 equivalent orientations)\n");
  std::fprintf(out, "==================================================\n");
  std::fprintf(out, "alpha   :  ");
  print_row(alphalist, 4, out);
  std::fprintf(out, "\nbeta    :  ");
  print_row(betalist, 4, out);
  std::fprintf(out, "\ngamma   :  ");
  print_row(gammalist, 4, out);
  std::fprintf(out, "\n\n");
  return 0;
}

void print_eigensystem(int flag, const double saupe[5], const double eigVal[3],
                       const double eigVec[3][3], FILE* out) {
  double m[4][4] = {};
  saupe_matrix(saupe, m);
  if (flag > 0) {
    std::fprintf(out, "\neigensystem\n");
    std::fprintf(out, "===========\n");
  }
  if (flag == 2) {
    std::fprintf(out, "saupe matrix\n");
    for (int i = 1; i <= 3; ++i) {
      for (int j = 1; j <= 3; ++j) std::fprintf(out, "%e  ", m[i][j]);
      std::fprintf(out, "\n");
    }
  }
  if (flag > 0) {
    std::fprintf(out, "eigenvalues (Azz,Ayy,Axx)\n");
    for (int i = 0; i < 3; ++i) std::fprintf(out, "%e  ", eigVal[i]);
    std::fprintf(out, "\n");
    std::fprintf(out, "eigenvectors (z,y,x)\n");
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) std::fprintf(out, "%e  ", eigVec[i][j]);
      std::fprintf(out, "\n");
    }
    std::fprintf(out, "\n");
  }
}

}  // namespace vorn
