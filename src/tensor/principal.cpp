#include "tensor/principal.hpp"

#include <cmath>

#include "tensor/euler.hpp"
#include "tensor/jacobi.hpp"

namespace vorn {

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

TensorAnalysis analyse_saupe(const double saupe[5]) {
  TensorAnalysis result;
  double sMat[4][4] = {};
  saupe_matrix(saupe, sMat);
  double eigVal[4] = {};
  double eigVec[4][4] = {};
  int nrot = 0;
  jacobimz(sMat, eigVal, eigVec, nrot);
  sort_eigensystem(eigVal, eigVec);
  eigVec2euler(1, eigVec, result.alpha, result.beta, result.gamma);
  for (int i = 1; i <= 3; ++i) {
    for (int j = 1; j <= 3; ++j) result.eigenvectors[i - 1][j - 1] = eigVec[i][j];
    result.eigenvalues[i - 1] = eigVal[i];
  }
  pca_tensor(result.eigenvalues, result.da, result.dr);
  return result;
}

}  // namespace vorn
