// Diagonalisation of the Saupe order matrix and ordering of its eigensystem.
// Matrices of this code are 1-based 3 x 3 (storage 4 x 4, row and column 0
// unused); vectors are 1-based of 3 (storage 4, element 0 unused).
#pragma once

#include <cstdio>

namespace vorn {

// Full symmetric traceless matrix from the five elements Szz, Sxx-Syy, Sxy,
// Sxz, Syz, written to m[1..3][1..3].
void saupe_matrix(const double saupe[5], double m[4][4]);

// Prints "<routine>: error occured\n" on out when status is non-zero; the
// tensor chain reports failed sub-steps this way and carries on.
void report_step(int status, const char* routine, FILE* out);

// Eigensystem and the four equivalent Euler triples of the Saupe matrix.
// psiList, thetaList, phiList (8 each) are zeroed and otherwise unused;
// eigenvec (rows x, y, z; columns the z, y, x axes) and eigenvalue (Azz, Ayy,
// Axx) are 0-based. Always returns 0.
int saupe2euler(const double saupe[5], double psiList[8], double thetaList[8], double phiList[8],
                double alphalist[4], double betalist[4], double gammalist[4], double eigenvec[3][3],
                double eigenvalue[3], FILE* out);

// Cyclic Jacobi diagonalisation of the symmetric matrix a (destroyed above
// the diagonal): eigenvalues into d, eigenvectors as the columns of v, number
// of rotations into nrot. More than 50 sweeps end the run through nrerror.
void jacobimz(double a[4][4], double d[4], double v[4][4], int& nrot);

// Orders eigenvalues by decreasing absolute value, moving the eigenvector
// columns along; ties keep their order. Always returns 0.
int sort_eigensystem(double eigVal[4], double eigVec[4][4]);

}  // namespace vorn
