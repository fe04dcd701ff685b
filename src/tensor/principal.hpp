// Principal-axis analysis of an alignment tensor: eigensystem in the classic
// order, magnitude, rhombicity and the four equivalent Euler triples.
#pragma once

namespace vorn {

struct TensorAnalysis {
  double eigenvectors[3][3] = {};                     // rows x, y, z; columns the z, y, x axes
  double eigenvalues[3] = {};                         // Azz, Ayy, Axx
  double da = 0.0;                                    // axial component
  double dr = 0.0;                                    // rhombic component
  double alpha[4] = {}, beta[4] = {}, gamma[4] = {};  // degrees
};

// Axial (da) and rhombic (dr) components from the eigenvalues (Azz, Ayy,
// Axx). Always returns 0.
int pca_tensor(const double eigVal[3], double& da, double& dr);

// Diagonalises the matrix of the five elements (Szz, Sxx-Syy, Sxy, Sxz,
// Syz), orders the eigensystem and derives the Euler triples. A matrix that
// the Jacobi method cannot diagonalise in 50 sweeps throws vorn::Error.
TensorAnalysis analyse_saupe(const double saupe[5]);

}  // namespace vorn
