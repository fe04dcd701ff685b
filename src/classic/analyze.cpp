#include "classic/analyze.hpp"

#include "classic/report.hpp"
#include "vorn/classic.hpp"
#include "vorn/tensor.hpp"

namespace vorn {

void report_step(int status, const char* routine, FILE* out) {
  if (status != 0) std::fprintf(out, "%s: error occured\n", routine);
}

int analyzeSaupe(const double saupe[5], double eigVec[3][3], double eigVal[3], double& da,
                 double& dr, double alphalist[4], double betalist[4], double gammalist[4],
                 FILE* out) {
  // The engine's steps (diagonalisation, ordering, Euler triples, magnitude)
  // report no failure short of an exception, so no "error occured" line can
  // come from them; the report itself is the one step with a status here.
  const AlignmentTensor tensor =
      classic_analyze_tensor({saupe[0], saupe[1], saupe[2], saupe[3], saupe[4]});
  for (int k = 0; k < 3; ++k) {
    eigVal[k] = tensor.eigenvalues[k];
    for (int c = 0; c < 3; ++c) eigVec[c][k] = tensor.eigenvectors[k][c];
  }
  for (int k = 0; k < 4; ++k) {
    alphalist[k] = tensor.euler_deg[k][0];
    betalist[k] = tensor.euler_deg[k][1];
    gammalist[k] = tensor.euler_deg[k][2];
  }
  da = tensor.da;
  dr = tensor.dr;
  report_step(print_analyzation(da, dr, alphalist, betalist, gammalist, out), "print_analyzation",
              out);
  return 0;
}

}  // namespace vorn
