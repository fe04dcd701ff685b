// Diagonalisation of the Saupe order matrix and ordering of its eigensystem.
// Matrices of this code are 1-based 3 x 3 (storage 4 x 4, row and column 0
// unused); vectors are 1-based of 3 (storage 4, element 0 unused).
#pragma once

namespace vorn {

// Full symmetric traceless matrix from the five elements Szz, Sxx-Syy, Sxy,
// Sxz, Syz, written to m[1..3][1..3].
void saupe_matrix(const double saupe[5], double m[4][4]);

// Cyclic Jacobi diagonalisation of the symmetric matrix a (destroyed above
// the diagonal): eigenvalues into d, eigenvectors as the columns of v, number
// of rotations into nrot. More than 50 sweeps end the run through nrerror.
void jacobimz(double a[4][4], double d[4], double v[4][4], int& nrot);

// Orders eigenvalues by decreasing absolute value, moving the eigenvector
// columns along; ties keep their order. Always returns 0.
int sort_eigensystem(double eigVal[4], double eigVec[4][4]);

}  // namespace vorn
