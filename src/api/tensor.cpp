#include "vorn/tensor.hpp"

#include <cmath>

#include "tensor/jacobi.hpp"
#include "tensor/principal.hpp"
#include "vorn/classic.hpp"
#include "vorn/error.hpp"

namespace vorn {

std::array<std::array<double, 3>, 3> saupe_matrix(const SaupeElements& saupe) {
  double m[4][4] = {};
  saupe_matrix(saupe.data(), m);
  std::array<std::array<double, 3>, 3> result{};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) result[i][j] = m[i + 1][j + 1];
  return result;
}

AlignmentTensor analyze_tensor(const SaupeElements& saupe) {
  for (const double element : saupe) {
    if (!std::isfinite(element)) throw Error("analyze_tensor: a Saupe element is not finite");
  }
  return classic_analyze_tensor(saupe);
}

AlignmentTensor classic_analyze_tensor(const SaupeElements& saupe) {
  const TensorAnalysis analysis = analyse_saupe(saupe.data());
  AlignmentTensor tensor;
  tensor.saupe = saupe;
  for (int k = 0; k < 3; ++k) {
    tensor.eigenvalues[k] = analysis.eigenvalues[k];
    for (int c = 0; c < 3; ++c) tensor.eigenvectors[k][c] = analysis.eigenvectors[c][k];
  }
  tensor.da = analysis.da;
  tensor.dr = analysis.dr;
  tensor.da_hz = analysis.da * kDaNHScale;
  tensor.rhombicity = analysis.da == 0.0 ? 0.0 : analysis.dr / analysis.da;
  for (int k = 0; k < 4; ++k) {
    tensor.euler_deg[k] = {analysis.alpha[k], analysis.beta[k], analysis.gamma[k]};
  }
  return tensor;
}

}  // namespace vorn
