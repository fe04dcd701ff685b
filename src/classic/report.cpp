#include "classic/report.hpp"

#include <cmath>

#include "classic/analyze.hpp"
#include "vorn/tensor.hpp"

namespace vorn {

namespace {

void print_row(const double values[], int count, FILE* out) {
  for (int i = 0; i < count; ++i) std::fprintf(out, "%7.2f  ", values[i]);
}

}  // namespace

int print_analyzation(double da, double dr, const double alphalist[4], const double betalist[4],
                      const double gammalist[4], FILE* out) {
  // Both printed figures are single precision.
  const float daHz = static_cast<float>(da * kDaNHScale);
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
  const auto m = saupe_matrix({saupe[0], saupe[1], saupe[2], saupe[3], saupe[4]});
  if (flag > 0) {
    std::fprintf(out, "\neigensystem\n");
    std::fprintf(out, "===========\n");
  }
  if (flag == 2) {
    std::fprintf(out, "saupe matrix\n");
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) std::fprintf(out, "%e  ", m[i][j]);
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
